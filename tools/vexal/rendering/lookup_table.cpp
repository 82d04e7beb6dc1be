#include "lookup_table.h"

#include <cmath>
#include <cstring>

#include "base/object_values.h"
#include "base/tags.h"

namespace vexal {
namespace {

uint16_t load16(const char* at) {
  uint16_t value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

// Segments of a palette's data into entries, at most `most` of them (PS3.3 section C.7.9.2): discrete ones, a
// line from the last entry to an end, or a copy of earlier segments.
bool expand_segments(const std::string& bytes, std::size_t width, std::size_t most,
                     std::vector<uint16_t>& entries) {
  enum { kDiscrete, kLinear, kIndirect };
  const auto word = [&](std::size_t at) {
    return width == 2 ? load16(bytes.data() + at) : static_cast<uint16_t>(static_cast<uint8_t>(bytes[at]));
  };
  entries.clear();
  // Segments from `at` on; a copy must not hold a copy.
  const auto run = [&](auto& self, std::size_t at, std::size_t segments, bool copying) -> bool {
    for (; segments != 0 && entries.size() < most && at + 3 * width <= bytes.size(); --segments) {
      const uint16_t kind = word(at);
      const std::size_t count = word(at + width);
      if (count == 0) return false;  // each segment has an entry at least, so that their number is bounded
      at += 2 * width;
      if (kind == kDiscrete) {
        if (count * width > bytes.size() - at || count > most - entries.size()) return false;
        for (std::size_t i = 0; i < count; ++i, at += width) entries.push_back(word(at));
      } else if (kind == kLinear) {
        if (entries.empty() || count > most - entries.size()) return false;
        const double from = entries.back();
        const double step = (word(at) - from) / static_cast<double>(count);
        for (std::size_t i = 1; i <= count; ++i)
          entries.push_back(static_cast<uint16_t>(std::lround(from + step * static_cast<double>(i))));
        at += width;
      } else if (kind == kIndirect && !copying) {
        const std::size_t words = 4 / width;  // of the offset, the least significant first
        if (words * width > bytes.size() - at) return false;
        std::size_t target = 0;
        for (std::size_t i = 0; i < words; ++i)
          target |= std::size_t{word(at + i * width)} << (8 * width * i);
        at += words * width;
        if (target >= at || !self(self, target, count, true)) return false;
      } else {
        return false;
      }
    }
    return !copying || segments == 0;
  };
  return run(run, 0, SIZE_MAX, false);
}

}  // namespace

bool LookupTable::read(int32_t id, uint32_t descriptor, uint32_t data, bool signed_first) {
  const std::vector<int32_t> words = integers_of(id, descriptor);
  if (words.size() < 3) return false;
  const std::size_t count = (words[0] & 0xFFFF) == 0 ? 65536 : static_cast<std::size_t>(words[0] & 0xFFFF);
  first = signed_first || words[1] < 0 ? static_cast<int16_t>(words[1]) : words[1] & 0xFFFF;
  bits = static_cast<uint32_t>(words[2]);
  if (bits < 1 || bits > 16) bits = 16;
  const std::string bytes = bytes_of(id, data);
  entries.assign(count, 0);
  if (bytes.size() >= 2 * count) {
    for (std::size_t i = 0; i < count; ++i) entries[i] = load16(bytes.data() + 2 * i);
  } else if (bytes.size() >= count) {
    for (std::size_t i = 0; i < count; ++i) entries[i] = static_cast<uint8_t>(bytes[i]);
    bits = 8;
  } else {
    return false;
  }
  return true;
}

bool LookupTable::read_item(int32_t item, bool signed_first) {
  return item >= 0 && read(item, tags::kLUTDescriptor, tags::kLUTData, signed_first);
}

bool LookupTable::read_palette(int32_t id, uint32_t colour, bool signed_first) {
  if (read(id, tags::kRedPaletteColorLookupTableDescriptor + colour,
           tags::kRedPaletteColorLookupTableData + colour, signed_first))
    return true;
  const std::string bytes = bytes_of(id, tags::kSegmentedRedPaletteColorLookupTableData + colour);
  if (bytes.empty() || entries.empty()) return false;  // the descriptor has given the number of entries
  const std::size_t count = entries.size();
  const bool expanded = expand_segments(bytes, bits <= 8 ? 1 : 2, count, entries);
  return expanded && entries.size() == count;
}

bool Palette::read(int32_t id, bool signed_first) {
  for (uint32_t i = 0; i < 3; ++i) {
    if (!colours[i].read_palette(id, i, signed_first)) return false;
  }
  return true;
}

}  // namespace vexal
