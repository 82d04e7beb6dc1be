// Tables of modality, VOI, presentation and palette transformations (PS3.3 sections C.7.6.3.1.5, C.7.9.2,
// C.11.1).
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace vexal {

struct LookupTable {
  int32_t first = 0;
  uint32_t bits = 16;
  std::vector<uint16_t> entries;

  uint16_t at(int64_t value) const {
    const int64_t index = std::clamp<int64_t>(value - first, 0, static_cast<int64_t>(entries.size()) - 1);
    return entries[static_cast<std::size_t>(index)];
  }
  // An entry as a share of the largest.
  double level(int64_t value) const { return at(value) / static_cast<double>((1U << bits) - 1); }
  uint8_t byte(int64_t value) const {
    return static_cast<uint8_t>(bits > 8 ? at(value) >> (bits - 8) : at(value));
  }
  // Each of these: false where there is none, or not all of it.
  bool read(int32_t id, uint32_t descriptor, uint32_t data, bool signed_first);
  // The one that an item of a sequence holds.
  bool read_item(int32_t item, bool signed_first);
  // Of a palette, whose data may be segmented; colours are 0 to 2.
  bool read_palette(int32_t id, uint32_t colour, bool signed_first);
};

// The three tables of a palette.
struct Palette {
  LookupTable colours[3];
  bool read(int32_t id, bool signed_first);
};

}  // namespace vexal
