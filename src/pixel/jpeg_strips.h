// Where streams of JPEG can be cut, so that several threads decode them: at restart markers (ISO/IEC 10918-1
// section E.1.4), behind which nothing depends on what was before.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vx::jpeg {

// Where the restart intervals of a scan begin whose data lies there; the search ends at `most`. The marker
// that ends the scan, or 0.
uint8_t find_intervals(const uint8_t* at, const uint8_t* end, std::size_t most,
                       std::vector<const uint8_t*>& begins);

// Rows of an image that can be decoded as an image of their own.
struct Strip {
  const uint8_t* data;   // of its first interval
  uint32_t height = 0;   // that its head is to tell
  uint32_t skipped = 0;  // rows at its top that are there for what the next ones take from neighbours
  uint32_t first = 0;    // of the image, behind these
  uint32_t count = 0;    // rows that it gives
};
struct Strips {
  std::vector<uint8_t> head;  // of the stream, up to the data of its scan
  std::size_t height_at = 0;  // in the head
  std::vector<Strip> strips;
};

// Cuts a stream of the sequential process with 8 bits into up to `wanted` strips. False: it can not be cut,
// as its markers do not stand where they should, it has several scans, or it is small.
bool find_strips(const uint8_t* data, std::size_t size, unsigned wanted, Strips& found);

}  // namespace vx::jpeg
