// The ordered index of a large attribute table: blocks of sorted tags with the attributes beside them, and a
// sorted array of the first tag of each block. A lookup touches a handful of cache lines whatever the size.
#pragma once

#include <cstdint>

#include "model/object.h"

namespace vx {

// An index over an ascending chain, or null if there is no memory.
TagIndex* build_index(TagObj* first);
void free_index(TagIndex* index);
// The first attribute whose tag is not below `tag`, or null.
TagObj* index_lower_bound(const TagIndex& index, uint32_t tag);
// Takes in an attribute whose tag the index lacks. False if there is no memory; the index is then incomplete.
bool index_insert(TagIndex& index, TagObj& attribute);
void index_erase(TagIndex& index, uint32_t tag);

}  // namespace vx
