// The code streams of JPEG 2000, as far as they are read before the library behind the codec gets them.
#pragma once

#include "pixel/codec.h"

namespace vx::jpeg2000 {

struct StreamHead {
  CodecHead image;
  bool is_signed = false;
  uint64_t tiles = 1;
};

// Some writers put a whole file around the code stream.
void unwrap(const uint8_t*& data, std::size_t& size);
int read_size_segment(const uint8_t* data, std::size_t size, StreamHead& head);
// Whether the library decodes what the stream holds, or may be given it: kCodecExtensions, kCodecUnsupported,
// kCodecBadCode. kCodecDamaged: it may, and part of the image will be wrong.
int inspect(const uint8_t* data, std::size_t size);

}  // namespace vx::jpeg2000
