#include "text/base64.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace vx {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<int8_t, 256> kDigits = [] {
  std::array<int8_t, 256> digits{};
  digits.fill(-1);
  for (int i = 0; i < 64; ++i) digits[static_cast<uint8_t>(kAlphabet[i])] = static_cast<int8_t>(i);
  return digits;
}();

// Each twelve bits as two characters.
constexpr std::array<std::array<char, 2>, 4096> kPairs = [] {
  std::array<std::array<char, 2>, 4096> pairs{};
  for (std::size_t i = 0; i < pairs.size(); ++i) pairs[i] = {kAlphabet[i >> 6], kAlphabet[i & 63U]};
  return pairs;
}();

void encode3(const uint8_t* in, char* out) {
  const uint32_t bits = (uint32_t{in[0]} << 16) | (uint32_t{in[1]} << 8) | in[2];
  std::memcpy(out, kPairs[bits >> 12].data(), 2);
  std::memcpy(out + 2, kPairs[bits & 0xFFFU].data(), 2);
}

}  // namespace

// Groups of three bytes, up to the end of the line at a time.
void Base64Writer::add_groups(const uint8_t* bytes, std::size_t count) {
  constexpr std::size_t kLine = 76;
  while (count > 0) {
    const std::size_t part = lines_ ? std::min(count, (kLine - column_) / 4) : count;
    const std::size_t at = out_.size();
    out_.resize(at + 4 * part);
    for (std::size_t i = 0; i < part; ++i) encode3(bytes + 3 * i, out_.data() + at + 4 * i);
    bytes += 3 * part;
    count -= part;
    column_ += 4 * part;
    if (!lines_ || column_ < kLine) continue;
    out_ += "\r\n";
    column_ = 0;
  }
}

void Base64Writer::add(const void* data, std::size_t size) {
  const auto* bytes = static_cast<const uint8_t*>(data);
  if (kept_ != 0) {
    for (; kept_ < 3 && size > 0; --size) rest_[kept_++] = *bytes++;
    if (kept_ < 3) return;
    add_groups(rest_, 1);
  }
  add_groups(bytes, size / 3);
  kept_ = size % 3;
  for (std::size_t i = 0; i < kept_; ++i) rest_[i] = bytes[size - kept_ + i];
}

void Base64Writer::finish() {
  if (kept_ != 0) {
    for (std::size_t i = kept_; i < 3; ++i) rest_[i] = 0;
    add_groups(rest_, 1);
    const std::size_t end = out_.size() - (lines_ && column_ == 0 ? 2 : 0);
    for (std::size_t i = kept_ + 1; i < 4; ++i) out_[end - 4 + i] = '=';
    kept_ = 0;
  }
  if (lines_ && column_ != 0) out_ += "\r\n";
  column_ = 0;
}

std::string decode_base64(std::string_view text, bool& clean) {
  std::string out(text.size() / 4 * 3 + 3, '\0');
  char* to = out.data();
  clean = true;
  uint32_t bits = 0;
  unsigned count = 0;
  for (std::size_t at = 0; at < text.size();) {
    // Four digits at a time, for as long as there is nothing else.
    if (count == 0 && text.size() - at >= 4) {
      const auto digit = [&](std::size_t i) { return int32_t{kDigits[static_cast<uint8_t>(text[at + i])]}; };
      const int32_t all = (digit(0) << 18) | (digit(1) << 12) | (digit(2) << 6) | digit(3);
      if (all >= 0) {
        *to++ = static_cast<char>(all >> 16);
        *to++ = static_cast<char>(all >> 8);
        *to++ = static_cast<char>(all);
        at += 4;
        continue;
      }
    }
    const char c = text[at++];
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
      *to++ = static_cast<char>((bits >> count) & 0xFFU);
    }
  }
  out.resize(static_cast<std::size_t>(to - out.data()));
  return out;
}

}  // namespace vx
