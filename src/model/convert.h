// Values from and to native types.
#pragma once

#include <cstdint>
#include <string_view>

#include "model/charset_scan.h"
#include "model/object.h"

namespace vx {

// VX_Set_Value (first) and VX_Set_Next_Value, for an attribute at hand. The status of the VR check comes with
// the value stored.
VX_STATUS set_value(MsgObj& object, TagObj& attribute, VX_DATA_TYPE type, const void* value, bool first);
// The same road for a text that needs no terminator. `charsets` (may be null) carries the object's character
// sets from one call to the next.
VX_STATUS set_text(MsgObj& object, TagObj& attribute, std::string_view text, bool first,
                   CharsetCache* charsets);
// The same, but a DS that could be no number is taken too, with the status of its check.
VX_STATUS set_text_as_it_is(MsgObj& object, TagObj& attribute, std::string_view text, bool first,
                            CharsetCache* charsets);

// VX_Get_Value_To_String and its like, moving the attribute's cursor to the first or the next value.
VX_STATUS get_text(TagObj& attribute, bool first, int32_t size, char* buffer, bool comma_setting);
VX_STATUS get_number(TagObj& attribute, bool first, VX_DATA_TYPE type, void* value);
// VX_Get_Value and VX_Get_Next_Value.
VX_STATUS get_value(MsgObj& object, TagObj& attribute, bool first, VX_DATA_TYPE type, uint32_t size,
                    void* buffer, uint32_t& length, bool comma_setting);
// What every read starts with: refusals by VR and state, then the cursor goes to the first or the next value.
struct ValueCursor;
VX_STATUS move_cursor(TagObj& attribute, bool first, ValueCursor& cursor);
// The bytes of text value under a cursor, or the printed form of any other in `scratch`, without a copy where
// none is needed. VX_NULL_VALUE, VX_INCOMPATIBLE_VR.
VX_STATUS view_text(const TagObj& attribute, const ValueCursor& cursor, char (&scratch)[80],
                    std::string_view& text);

// A text to the binary form of a VR from SS on, as set_value does, without an object: for templates.
VX_STATUS convert_text_to_binary(int32_t vr, std::string_view text, void* buffer, uint32_t& length);

// The VR value check (PS3.5 section 6.2): kOk, VX_INVALID_VALUE_FOR_VR,
// VX_INVALID_CHARS_IN_VALUE, or a failure to work out the character sets. Text VRs and non-empty values only;
// all others pass.
VX_STATUS check_value(MsgObj& object, uint32_t tag, int32_t vr, std::string_view value,
                      CharsetCache* charsets);

}  // namespace vx
