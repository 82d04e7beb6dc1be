// The protocol between the library and a compression callback, in one place for both directions.
#pragma once

#include <cstdint>

#include "model/object.h"

namespace vx {

// The run of one frame. The callback may be null: present() is false then.
class CodecRun {
 public:
  CodecRun(MsgObj& object, void* callback)
      : object_(object), callback_(reinterpret_cast<VX_COMPRESSION_CALLBACK>(callback)) {}
  ~CodecRun() { abandon(); }
  CodecRun(const CodecRun&) = delete;
  CodecRun& operator=(const CodecRun&) = delete;

  bool present() const { return callback_ != nullptr; }
  bool running() const { return started_; }
  // One piece; `out` and `out_size` get what the codec gives. A failing codec is released.
  VX_STATUS call(const void* data, uint32_t size, bool last, const void*& out, uint32_t& out_size);
  // The release behind the last piece.
  VX_STATUS finish();
  // The release of a run that goes no further.
  void abandon();

 private:
  MsgObj& object_;
  VX_COMPRESSION_CALLBACK callback_;
  void* context_ = nullptr;
  void* last_data_ = nullptr;
  uint32_t last_size_ = 0;
  bool started_ = false;
};

}  // namespace vx
