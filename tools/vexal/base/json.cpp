#include "json.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "hex.h"
#include "printable.h"

namespace vexal {

namespace {

void append_escape(std::string& out, char32_t c) {
  std::u16string units;
  append_utf16(units, c);
  for (const char16_t unit : units) {
    out += "\\u";
    append_hex(out, unit, 4);
  }
}

}  // namespace

void append_json(std::string& out, std::string_view text) {
  out.push_back('"');
  while (!text.empty()) {
    const char c = text.front();
    const std::size_t length = utf8_length(text);
    const char32_t code =
        length == 0 ? static_cast<unsigned char>(c) : utf8_code_point(text.substr(0, length));
    if (c == '"' || c == '\\') {
      out.push_back('\\');
      out.push_back(c);
    } else if (is_steering(code)) {
      append_escape(out, code);
    } else if (length != 0) {
      out.append(text.substr(0, length));
    } else {
      append_utf8(out, code);
    }
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  out.push_back('"');
}

void append_json(std::string& out, double value) {
  if (!std::isfinite(value)) {
    out += "null";
    return;
  }
  char text[32];
  const auto result = std::to_chars(text, text + sizeof text, value);
  out.append(text, result.ptr);
  if (value == 0 && std::signbit(value))
    out += ".0";  // readers take -0 for a whole number, which has no sign
}

void append_json(std::string& out, int64_t value) {
  char text[24];
  const auto result = std::to_chars(text, text + sizeof text, value);
  out.append(text, result.ptr);
}

}  // namespace vexal
