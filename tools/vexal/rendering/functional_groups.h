// The functional groups of an object with many frames.
#pragma once

#include <cstdint>
#include <vector>

namespace vexal {

// The frames' parts of functional groups (PS3.3 section C.7.6.16), found once.
class FunctionalGroups {
 public:
  explicit FunctionalGroups(int32_t object);
  // The item that holds a group of a frame (from 0), its own or that of all; -1 if there is none.
  int32_t item(uint32_t frame, uint32_t group) const;
  // All items of a group that may have several.
  std::vector<int32_t> items(uint32_t frame, uint32_t group) const;

 private:
  std::vector<int32_t> own_;
  std::vector<int32_t> shared_;
};

}  // namespace vexal
