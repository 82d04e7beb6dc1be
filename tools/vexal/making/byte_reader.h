// Numbers and marks of a file, one behind the other.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "files/files.h"

namespace vexal {

// Reads on behind the end give zeros, and good() tells.
class ByteReader {
 public:
  ByteReader(const FileSource& file, uint64_t begin, uint64_t end) : file_(file), at_(begin), end_(end) {}
  uint64_t at() const { return at_; }
  uint64_t left() const { return at_ < end_ ? end_ - at_ : 0; }
  bool good() const { return good_; }
  void go_to(uint64_t at) { at_ = at; }
  void skip(uint64_t count) { at_ += std::min(count, UINT64_MAX - at_); }

  uint32_t byte() {
    if (at_ - block_at_ >= have_ && !load()) return 0;
    return static_cast<unsigned char>(block_[at_++ - block_at_]);
  }
  // Of at most 8 bytes.
  uint64_t big(int bytes) {
    uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) value = value << 8 | byte();
    return value;
  }
  uint64_t little(int bytes) {
    uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) value |= static_cast<uint64_t>(byte()) << (8 * i);
    return value;
  }
  std::string text(std::size_t length) {
    std::string bytes(static_cast<std::size_t>(std::min<uint64_t>(length, left())), '\0');
    for (char& c : bytes) c = static_cast<char>(byte());
    if (bytes.size() < length) good_ = false;
    return bytes;
  }
  // Onto the next such byte; false if there is none.
  bool find(unsigned char wanted) {
    while (at_ - block_at_ < have_ || load()) {
      const char* from = block_ + (at_ - block_at_);
      const void* found = std::memchr(from, wanted, static_cast<std::size_t>(have_ - (at_ - block_at_)));
      if (found != nullptr) {
        at_ += static_cast<uint64_t>(static_cast<const char*>(found) - from);
        return true;
      }
      at_ = block_at_ + have_;
    }
    return false;
  }

 private:
  bool load() {
    const auto size = static_cast<std::size_t>(std::min<uint64_t>(sizeof block_, left()));
    const int64_t got = size == 0 ? 0 : file_.read_at(at_, block_, size);
    block_at_ = at_;
    have_ = got > 0 ? static_cast<uint64_t>(got) : 0;
    if (have_ == 0) good_ = false;
    return have_ != 0;
  }

  const FileSource& file_;
  uint64_t at_;
  uint64_t end_;
  uint64_t block_at_ = 0;
  uint64_t have_ = 0;
  bool good_ = true;
  char block_[16384];
};

}  // namespace vexal
