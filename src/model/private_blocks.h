// Private blocks: from creator code, group and element byte to a tag.
#pragma once

#include <cstdint>
#include <string_view>

#include "model/object.h"

namespace vx {

// Finds the creator's element. VX_FOUND_PRIVATE_BLOCK: `slot` is its tag; VX_NOT_FOUND: the first free slot;
// VX_TOO_MANY_BLOCKS; VX_INVALID_GROUP. Takes the object's semaphore.
VX_STATUS find_private_block(MsgObj& object, std::string_view creator, uint16_t group, uint32_t& slot);
// The tag of a private attribute, whether it is there or not. VX_NOT_FOUND, VX_TOO_MANY_BLOCKS,
// VX_INVALID_GROUP.
VX_STATUS private_tag(MsgObj& object, std::string_view creator, uint16_t group, uint8_t element,
                      uint32_t& tag);
// Adds the creator unless it is there; `slot` (may be null) gets its tag. `at` asks for a place, 0 for the
// first free one. `function` goes into the log.
VX_STATUS add_private_block(MsgObj& object, std::string_view creator, uint16_t group, uint32_t* slot,
                            uint32_t at, const char* function);
VX_STATUS delete_private_block(MsgObj& object, std::string_view creator, uint16_t group);
VX_STATUS add_private_attribute(MsgObj& object, std::string_view creator, uint16_t group, uint8_t element,
                                int32_t vr);
// The creator code that owns a private tag in this object (or in the holder of a private item); empty if
// none. The view is valid until the creator's value changes.
std::string_view creator_of(MsgObj& object, uint32_t tag);
// True if the block of the creator holds an attribute with a value.
bool block_has_values(MsgObj& object, std::string_view creator, uint16_t group);

}  // namespace vx
