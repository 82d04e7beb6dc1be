// Numbers and bytes as hexadecimal digits.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vexal {

inline void append_hex(std::string& out, uint32_t value, int digits) {
  for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4)
    out += "0123456789ABCDEF"[(value >> shift) & 15U];
}

// "A700" of a status, and the like.
inline std::string hex_of(uint32_t value, int digits) {
  std::string text;
  append_hex(text, value, digits);
  return text;
}

// "0fa1", as dumps of bytes have it, with what parts two bytes.
inline void append_bytes(std::string& out, std::string_view bytes, std::string_view between = {}) {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const auto byte = static_cast<unsigned char>(bytes[i]);
    if (i != 0) out += between;
    (out += "0123456789abcdef"[byte >> 4]) += "0123456789abcdef"[byte & 15U];
  }
}

}  // namespace vexal
