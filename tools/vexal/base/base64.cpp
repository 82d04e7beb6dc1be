#include "base64.h"

#include <cstdint>

namespace vexal {
namespace {

constexpr std::string_view kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view kUrl = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

}  // namespace

std::string base64_of(std::string_view bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i)
      group = group << 8 | (at + i < bytes.size() ? static_cast<unsigned char>(bytes[at + i]) : 0U);
    for (std::size_t i = 0; i < 4; ++i)
      text += at + i > bytes.size() ? '=' : kPlain[group >> (18 - 6 * i) & 63U];
  }
  return text;
}

bool from_base64(std::string_view text, bool url, std::string& bytes) {
  bytes.clear();
  if (!url && text.size() % 4 != 0) return false;
  for (int i = 0; !url && i < 2 && text.ends_with('='); ++i) text.remove_suffix(1);
  if (text.size() % 4 == 1) return false;
  uint32_t group = 0;
  unsigned bits = 0;
  for (const char c : text) {
    const std::size_t value = (url ? kUrl : kPlain).find(c);
    if (value == std::string_view::npos) return false;
    group = group << 6 | static_cast<uint32_t>(value);
    bits += 6;
    if (bits < 8) continue;
    bits -= 8;
    bytes += static_cast<char>(group >> bits & 0xFFU);
  }
  return (group & ((1U << bits) - 1)) == 0;
}

}  // namespace vexal
