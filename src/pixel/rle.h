// RLE frames (PS3.5 annex G).
#pragma once

#include <cstdint>

#include "pixel/image.h"
#include "pixel/run.h"

namespace vx {

// The most bytes that a frame can take.
uint64_t rle_bound(const ImageAttributes& image);
// A whole frame, into a buffer of rle_bound bytes. False: no memory, or an image that has no such segments.
// The result does not depend on the number of threads.
bool rle_encode(const ImageAttributes& image, const uint8_t* frame, unsigned threads, uint8_t* out,
                uint32_t& size);

// A frame that arrives in pieces of any size. Each function gives null, or what is wrong.
class RleDecoder {
 public:
  // The frame is filled in place; `image` must outlive the decoder.
  const char* begin(const ImageAttributes& image, uint8_t* frame);
  const char* take(const uint8_t* data, uint32_t size);
  // The segments of a frame that may all be there, side by side. False: nothing has changed but what the
  // frame holds, and take() will tell what is wrong.
  bool take_whole(const uint8_t* data, uint32_t size, unsigned threads);
  bool done() const { return output_ == image_->FrameSize; }
  // Bytes that were passed over behind the last run of a segment and are no pad.
  uint64_t surplus() const { return surplus_; }
  const char* missing() const;

 private:
  const char* read_header(const uint8_t* header);
  void start_segment(uint32_t index);
  const char* runs(const uint8_t* data, uint32_t size, uint32_t& used);

  const ImageAttributes* image_ = nullptr;
  uint8_t* frame_ = nullptr;
  uint8_t* to_ = nullptr;  // of the next byte
  uint32_t stride_ = 1;
  uint32_t pixels_ = 0;  // bytes of each segment
  uint32_t segments_ = 0;
  uint32_t segment_ = 0;
  uint32_t segment_bytes_ = 0;
  uint32_t output_ = 0;
  uint32_t position_ = 0;  // in the RLE data
  uint64_t surplus_ = 0;
  uint32_t offsets_[16] = {};
  uint32_t split_ = 0;  // bytes of a header or run that is split over two inputs
  uint8_t split_buffer_[130] = {};
  bool header_read_ = false;
};

// One call of the compressor or decompressor; with `any` for every image that RLE can hold.
VX_STATUS rle_compress(const CodecCall& call, bool any);
VX_STATUS rle_decompress(const CodecCall& call, bool any);

}  // namespace vx
