#include "uid.h"

#include <fstream>

namespace vexal {

std::string new_uid() {
  unsigned char bits[16] = {};
  std::ifstream random("/dev/urandom", std::ios::binary);
  random.read(reinterpret_cast<char*>(bits), sizeof bits);
  bits[6] = static_cast<unsigned char>((bits[6] & 0x0FU) | 0x40U);
  bits[8] = static_cast<unsigned char>((bits[8] & 0x3FU) | 0x80U);
  unsigned __int128 number = 0;
  for (const unsigned char byte : bits) number = (number << 8) | byte;
  std::string digits;
  do {
    digits.insert(digits.begin(), static_cast<char>('0' + static_cast<int>(number % 10)));
    number /= 10;
  } while (number != 0);
  return "2.25." + digits;
}

}  // namespace vexal
