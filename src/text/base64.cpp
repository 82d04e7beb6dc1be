#include "text/base64.h"

#include <array>

namespace vx {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<int8_t, 256> kDigits = [] {
  std::array<int8_t, 256> digits{};
  digits.fill(-1);
  for (int i = 0; i < 64; ++i) digits[static_cast<uint8_t>(kAlphabet[i])] = static_cast<int8_t>(i);
  return digits;
}();

void encode3(const uint8_t* in, char* out) {
  const uint32_t bits = (uint32_t{in[0]} << 16) | (uint32_t{in[1]} << 8) | in[2];
  for (int i = 0; i < 4; ++i) out[i] = kAlphabet[(bits >> (18 - 6 * i)) & 63U];
}

}  // namespace

void Base64Writer::add(const void* data, std::size_t size) {
  const auto* bytes = static_cast<const uint8_t*>(data);
  if (kept_ != 0) {
    for (; kept_ < 3 && size > 0; --size) rest_[kept_++] = *bytes++;
    if (kept_ < 3) return;
    char four[4];
    encode3(rest_, four);
    out_.append(four, 4);
    kept_ = 0;
  }
  const std::size_t triples = size / 3;
  const std::size_t at = out_.size();
  out_.resize(at + 4 * triples);
  for (std::size_t i = 0; i < triples; ++i) encode3(bytes + 3 * i, out_.data() + at + 4 * i);
  kept_ = size - 3 * triples;
  for (std::size_t i = 0; i < kept_; ++i) rest_[i] = bytes[3 * triples + i];
}

void Base64Writer::finish() {
  if (kept_ == 0) return;
  for (std::size_t i = kept_; i < 3; ++i) rest_[i] = 0;
  char four[4];
  encode3(rest_, four);
  for (std::size_t i = kept_ + 1; i < 4; ++i) four[i] = '=';
  out_.append(four, 4);
  kept_ = 0;
}

std::string decode_base64(std::string_view text, bool& clean) {
  std::string out;
  out.reserve(text.size() / 4 * 3 + 3);
  clean = true;
  uint32_t bits = 0;
  unsigned count = 0;
  for (const char c : text) {
    if (c == '=') break;
    const int digit = kDigits[static_cast<uint8_t>(c)];
    if (digit < 0) {
      clean = clean && (c == '\r' || c == '\n');
      continue;
    }
    bits = (bits << 6) | static_cast<uint32_t>(digit);
    count += 6;
    if (count >= 8) {
      count -= 8;
      out += static_cast<char>((bits >> count) & 0xFFU);
    }
  }
  return out;
}

}  // namespace vx
