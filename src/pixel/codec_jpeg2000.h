// What codecs of JPEG 2000's code streams share.
#pragma once

#include "pixel/codec.h"

namespace vx {

// Samples of more bits overflow in the libraries.
inline constexpr uint32_t kMostJpeg2000Bits = 24;

}  // namespace vx

namespace vx::jpeg2000 {

int query(const uint8_t* data, std::size_t size, CodecHead& head);
int decompress(const ImageAttributes& image, const DecodeSettings& settings, const uint8_t* data,
               std::size_t size, uint8_t* frame, CodecResult& result);
std::size_t find_end(const uint8_t* data, std::size_t size, std::size_t& from);
// Three samples that a colour transform may mix.
bool is_rgb(const ImageAttributes& image);
// Bits of a sample of the stream: those stored, or all where others bear something. 0: that would be lost.
uint32_t coded_precision(const ImageAttributes& image, bool lossless, const uint8_t* frame);

}  // namespace vx::jpeg2000
