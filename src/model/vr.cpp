#include "model/vr.h"

#include <array>
#include <cstddef>

namespace vx {
namespace {

constexpr char kLetters[kVrCount][3] = {"AE", "AS", "CS", "DA", "DS", "DT", "IS", "LO", "LT", "PN", "SH",
                                        "ST", "TM", "UC", "UR", "UT", "UI", "SS", "US", "AT", "SL", "UL",
                                        "FL", "FD", "UN", "OB", "OW", "OL", "OD", "OF", "SQ"};

constexpr std::size_t slot(char first, char second) {
  return static_cast<std::size_t>(first - 'A') * 26 + static_cast<std::size_t>(second - 'A');
}

// The codes by their two letters: the decoder asks once for each element.
constexpr auto kCodes = [] {
  std::array<signed char, std::size_t{26} * 26> codes{};
  codes.fill(-1);
  for (int code = 0; code < kVrCount; ++code) {
    codes[slot(kLetters[code][0], kLetters[code][1])] = static_cast<signed char>(code);
  }
  return codes;
}();

constexpr bool is_capital(char c) {
  return c >= 'A' && c <= 'Z';
}

}  // namespace

const char* vr_letters(int32_t vr) {
  return is_vr(vr) ? kLetters[vr] : "??";
}

int32_t vr_from_letters(char first, char second) {
  if (!is_capital(first) || !is_capital(second)) return -1;
  return kCodes[slot(first, second)];
}

}  // namespace vx
