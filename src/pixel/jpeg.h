// JPEG processes that no packaged library has (ISO/IEC 10918-1): lossless, process 14, of 2 to 16 bits, and
// the sequential DCT with 12 bits, process 4.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vx::jpeg {

// Scans of one progressive image that are taken.
inline constexpr int kMaxScans = 200;

// Each scan of a progressive stream costs the whole image, however few bytes it has.
bool has_too_many_scans(const uint8_t* data, std::size_t size);

// What goes wrong; 0 is success.
enum Fault : int {
  kNone = 0,
  kMemory = -1,
  kNotJpeg = -2,      // no start of image
  kBadMarker = -3,    // a segment that is cut or holds what it must not
  kUnsupported = -4,  // a process or a sampling that is not had here
  kBadTable = -5,     // a Huffman or quantisation table that cannot be, or is missing
  kBadCode = -6,      // a code that no table has
  kShort = -7,        // the data ends before the image
  kTooLarge = -8,     // sizes beyond the limits
};

struct Shape {
  uint32_t rows = 0;
  uint32_t columns = 0;
  uint32_t components = 0;
  uint32_t precision = 0;
  uint8_t process = 0;  // the low byte of the SOF marker: C0, C1, C2, C3, F7 for JPEG-LS
  bool subsampled = false;
  bool ends_well = false;  // set by a decode: the end of image stood where it should
};

// Reads the head up to the start of frame; also of processes that are not decoded here.
Fault query(const uint8_t* data, std::size_t size, Shape& shape);

// Decodes SOF3, or SOF1 and SOF2 with 12 bits, into samples of 8 bits (precision up to 8, unless `wide`) or
// 16 bits in the machine's order, components interleaved. `out` has room for rows x columns x components
// samples; the shape is what query() gave and the caller agreed to. Up to `threads` threads work on restart
// intervals of the lossless process.
Fault decode(const uint8_t* data, std::size_t size, Shape& shape, bool wide, void* out, unsigned threads = 1);

struct Source {
  uint32_t rows;
  uint32_t columns;
  uint32_t components;
  uint32_t precision;
  bool wide;  // samples of 16 bits
  const void* samples;
};
// Lossless, selection value 1, no point transform. Samples hold no bits beyond the precision.
Fault encode_lossless(const Source& source, std::vector<uint8_t>& out);
// Sequential DCT of 12 bits, grey; `factor` scales the tables: 32 takes them as they are, larger is coarser.
Fault encode_extended12(const Source& source, int factor, std::vector<uint8_t>& out);

// The size of the stream up to and with its end of image, or 0 if that is not there. `from` (in and out) lets
// a search go on where an earlier one ended.
std::size_t find_end(const uint8_t* data, std::size_t size, std::size_t& from);

}  // namespace vx::jpeg
