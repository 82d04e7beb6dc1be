// The value chain of an attribute, its cursor, and the operations that do not depend on a native type.
#pragma once

#include <cstdint>
#include <string_view>

#include "model/object.h"
#include "model/vr.h"

namespace vx {

// Back to the state Empty. free_items frees items that no other sequence references; keep_callback leaves a
// bound callback bound.
void clear_value(MsgObj& object, TagObj& attribute, bool keep_callback, bool free_items);

// The single road by which bytes enter an attribute. `big_endian` is the order of the bytes at hand: numeric
// and word VRs are brought to the machine's order. AT goes from group, element to one word in any case.
struct StoreFlags {
  bool first = true;
  bool last = true;
  bool from_stream = false;  // bytes are in stream form: AT halves, and big_endian below, count
  bool big_endian = false;
};
VX_STATUS store_value(MsgObj& object, TagObj& attribute, const void* data, uint32_t length, StoreFlags flags);
// A new value piece of `length` unset bytes at the tail, for the caller to fill; Length and ValueCount grow
// at once. Memory storage only,
// whatever the length. With `first` the old chain goes.
VX_STATUS reserve_value(MsgObj& object, TagObj& attribute, uint32_t length, bool first, void*& data);
// One value without data, or one item reference, at the tail.
VX_STATUS append_null(TagObj& attribute);
VX_STATUS append_item(TagObj& attribute, MsgObj& item);
// The item rules for taking an item as a value: parent, private tag, reference count.
// VX_INVALID_VALUE_FOR_VR.
VX_STATUS adopt_item(MsgObj* holder, const TagObj& attribute, MsgObj* item);

ValueObj* new_value(uint32_t length);  // unset bytes; null if there is no memory
// The same for the chain of this attribute alone, which has room for a short one: it can not be handed to
// another.
ValueObj* new_piece(TagObj& attribute, uint32_t length);
// Room for `capacity` bytes in a piece of the chain with Data; it may move. Null if there is no memory:
// nothing changed.
ValueObj* grow_piece(TagObj& attribute, ValueObj* piece, uint32_t capacity);
// Bytes that a piece has room for.
uint32_t piece_capacity(const ValueObj& piece);
void free_value(ValueObj* value);
void append_value(TagObj& attribute, ValueObj* value, int32_t count, uint32_t length);

// Keeps the bytes that a text has in its stream, of even length, until its values change. False: no memory.
bool keep_text(TagObj& attribute, std::string_view bytes);
void release_kept_text(TagObj& attribute);
inline void drop_kept_text(TagObj& attribute) {
  if (attribute.DecoderMark == kKeptText) release_kept_text(attribute);
}

// Cursors. A private one is a local ValueCursor; the attribute's own is in its fields.
struct ValueCursor {
  int32_t number = 0;
  ValueObj* value = nullptr;
  ValueObj* previous = nullptr;
};
void cursor_first(const TagObj& attribute, ValueCursor& cursor);
VX_STATUS cursor_next(const TagObj& attribute, ValueCursor& cursor);
VX_STATUS cursor_nth(const TagObj& attribute, ValueCursor& cursor, int32_t number);
ValueCursor get_cursor(const TagObj& attribute);
void set_cursor(TagObj& attribute, const ValueCursor& cursor);
// Address of numeric value `number` (from 1) across the pieces, or null past the end. Constant time for one
// piece.
const void* numeric_value(const TagObj& attribute, int32_t number);

// The count rule: VX_EMPTY_VALUE, VX_NULL_VALUE with count 0, or normal.
VX_STATUS value_count(const TagObj& attribute, int32_t& count);
VX_STATUS value_length(MsgObj& object, TagObj& attribute, int32_t number, uint32_t& length);
VX_STATUS value_to_buffer(const TagObj& attribute, uint32_t size, void* buffer, uint32_t& length);
VX_STATUS value_to_function(MsgObj& object, TagObj& attribute, void* user, VX_READER_FUNCTION function);
VX_STATUS value_from_buffer(MsgObj& object, TagObj& attribute, const void* buffer, uint32_t length);
VX_STATUS value_from_function(MsgObj& object, TagObj& attribute, void* user, VX_WRITER_FUNCTION function);
VX_STATUS delete_current_value(MsgObj& object, TagObj& attribute);
VX_STATUS swap_value(TagObj& attribute);  // VX_Byte_Swap_OBOW
VX_STATUS set_null(MsgObj& object, TagObj& attribute);
VX_STATUS set_next_null(TagObj& attribute);

// Byte order leaf: reverses each element of `width` bytes from source to destination (which may be the same).
void copy_swapped(void* destination, const void* source, std::size_t length, uint32_t width);

}  // namespace vx
