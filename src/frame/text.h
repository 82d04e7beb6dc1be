// Leaf helpers on texts.
#pragma once

#include <cstdint>
#include <string_view>

namespace vx {

bool equals_ignoring_case(std::string_view a, std::string_view b);
std::string_view trim_left(std::string_view text);   // blanks
std::string_view trim_right(std::string_view text);  // blanks
inline std::string_view trim(std::string_view text) {
  return trim_left(trim_right(text));
}

constexpr bool is_digit(char c) {
  return c >= '0' && c <= '9';
}
inline constexpr char kHexDigits[] = "0123456789ABCDEF";
// The number that a hexadecimal digit stands for; -1 if it is none.
constexpr int hex_digit(char c) {
  if (is_digit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

// Copies text and a NUL; a text that does not fit is cut. False if it was cut or size is below 1.
bool copy_text(char* buffer, std::size_t size, std::string_view text);

// Base-10 parses that saturate at the bounds, as strtol and strtoul of a 32-bit machine do; leading white
// space and a sign are taken. `rest` gets what was not read (all of text if there are no digits).
int32_t parse_int32(std::string_view text, std::string_view* rest = nullptr);
uint32_t parse_uint32(std::string_view text, std::string_view* rest = nullptr);
// strtod in the C locale. `rest` as above.
double parse_double(std::string_view text, std::string_view* rest = nullptr);
// printf in the C locale of one number with "%.<precision>g" or "%f"; the length, as snprintf gives it.
int format_g(char* buffer, std::size_t size, int precision, double value);

}  // namespace vx
