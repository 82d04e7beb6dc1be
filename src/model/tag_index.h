// The ordered index of a large attribute table: blocks of sorted tags with the attributes beside them, and a
// sorted array of the first tag of each block. A lookup touches a handful of cache lines whatever the size.
#pragma once

#include <cstdint>

#include "model/object.h"

namespace vx {

// An index over an ascending chain, or null if there is no memory.
TagIndex* build_index(TagObj* first);
void free_index(TagIndex* index);
// A place in a table: the first attribute whose tag is not below the one that was looked for, or null, and
// whether it is that one.
struct TagPlace {
  TagObj* at;
  bool found;
};
inline TagPlace place_at(TagObj* at, uint32_t tag) {
  return {at, at != nullptr && at->Tag == tag};
}
// Does not look at the attribute's record, which may be far away, but calls it in.
TagPlace index_lower_bound(const TagIndex& index, uint32_t tag);
// Takes in an attribute whose tag the index lacks. False if there is no memory; the index is then incomplete.
bool index_insert(TagIndex& index, TagObj& attribute);
void index_erase(TagIndex& index, uint32_t tag);

}  // namespace vx
