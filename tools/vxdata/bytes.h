#pragma once
// Big-endian files: built in memory, written in one step, read with every length checked.

#include <cstdint>
#include <string>
#include <string_view>

namespace vxdata {

class Writer {
 public:
  void u8(unsigned value) { bytes_ += static_cast<char>(value & 0xFF); }
  void u16(unsigned value) {
    u8(value >> 8);
    u8(value);
  }
  void u32(uint32_t value) {
    u16(value >> 16);
    u16(value & 0xFFFF);
  }
  void text(std::string_view value) { bytes_ += value; }
  void fill(size_t count) { bytes_.append(count, '\0'); }
  uint32_t size() const { return static_cast<uint32_t>(bytes_.size()); }
  const std::string& bytes() const { return bytes_; }

 private:
  std::string bytes_;
};

// Reading past the end sets the failed flag and gives zeros, so that a caller may check once a record.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : bytes_(bytes) {}
  bool failed() const { return failed_; }
  bool at_end() const { return at_ == bytes_.size(); }
  size_t position() const { return at_; }
  void seek(size_t position) {
    if (position > bytes_.size()) {
      failed_ = true;
      position = bytes_.size();
    }
    at_ = position;
  }
  unsigned u8() { return static_cast<unsigned char>(take(1).empty() ? '\0' : bytes_[at_ - 1]); }
  unsigned u16() {
    const unsigned high = u8();
    return high << 8 | u8();
  }
  uint32_t u32() {
    const uint32_t high = u16();
    return high << 16 | u16();
  }
  std::string_view take(size_t count) {
    if (count > bytes_.size() - at_) {
      failed_ = true;
      at_ = bytes_.size();
      return {};
    }
    at_ += count;
    return bytes_.substr(at_ - count, count);
  }
  std::string_view up_to_nul() {
    const size_t end = bytes_.find('\0', at_);
    if (end == std::string_view::npos) {
      failed_ = true;
      return {};
    }
    const std::string_view text = bytes_.substr(at_, end - at_);
    at_ = end + 1;
    return text;
  }

 private:
  std::string_view bytes_;
  size_t at_ = 0;
  bool failed_ = false;
};

std::string read_file(const std::string& path);

// Writes beside the target and renames, so that a reader never meets half a file.
void write_file(const std::string& path, std::string_view bytes);

}  // namespace vxdata
