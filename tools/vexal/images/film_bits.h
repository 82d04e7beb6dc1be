// Bit by bit through a head of a video stream.
#pragma once

#include <cstdint>
#include <string_view>

namespace vexal {

// Without the bytes that keep start codes out of it (ITU-T H.264 section 7.4.1). Behind the end come zeros.
class FilmBits {
 public:
  explicit FilmBits(std::string_view bytes) : bytes_(bytes) {}
  bool good() const { return good_; }

  uint64_t get(int count) {
    uint64_t value = 0;
    for (int i = 0; i < count; ++i) value = value << 1 | bit();
    return value;
  }
  void skip(uint64_t count) {
    for (uint64_t i = 0; i < count && good_; ++i) bit();
  }
  // Numbers of Exp-Golomb codes, unsigned and signed.
  uint64_t number() {
    int zeros = 0;
    while (good_ && bit() == 0 && zeros < 32) ++zeros;
    return (uint64_t{1} << zeros) - 1 + get(zeros);
  }
  int64_t difference() {
    const auto value = static_cast<int64_t>(number());
    return value % 2 != 0 ? (value + 1) / 2 : -value / 2;
  }

 private:
  uint64_t bit() {
    if (left_ == 0 && !load()) return 0;
    --left_;
    return byte_ >> left_ & 1;
  }
  bool load() {
    if (zeros_ == 2 && at_ < bytes_.size() && bytes_[at_] == 3) {
      ++at_;
      zeros_ = 0;
    }
    if (at_ >= bytes_.size()) return good_ = false;
    byte_ = static_cast<unsigned char>(bytes_[at_++]);
    zeros_ = byte_ == 0 ? zeros_ + 1 : 0;
    left_ = 8;
    return true;
  }

  std::string_view bytes_;
  std::size_t at_ = 0;
  unsigned byte_ = 0;
  int left_ = 0;
  int zeros_ = 0;
  bool good_ = true;
};

}  // namespace vexal
