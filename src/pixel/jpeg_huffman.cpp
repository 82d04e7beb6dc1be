#include "pixel/jpeg_huffman.h"

#include <algorithm>

namespace vx::jpeg {

bool HuffmanDecoder::build(const HuffmanSpec& spec) {
  look_.fill({});
  limit_.fill(0);
  values_ = spec.values;
  valid_ = false;
  uint32_t code = 0;
  uint32_t index = 0;
  for (std::size_t n = 1; n <= 16; ++n) {
    const uint32_t count = spec.counts[n];
    if (index + count > 256 || code + count > (1U << n)) return false;
    offset_[n] = index - code;
    if (n <= kLookBits) {
      const uint32_t span = 1U << (kLookBits - n);
      for (uint32_t i = 0; i < count; ++i) {
        const Entry entry{static_cast<uint8_t>(n), spec.values[index + i]};
        std::fill_n(look_.begin() + (code + i) * span, span, entry);
      }
    }
    index += count;
    code += count;
    limit_[n] = code;
    code <<= 1;
  }
  valid_ = index != 0;
  return valid_;
}

void best_table(const std::array<uint32_t, 256>& counts, HuffmanSpec& spec) {
  // A code of ones alone is not allowed: symbol 256 takes it.
  std::array<uint64_t, 257> weight{};
  std::copy(counts.begin(), counts.end(), weight.begin());
  weight[256] = 1;
  std::array<int, 257> next{};
  std::array<int, 257> size{};
  next.fill(-1);
  for (;;) {
    int first = -1;
    int second = -1;
    for (int i = 0; i < 257; ++i) {
      const auto at = static_cast<std::size_t>(i);
      if (weight[at] == 0) continue;
      if (first < 0 || weight[at] <= weight[static_cast<std::size_t>(first)]) {
        second = first;
        first = i;
      } else if (second < 0 || weight[at] <= weight[static_cast<std::size_t>(second)]) {
        second = i;
      }
    }
    if (second < 0) break;
    weight[static_cast<std::size_t>(first)] += weight[static_cast<std::size_t>(second)];
    weight[static_cast<std::size_t>(second)] = 0;
    int last = first;
    for (;; last = next[static_cast<std::size_t>(last)]) {
      ++size[static_cast<std::size_t>(last)];
      if (next[static_cast<std::size_t>(last)] < 0) break;
    }
    next[static_cast<std::size_t>(last)] = second;
    for (int i = second; i >= 0; i = next[static_cast<std::size_t>(i)]) ++size[static_cast<std::size_t>(i)];
  }
  std::array<int, 258> bits{};
  for (const int n : size) {
    if (n != 0) ++bits[static_cast<std::size_t>(n)];
  }
  for (std::size_t i = 257; i > 16; --i) {
    while (bits[i] > 0) {
      std::size_t j = i - 2;
      while (bits[j] == 0) --j;
      bits[i] -= 2;
      ++bits[i - 1];
      bits[j + 1] += 2;
      --bits[j];
    }
  }
  std::size_t longest = 16;
  while (longest > 0 && bits[longest] == 0) --longest;
  --bits[longest];
  for (std::size_t n = 1; n <= 16; ++n) spec.counts[n] = static_cast<uint8_t>(bits[n]);
  std::size_t at = 0;
  for (int n = 1; n <= 257; ++n) {
    for (std::size_t i = 0; i < 256; ++i) {
      if (size[i] == n) spec.values[at++] = static_cast<uint8_t>(i);
    }
  }
}

void assign_codes(const HuffmanSpec& spec, HuffmanCodes& codes) {
  uint32_t code = 0;
  std::size_t index = 0;
  for (std::size_t n = 1; n <= 16; ++n) {
    for (uint32_t i = 0; i < spec.counts[n]; ++i, ++index, ++code) {
      codes.code[spec.values[index]] = static_cast<uint16_t>(code);
      codes.length[spec.values[index]] = static_cast<uint8_t>(n);
    }
    code <<= 1;
  }
}

void SegmentWriter::table(int number, bool ac, const HuffmanSpec& spec) {
  std::size_t count = 0;
  for (const uint8_t n : spec.counts) count += n;
  marker(0xC4);
  word(static_cast<uint32_t>(19 + count));
  byte((ac ? 0x10U : 0U) | static_cast<uint32_t>(number));
  out.insert(out.end(), spec.counts.begin() + 1, spec.counts.end());
  out.insert(out.end(), spec.values.begin(), spec.values.begin() + static_cast<std::ptrdiff_t>(count));
}

}  // namespace vx::jpeg
