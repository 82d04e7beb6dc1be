// The attribute table of an object: an ascending chain with a search cursor, and beside it an ordered index
// once the table is large, so that a search far from the cursor costs the logarithm of the table's size.
#pragma once

#include <cstdint>

#include "model/object.h"

namespace vx {

// The attribute, or null. Takes the object's semaphore, moves the search cursor.
TagObj* find_tag(MsgObj& object, uint32_t tag);
// The first attribute whose tag is not below `tag`, or null. The search cursor is left alone.
TagObj* lower_bound_tag(MsgObj& object, uint32_t tag);
// The single road by which attributes enter a table (VXI_newTag). VX_INVALID_VR_CODE, VX_TAG_ALREADY_EXISTS.
// `out` (may be null) gets the attribute, also the one that exists already.
VX_STATUS new_tag(MsgObj& object, uint32_t tag, int32_t vr, uint16_t vm_low, uint16_t vm_high, TagObj** out);
// Finds the attribute or adds it from a repeating group's base or the dictionary, unless a template closes
// the table. `creator` is the private code, empty for none. VX_INVALID_TAG.
VX_STATUS find_or_add_tag(MsgObj& object, uint32_t tag, const char* creator, TagObj*& out);
// The same for a call of the interface that sets the value: VX_STATE_VIOLATION while a function of the caller
// runs that the attribute is held for.
VX_STATUS find_to_change(MsgObj& object, uint32_t tag, TagObj*& out);
// With the dictionary's VR; with a VR for a tag that the dictionary lacks.
VX_STATUS add_standard_attribute(MsgObj& object, uint32_t tag, TagObj** out);
VX_STATUS add_nonstandard_attribute(MsgObj& object, uint32_t tag, int32_t vr, TagObj** out);
VX_STATUS delete_attribute(MsgObj& object, uint32_t tag);
VX_STATUS delete_range(MsgObj& object, uint32_t first, uint32_t last);
// Frees a record that is in no chain, with its values.
void free_tag(MsgObj& object, TagObj* attribute, bool free_items);
// All attributes, the removed ones and the index go; for the end of an object.
void free_all_tags(MsgObj& object);

// Iteration as the public functions have it. Any output may be null.
VX_STATUS first_attribute(MsgObj& object, uint32_t* tag, VX_VR* vr, int32_t* count);
VX_STATUS next_attribute(MsgObj& object, uint32_t* tag, VX_VR* vr, int32_t* count);
VX_STATUS attribute_info(MsgObj& object, uint32_t tag, VX_VR* vr, int32_t* count);
VX_STATUS set_value_representation(MsgObj& object, TagObj& attribute, int32_t vr);

// What every value function starts with: decodes deferred data up to the tag, then finds it.
// VX_INVALID_MESSAGE_ID, VX_INVALID_TAG.
VX_STATUS find_attribute(int32_t id, uint32_t tag, MsgObj*& object, TagObj*& attribute);

}  // namespace vx
