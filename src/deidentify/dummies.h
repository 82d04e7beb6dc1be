// Values that fit an attribute and tell nothing.
#pragma once

#include <string_view>

#include "model/object.h"

namespace vx {

inline constexpr char kNeutralText[] = "ANONYMIZED";

// True if each value is one of those that the rules (may be null) list for its place.
bool has_listed_values(const TagObj& attribute, const TagObj* rules);
// The value becomes one that the rules list, or one that says nothing. For any VR but SQ.
VX_STATUS set_dummy(MsgObj& object, TagObj& attribute, const TagObj* rules);
// Another value of an attribute whose old ones are gone. What the check of its VR says does not count: an
// object with a damaged character set has no text that it likes.
VX_STATUS put_text(MsgObj& object, TagObj& attribute, std::string_view text, bool first);
// One text value in the place of all.
VX_STATUS replace_text(MsgObj& object, TagObj& attribute, std::string_view text);
// The attribute without a value, however it was held before.
VX_STATUS set_empty(MsgObj& object, TagObj& attribute);

}  // namespace vx
