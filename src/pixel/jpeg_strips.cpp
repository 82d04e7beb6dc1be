#include "pixel/jpeg_strips.h"

#include <algorithm>
#include <cstring>
#include <numeric>

#include "frame/byte_order.h"

namespace vx::jpeg {
namespace {

// What the head says of how the data is laid out.
struct Layout {
  uint32_t rows = 0;
  uint32_t columns = 0;
  uint32_t components = 0;
  uint32_t widest = 1;  // sampling factors
  uint32_t highest = 1;
  bool neighbours = false;  // colour at fewer rows than grey: rows between are made of two
  uint32_t interval = 0;
  std::size_t height_at = 0;
  std::size_t data_at = 0;
};

bool read_frame(const uint8_t* p, std::size_t n, Layout& layout) {
  if (layout.components != 0 || n < 6 || p[0] != 8) return false;
  layout.rows = load16(p + 1, true);
  layout.columns = load16(p + 3, true);
  layout.components = p[5];
  if (layout.rows == 0 || layout.columns == 0 || (p[5] != 1 && p[5] != 3) || n < 6 + 3U * p[5]) return false;
  if (layout.components == 1) return true;  // one component is never interleaved, whatever its factors
  uint32_t lowest = 4;
  for (uint32_t i = 0; i < layout.components; ++i) {
    const uint32_t across = p[7 + 3 * i] >> 4;
    const uint32_t down = p[7 + 3 * i] & 15;
    if (across < 1 || across > 4 || down < 1 || down > 4) return false;
    layout.widest = std::max(layout.widest, across);
    layout.highest = std::max(layout.highest, down);
    lowest = std::min(lowest, down);
  }
  layout.neighbours = lowest != layout.highest;
  return true;
}

// Up to the data of the first scan.
bool read_layout(const uint8_t* data, std::size_t size, Layout& layout) {
  if (size < 2 || load16(data, true) != 0xFFD8) return false;
  for (std::size_t at = 2; size - at >= 4;) {
    const uint8_t marker = data[at + 1];
    const std::size_t length = load16(data + at + 2, true);
    if (data[at] != 0xFF || marker < 0xC0 || (marker >= 0xD0 && marker <= 0xD9) || length < 2 ||
        length > size - at - 2)
      return false;
    const uint8_t* p = data + at + 4;
    const std::size_t n = length - 2;
    if (marker == 0xC0 || marker == 0xC1) {
      if (!read_frame(p, n, layout)) return false;
      layout.height_at = at + 5;
    } else if (marker > 0xC1 && marker <= 0xCF && marker != 0xC4) {
      return false;  // of another process
    } else if (marker == 0xDD) {
      if (n < 2) return false;
      layout.interval = load16(p, true);
    }
    at += 2 + length;
    if (marker != 0xDA) continue;
    layout.data_at = at;
    return n >= 1 && layout.components != 0 && p[0] == layout.components;
  }
  return false;
}

}  // namespace

uint8_t find_intervals(const uint8_t* at, const uint8_t* end, std::size_t most,
                       std::vector<const uint8_t*>& begins) {
  begins.assign(1, at);
  while (end - at >= 2) {
    at = static_cast<const uint8_t*>(std::memchr(at, 0xFF, static_cast<std::size_t>(end - at) - 1));
    if (at == nullptr) return 0;
    const uint8_t code = at[1];
    at += code == 0xFF ? 1 : 2;
    if (code == 0 || code == 0xFF) continue;
    if (code < 0xD0 || code > 0xD7) return code;
    if (begins.size() == most) return 0;
    begins.push_back(at);
  }
  return 0;
}

bool find_strips(const uint8_t* data, std::size_t size, unsigned wanted, Strips& found) {
  Layout layout;
  if (wanted < 2 || !read_layout(data, size, layout) || layout.interval == 0) return false;
  const uint32_t unit_height = 8 * layout.highest;
  const uint32_t across = (layout.columns + 8 * layout.widest - 1) / (8 * layout.widest);
  const uint32_t down = (layout.rows + unit_height - 1) / unit_height;
  // The numbers of markers go round from 0 to 7: where they are back at 0 another image may begin.
  const uint64_t round = 8 * uint64_t{layout.interval};
  const uint64_t step = round / std::gcd<uint64_t>(round, across);
  uint64_t strip = ((down + wanted - 1) / wanted + step - 1) / step * step;
  if (layout.neighbours) strip = std::max(strip, 4 * step);  // some rows are decoded twice
  if (strip >= down) return false;
  std::vector<const uint8_t*> begins;
  const uint64_t units = uint64_t{across} * down;
  const uint64_t intervals = (units + layout.interval - 1) / layout.interval;
  if (find_intervals(data + layout.data_at, data + size, intervals + 1, begins) != 0xD9 ||
      begins.size() != intervals)
    return false;
  for (std::size_t i = 1; i < begins.size(); ++i) {
    if (begins[i][-1] != 0xD0 + (i - 1) % 8) return false;
  }
  found.head.assign(data, data + layout.data_at);
  found.height_at = layout.height_at;
  found.strips.clear();
  for (uint64_t top = 0; top < down; top += strip) {
    const uint64_t from = layout.neighbours && top != 0 ? top - step : top;
    const uint64_t bottom = std::min<uint64_t>(top + strip, down);
    const auto row_of = [&](uint64_t unit) {
      return static_cast<uint32_t>(std::min<uint64_t>(unit * unit_height, layout.rows));
    };
    const uint32_t first = row_of(top);
    found.strips.push_back({begins[from * across / layout.interval],
                            row_of(layout.neighbours ? bottom + 1 : bottom) - row_of(from),
                            first - row_of(from), first, row_of(bottom) - first});
  }
  return true;
}

}  // namespace vx::jpeg
