#include "json.h"

#include <charconv>
#include <cmath>
#include <cstdio>

#include "printable.h"

namespace vexal {

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
