// The bytes of a decode: blocks of the caller's input function, inflated where the syntax asks for it, seen
// through a window in which any number of bytes can be brought together.
#pragma once

#include <zlib.h>

#include <cstddef>
#include <cstdint>

#include "codec/reader.h"

namespace vx {

class StreamInput {
 public:
  explicit StreamInput(const ReadRequest& request) : request_(request) {}
  // Bytes that lie ready; there is no input function.
  StreamInput(const ReadRequest& request, const void* bytes, std::size_t length);
  ~StreamInput();
  StreamInput(const StreamInput&) = delete;
  StreamInput& operator=(const StreamInput&) = delete;

  // A pointer to the next n bytes, which stay where they are. VX_END_OF_DATA with what there is in the
  // window; the failures of the input function; VX_SYSTEM_ERROR, VX_ZLIB_ERROR. The pointer lives until the
  // next call.
  VX_STATUS need(std::size_t n, const uint8_t*& bytes) {
    if (available() < n) {
      if (VX_STATUS status = gather(n); status != kOk) return status;
    }
    bytes = cursor_;
    return kOk;
  }
  VX_STATUS take(std::size_t n, const uint8_t*& bytes) {
    const VX_STATUS status = need(n, bytes);
    if (status == kOk) cursor_ += n;
    return status;
  }
  // Brings in a block unless there are bytes at hand already.
  VX_STATUS need_any() { return cursor_ != end_ ? kOk : refill(); }
  const uint8_t* bytes() const { return cursor_; }
  std::size_t available() const { return static_cast<std::size_t>(end_ - cursor_); }
  void advance(std::size_t n) { cursor_ += n; }
  // Passes over n bytes without bringing them together.
  VX_STATUS discard(uint64_t n);
  // Offset in the stream (inflated, once that has begun) of the next byte.
  uint64_t offset() const { return end_offset_ - available(); }

  // From the next byte on the stream is deflated.
  VX_STATUS start_inflate();
  bool inflating() const { return zstream_ != nullptr; }
  // A file may turn out to be deflated only after its first blocks: until then odd blocks are noted, not
  // refused. The answer is VX_CALLBACK_DATA_SIZE_UNEVEN if one was.
  void tolerate_odd_blocks(bool on) { tolerate_odd_ = on; }
  VX_STATUS judge_odd_blocks() const { return odd_seen_ ? VX_CALLBACK_DATA_SIZE_UNEVEN : kOk; }
  // Takes down what has been taken and is not used up. VX_SYSTEM_ERROR.
  VX_STATUS save(DecodeRest& rest);
  // Goes on from there; what `rest` holds is taken over.
  VX_STATUS resume(DecodeRest& rest);
  // What is at hand is the last of the stream.
  bool at_last() const {
    return rest_.size == 0 && (zstream_ != nullptr ? stream_ended_ : is_last_ && raw_[0].size == 0);
  }
  // Ends inflate, if it was started. VX_ZLIB_ERROR.
  VX_STATUS finish();

 private:
  struct Span {
    const uint8_t* data = nullptr;
    std::size_t size = 0;
  };
  VX_STATUS gather(std::size_t n);
  VX_STATUS refill();
  VX_STATUS next_block(Span& block);
  VX_STATUS read_block(Span& block);
  VX_STATUS call_input(uint32_t& size, void*& data, int32_t& last);
  VX_STATUS inflate_block(Span& block);
  VX_STATUS more_deflated();
  VX_STATUS check_stream_end();
  bool grow_scratch(std::size_t n);

  const ReadRequest& request_;
  const uint8_t* cursor_ = nullptr;  // the window
  const uint8_t* end_ = nullptr;
  uint64_t end_offset_ = 0;  // offset in the stream of end_
  Span rest_;                // what follows the window in the block at hand
  uint8_t* scratch_ = nullptr;
  std::size_t scratch_size_ = 0;
  bool is_first_ = true;
  bool is_last_ = false;
  bool tolerate_odd_ = false;
  bool odd_seen_ = false;

  z_stream* zstream_ = nullptr;
  uint8_t* output_ = nullptr;
  std::size_t output_size_ = 0;
  Span raw_[2];  // deflated bytes that were read ahead as plain ones
  uint8_t carried_[16];
  uint8_t* resumed_[2] = {nullptr, nullptr};  // owned; what was taken over
  bool output_full_ = false;
  bool stream_ended_ = false;
  VX_STATUS inflate_status_ = kOk;  // told once the bytes before the fault are used up
};

}  // namespace vx
