#include "frame/text.h"

#include <locale.h>
#include <stdlib.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>
#include <string>

namespace vx {
namespace {

constexpr char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

constexpr bool is_space(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

// White space, a sign and digits. The magnitude stops growing at `ceiling` + 1.
struct Digits {
  bool negative = false;
  uint64_t magnitude = 0;
  std::size_t end = 0;  // 0 when there are no digits
};

Digits read_digits(std::string_view text, uint64_t ceiling) {
  Digits result;
  std::size_t at = 0;
  while (at < text.size() && is_space(text[at])) ++at;
  if (at < text.size() && (text[at] == '-' || text[at] == '+')) result.negative = text[at++] == '-';
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
    result.magnitude = std::min(result.magnitude * 10 + static_cast<uint64_t>(text[at] - '0'), ceiling + 1);
    result.end = at + 1;
  }
  return result;
}

void give_rest(std::string_view text, std::size_t end, std::string_view* rest) {
  if (rest != nullptr) *rest = text.substr(end);
}

locale_t c_locale() {
  static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
  return locale;
}

}  // namespace

bool equals_ignoring_case(std::string_view a, std::string_view b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return lower(x) == lower(y); });
}

std::string_view trim_left(std::string_view text) {
  const std::size_t first = text.find_first_not_of(' ');
  return first == std::string_view::npos ? text.substr(text.size()) : text.substr(first);
}

std::string_view trim_right(std::string_view text) {
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

bool copy_text(char* buffer, std::size_t size, std::string_view text) {
  if (size < 1) return false;
  const std::size_t length = std::min(text.size(), size - 1);
  if (length != 0) std::memcpy(buffer, text.data(), length);
  buffer[length] = '\0';
  return length == text.size();
}

int32_t parse_int32(std::string_view text, std::string_view* rest) {
  constexpr uint64_t kCeiling = uint64_t{1} << 31;
  const Digits digits = read_digits(text, kCeiling);
  give_rest(text, digits.end, rest);
  if (digits.negative)
    return static_cast<int32_t>(-static_cast<int64_t>(std::min(digits.magnitude, kCeiling)));
  return static_cast<int32_t>(std::min(digits.magnitude, kCeiling - 1));
}

uint32_t parse_uint32(std::string_view text, std::string_view* rest) {
  constexpr uint64_t kCeiling = std::numeric_limits<uint32_t>::max();
  const Digits digits = read_digits(text, kCeiling);
  give_rest(text, digits.end, rest);
  if (digits.magnitude > kCeiling) return static_cast<uint32_t>(kCeiling);
  const auto value = static_cast<uint32_t>(digits.magnitude);
  return digits.negative ? 0U - value : value;
}

double parse_double(std::string_view text, std::string_view* rest) {
  // strtod needs a terminator; numbers fit the short buffer as good as always.
  char small[128];
  std::string large;
  const char* start = small;
  if (!copy_text(small, sizeof small, text)) {
    large.assign(text);
    start = large.c_str();
  }
  char* end = nullptr;
  const double value = strtod_l(start, &end, c_locale());
  give_rest(text, static_cast<std::size_t>(end - start), rest);
  return value;
}

int format_g(char* buffer, std::size_t size, int precision, double value) {
  // Room for the longest double in fixed notation.
  char text[400];
  constexpr int kMostDigits = 300;
  const std::to_chars_result result =
      precision < 0 ? std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 6)
                    : std::to_chars(text, text + sizeof text, value, std::chars_format::general,
                                    std::min(precision, kMostDigits));
  const auto length = static_cast<std::size_t>(result.ptr - text);
  copy_text(buffer, size, {text, length});
  return static_cast<int>(length);
}

}  // namespace vx
