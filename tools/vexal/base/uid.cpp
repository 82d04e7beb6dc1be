#include "uid.h"

#include <sys/random.h>

#include <cerrno>
#include <stdexcept>

#include "hex.h"

namespace vexal {

std::string random_bytes(std::size_t count) {
  std::string bytes(count, '\0');
  for (std::size_t have = 0; have < count;) {
    const ssize_t got = ::getrandom(bytes.data() + have, count - have, 0);
    if (got < 0 && errno != EINTR) throw std::runtime_error("the system gives no random numbers");
    if (got > 0) have += static_cast<std::size_t>(got);
  }
  return bytes;
}

std::string random_name() {
  std::string name;
  append_bytes(name, random_bytes(8));
  return name;
}

std::string new_uid() {
  std::string bits = random_bytes(16);
  bits[6] = static_cast<char>((bits[6] & 0x0F) | 0x40);
  bits[8] = static_cast<char>((bits[8] & 0x3F) | 0x80);
  unsigned __int128 number = 0;
  for (const char byte : bits) number = (number << 8) | static_cast<unsigned char>(byte);
  std::string digits;
  do {
    digits.insert(digits.begin(), static_cast<char>('0' + static_cast<int>(number % 10)));
    number /= 10;
  } while (number != 0);
  return "2.25." + digits;
}

}  // namespace vexal
