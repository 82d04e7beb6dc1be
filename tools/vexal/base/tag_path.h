// Paths to attributes, also inside sequences: "ReferencedSeriesSequence[0].SeriesInstanceUID".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "args.h"
#include "vexalkit.h"

namespace vexal {

struct PathStep {
  static constexpr int kNoIndex = -1;
  static constexpr int kEveryItem = -2;  // [*]
  static constexpr int kNewItem = -3;    // [+]
  uint32_t tag = 0;                      // of a private attribute: group and low byte of the element
  std::string creator;                   // not empty: a private attribute, written {CREATOR}gggg,ee
  std::string vr;                        // of a private attribute to be added: {CREATOR}gggg,ee:VR
  int index = kNoIndex;
};

// An error text, empty on success. The last step may have an index too, naming an item.
std::string parse_path(std::string_view text, std::vector<PathStep>& path);

// Those that an option names, one each time it is given. False after a line on standard error.
bool read_paths(const Args& args, const char* option, std::vector<std::vector<PathStep>>& paths);

struct Place {
  int32_t object = -1;
  uint32_t tag = 0;
};
// The attributes that a path names in an object, there or not. With `create`, missing sequences and items on
// the way are made. An error text, empty on success.
std::string resolve_path(int32_t object, const std::vector<PathStep>& path, bool create,
                         std::vector<Place>& places);

// The sequences of an object, in order.
std::vector<uint32_t> sequences_of(int32_t object);
// The IDs of the items of a sequence, in order.
std::vector<int32_t> sequence_items(int32_t object, uint32_t tag);

}  // namespace vexal
