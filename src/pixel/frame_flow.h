// The way of pixels from one object to another: out of a source in pieces, cut into frames, through a
// compressor.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <vector>

#include "pixel/compression.h"
#include "pixel/encapsulated.h"
#include "pixel/image.h"

namespace vx {

// --- Frames of single bits ---

// In a native value they follow each other without a gap (PS3.5 section 8.1.1); compressed, and from a
// decompressor, each begins with a byte.
class BitFrames {
 public:
  static constexpr uint64_t kEndless = UINT64_MAX;
  // Bits of each frame that begins with a byte, in what comes and in what goes.
  BitFrames(uint64_t in, uint64_t out) : in_(in), out_(out) {}
  // The bytes that are full after what came, with `last` all of them; valid until the next call.
  const std::vector<uint8_t>& add(const void* data, uint32_t size, bool last);

 private:
  void give();

  const uint64_t in_;
  const uint64_t out_;
  uint64_t in_left_ = in_;
  uint64_t out_left_ = out_;
  uint32_t held_ = 0;
  uint32_t held_bits_ = 0;
  std::vector<uint8_t> bytes_;
};

// Bits of a frame that does not end with a byte, or 0.
uint64_t uneven_bits(MsgObj& object);

// --- Frames into a target ---

// Cuts what comes into frames, compresses each, and appends it to the target's Pixel Data.
class FrameFeeder {
 public:
  FrameFeeder(MsgObj& target, TagObj& attribute)
      : target_(target),
        attribute_(attribute),
        codec_(target, target.Compressor),
        frame_count_(frame_count(target)) {}

  VX_STATUS begin();
  // `last` comes with the last piece, which may be empty.
  VX_STATUS feed(const void* data, uint32_t size, bool last);

 private:
  VX_STATUS require(uint32_t tag, uint32_t& value, const char* text);
  VX_STATUS measure_frame();
  VX_STATUS read_samples(std::string_view photometric, uint32_t& samples);
  void start_frame();
  VX_STATUS pass_on(const void* data, uint32_t size, bool last);
  VX_STATUS end_frame();
  VX_STATUS finish();

  MsgObj& target_;
  TagObj& attribute_;
  CodecRun codec_;
  const uint32_t frame_count_;
  uint32_t frames_done_ = 0;
  uint64_t extra_bytes_ = 0;
  bool stored_ = false;
};

// --- Pixels out of a source ---

// Takes pieces; `last` comes with the last one, which may be empty.
template <typename Take>
struct Drain {
  Take take;
  uint64_t frame_size = 0;  // 0: no frames
  uint64_t in_frame = 0;
  VX_STATUS status = kOk;

  // A decompressor pads a frame of an odd number of bytes: the pad is not part of the image.
  static VX_STATUS encapsulated(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t,
                                int32_t last) {
    auto& drain = *static_cast<Drain*>(user);
    if (last != 0) {
      drain.in_frame = 0;
      return kOk;
    }
    const auto part = static_cast<uint32_t>(std::min<uint64_t>(size, drain.frame_size - drain.in_frame));
    drain.in_frame += part;
    return drain.status = drain.take(data, part, false);
  }
  static VX_STATUS plain(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t, int32_t last) {
    auto& drain = *static_cast<Drain*>(user);
    return drain.status = drain.take(data, size, last != 0);
  }
};

template <typename Take>
VX_STATUS read_plain(MsgObj& source, TagObj& attribute, Take take) {
  Drain<Take> drain{take};
  const VX_STATUS status = value_to_function(source, attribute, &drain, &Drain<Take>::plain);
  return drain.status != kOk ? drain.status : status;
}

template <typename Take>
VX_STATUS read_frames(MsgObj& source, TagObj& attribute, bool to_rgb, Take take) {
  Drain<Take> drain{take};
  if (VX_STATUS status = frame_bytes(source, drain.frame_size); status != kOk) return status;
  if (to_rgb) drain.frame_size = drain.frame_size / 2 * 3;
  OFFSET_TABLE_CONTEXT* context = new_encapsulation(source, false);
  if (context == nullptr) return VX_SYSTEM_ERROR;
  context->ToRgb = to_rgb;
  VX_STATUS status = VX_END_OF_FRAME;
  for (bool next = false; status == VX_END_OF_FRAME; next = true) {
    status = get_encapsulated(source, attribute, &drain, &Drain<Take>::encapsulated, next);
  }
  if (context = encapsulation(source); context != nullptr) context->ToRgb = false;
  if (drain.status != kOk) return drain.status;
  return status == kOk ? take(nullptr, 0, true) : status;
}

}  // namespace vx
