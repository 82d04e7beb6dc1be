// JPEG XL around JPEG streams (ISO/IEC 18181-2): the stream is coded anew, and comes back byte by byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vx::jpegxl {

// A JPEG stream of 8 bits with Huffman coding as a JPEG XL container; what stands behind its end is kept. It
// is taken back and compared before this succeeds. A CodecStatus.
int from_jpeg(const uint8_t* data, std::size_t size, unsigned threads, std::vector<uint8_t>& out);
// The JPEG stream that a container was made from. A CodecStatus; kCodecNoJpeg if it does not hold one.
int to_jpeg(const uint8_t* data, std::size_t size, std::vector<uint8_t>& out);

}  // namespace vx::jpegxl
