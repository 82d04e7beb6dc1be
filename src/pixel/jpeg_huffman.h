// Huffman codes and the bits that they stand in; inside the JPEG codec only.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "pixel/jpeg.h"

namespace vx::jpeg {

// A table as its segment gives it: the number of codes of each length, then their values.
struct HuffmanSpec {
  std::array<uint8_t, 17> counts{};
  std::array<uint8_t, 256> values{};
};

class HuffmanDecoder {
 public:
  // False for counts that no prefix code has.
  bool build(const HuffmanSpec& spec);
  bool valid() const { return valid_; }

  static constexpr int kLookBits = 9;
  struct Entry {
    uint8_t length;  // 0: the code is longer
    uint8_t value;
  };
  Entry look(uint32_t bits) const { return look_[bits]; }
  // For a code beyond the table: `bits` are the next 16. False if no code begins so.
  bool search(uint32_t bits, int& length, uint8_t& value) const {
    for (int n = kLookBits + 1; n <= 16; ++n) {
      const uint32_t code = bits >> (16 - n);
      if (code < limit_[static_cast<std::size_t>(n)]) {
        value = values_[(offset_[static_cast<std::size_t>(n)] + code) & 0xFFU];
        length = n;
        return true;
      }
    }
    return false;
  }

 private:
  std::array<Entry, 1U << kLookBits> look_{};
  std::array<uint32_t, 17> limit_{};   // one above the last code of the length
  std::array<uint32_t, 17> offset_{};  // of the values of the length, less their first code
  std::array<uint8_t, 256> values_{};
  bool valid_ = false;
};

// The entropy-coded bits of a scan: stuffed zeros go, a marker ends them, and zeros follow then.
class BitReader {
 public:
  BitReader(const uint8_t* data, std::size_t size) : cursor_(data), end_(data + size) {}

  // At least 32 bits are at hand after this; the ones behind the data are zeros.
  void fill() {
    if (count_ > 32) return;
    if (end_ - cursor_ >= 8) {
      uint64_t next;
      std::memcpy(&next, cursor_, sizeof next);
      next = __builtin_bswap64(next);
      if (((~next - 0x0101010101010101U) & next & 0x8080808080808080U) == 0) [[likely]] {  // no byte is FF
        const int bytes = (64 - count_) >> 3;
        const int total = count_ + 8 * bytes;
        bits_ |= (next >> count_) >> (64 - total) << (64 - total);
        cursor_ += bytes;
        count_ = total;
        return;
      }
    }
    while (count_ <= 56) {
      if (cursor_ == end_) return pad();
      const uint8_t byte = *cursor_;
      if (byte == 0xFF) {
        if (cursor_ + 1 == end_ || cursor_[1] != 0) return pad();
        ++cursor_;
      }
      ++cursor_;
      bits_ |= static_cast<uint64_t>(byte) << (56 - count_);
      count_ += 8;
    }
  }
  uint32_t peek(int n) const { return static_cast<uint32_t>(bits_ >> (64 - n)); }
  void skip(int n) {
    bits_ <<= n;
    count_ -= n;
  }
  uint32_t take(int n) {
    if (n == 0) return 0;
    const uint32_t value = peek(n);
    skip(n);
    return value;
  }
  // One code of a table, after fill(). False if there is none.
  bool code(const HuffmanDecoder& table, uint8_t& value) {
    const HuffmanDecoder::Entry entry = table.look(peek(HuffmanDecoder::kLookBits));
    if (entry.length != 0) [[likely]] {
      skip(entry.length);
      value = entry.value;
      return true;
    }
    int length = 0;
    if (!table.search(peek(16), length, value)) return false;
    skip(length);
    return true;
  }
  // More bits were taken than there were.
  bool overrun() const { return padded_ > 0 && count_ < padded_; }
  // Passes over what is left of the interval; true if a restart marker follows, which is taken.
  bool restart() {
    bits_ = 0;
    count_ = 0;
    padded_ = 0;
    while (cursor_ + 1 < end_) {
      if (cursor_[0] == 0xFF && cursor_[1] >= 0xD0 && cursor_[1] <= 0xD7) {
        cursor_ += 2;
        return true;
      }
      if (cursor_[0] == 0xFF && cursor_[1] != 0 && cursor_[1] != 0xFF) return false;
      ++cursor_;
    }
    return false;
  }
  // Where the scan ended: at a marker or the end of the data.
  const uint8_t* position() const { return cursor_; }

 private:
  void pad() {
    padded_ += 64 - count_;
    count_ = 64;
  }
  const uint8_t* cursor_;
  const uint8_t* end_;
  uint64_t bits_ = 0;  // from the top
  int count_ = 0;
  int padded_ = 0;
};

// The n bits that follow a category n, as a difference (F.2.2.1).
inline int32_t extend(uint32_t bits, int n) {
  return n != 0 && bits < (1U << (n - 1)) ? static_cast<int32_t>(bits) - ((1 << n) - 1)
                                          : static_cast<int32_t>(bits);
}

// Counts symbols, makes the best table of codes up to 16 bits (K.2) and gives the codes.
struct HuffmanCodes {
  std::array<uint16_t, 256> code{};
  std::array<uint8_t, 256> length{};
};
void best_table(const std::array<uint32_t, 256>& counts, HuffmanSpec& spec);
void assign_codes(const HuffmanSpec& spec, HuffmanCodes& codes);

class BitWriter {
 public:
  explicit BitWriter(std::vector<uint8_t>& out) : out_(out) {}
  void put(uint32_t bits, int n) {
    bits_ = (bits_ << n) | bits;
    count_ += n;
    while (count_ >= 8) {
      count_ -= 8;
      const auto byte = static_cast<uint8_t>(bits_ >> count_);
      out_.push_back(byte);
      if (byte == 0xFF) out_.push_back(0);
    }
  }
  // Fills the last byte with ones.
  void flush() {
    if (count_ != 0) put((1U << (8 - count_)) - 1, 8 - count_);
  }

 private:
  std::vector<uint8_t>& out_;
  uint64_t bits_ = 0;
  int count_ = 0;
};

// Segments of the head.
struct SegmentWriter {
  std::vector<uint8_t>& out;
  void byte(uint32_t v) { out.push_back(static_cast<uint8_t>(v)); }
  void word(uint32_t v) {
    byte(v >> 8);
    byte(v);
  }
  void marker(uint8_t code) {
    byte(0xFF);
    byte(code);
  }
  void table(int number, bool ac, const HuffmanSpec& spec);
};

}  // namespace vx::jpeg
