// The bytes of an encode: a work buffer in front of the caller's output function, deflated where the syntax
// asks for it. What goes out is always of even length, and exactly one call is the last.
#pragma once

#include <zlib.h>

#include <cstddef>
#include <cstdint>

#include "codec/writer.h"

namespace vx {

class StreamOutput {
 public:
  explicit StreamOutput(const StreamWriter& writer) : writer_(writer) {}
  ~StreamOutput();
  StreamOutput(const StreamOutput&) = delete;
  StreamOutput& operator=(const StreamOutput&) = delete;

  // VX_SYSTEM_ERROR without memory or output function.
  VX_STATUS open();
  // Room for n bytes (at most kMinCapacity) in the buffer; the caller fills it and tells how much with
  // used().
  VX_STATUS room(std::size_t n, uint8_t*& bytes) {
    if (capacity_ - used_ < n) {
      if (VX_STATUS status = flush(false, 0); status != kOk) return status;
    }
    bytes = buffer_ + used_;
    return kOk;
  }
  std::size_t free_room() const { return capacity_ - used_; }
  void used(std::size_t n) { used_ += n; }
  // Copies bytes through the buffer.
  VX_STATUS put(const void* data, std::size_t size);
  // Hands bytes to the output function where they lie, behind what is in the buffer.
  VX_STATUS direct(const void* data, std::size_t size);
  // What follows is deflated.
  VX_STATUS start_deflate();
  // The last flush.
  VX_STATUS finish();

  static constexpr std::size_t kMinCapacity = 64;

 private:
  VX_STATUS flush(bool last, uint32_t follows);
  VX_STATUS emit(const uint8_t* data, std::size_t size, bool last, uint32_t follows);
  VX_STATUS call(const uint8_t* data, std::size_t size, bool last, uint32_t follows);
  VX_STATUS deflate_bytes(const uint8_t* data, std::size_t size, int mode);
  VX_STATUS hand_on_deflated(bool last);
  VX_STATUS end_deflate();

  const StreamWriter& writer_;
  uint8_t* buffer_ = nullptr;
  std::size_t capacity_ = 0;
  std::size_t used_ = 0;
  bool is_first_ = true;

  z_stream* zstream_ = nullptr;
  uint8_t* deflated_ = nullptr;    // the output of zlib
  std::size_t deflated_used_ = 0;  // with the byte that an odd output left behind
  uint64_t deflated_total_ = 0;
};

}  // namespace vx
