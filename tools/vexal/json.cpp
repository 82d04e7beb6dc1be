#include "json.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace vexal {
namespace {

// Length of the UTF-8 character at the head of a text, 0 if there is none.
std::size_t utf8_length(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  std::size_t length = 0;
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead < 0xE0) length = 2;
  if (lead >= 0xE0 && lead < 0xF0) length = 3;
  if (lead >= 0xF0 && lead < 0xF5) length = 4;
  if (length == 0 || text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0U) != 0x80) return 0;
  }
  if (lead == 0xE0 && byte(1) < 0xA0) return 0;
  if (lead == 0xED && byte(1) >= 0xA0) return 0;
  if (lead == 0xF0 && byte(1) < 0x90) return 0;
  if (lead == 0xF4 && byte(1) >= 0x90) return 0;
  return length;
}

}  // namespace

void append_json(std::string& out, std::string_view text) {
  out.push_back('"');
  while (!text.empty()) {
    const char c = text.front();
    const auto byte = static_cast<unsigned char>(c);
    std::size_t used = 1;
    if (c == '"' || c == '\\') {
      out.push_back('\\');
      out.push_back(c);
    } else if (byte < 0x20 || byte == 0x7F) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04X", byte);
      out += escape;
    } else if (used = utf8_length(text); used != 0) {
      out.append(text.substr(0, used));
    } else {
      out.push_back(static_cast<char>(0xC0U | (byte >> 6)));
      out.push_back(static_cast<char>(0x80U | (byte & 0x3FU)));
      used = 1;
    }
    text.remove_prefix(used);
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
}

void append_json(std::string& out, int64_t value) {
  char text[24];
  const auto result = std::to_chars(text, text + sizeof text, value);
  out.append(text, result.ptr);
}

}  // namespace vexal
