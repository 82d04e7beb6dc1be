// Text of objects as UTF-8 and back. Text under ISO_IR 192, or under no Specific Character Set, is UTF-8 if
// it can be; every other byte stands for the code point of its value, so that no byte is lost on the way
// there and back.
#pragma once

#include <string>
#include <string_view>

#include "model/object.h"

namespace vx {

enum class TextSet { None, Utf8, Bytes };

// What the object's own (0008,0005) says; `inherited` if it has none.
TextSet text_set_of(MsgObj& object, TextSet inherited);
// Length of the longest start that is well-formed UTF-8 (no overlong forms, no surrogates).
std::size_t valid_utf8(std::string_view text);
// `text` itself, or its UTF-8 form in `work`.
std::string_view to_utf8(std::string_view text, TextSet set, std::string& work);
// The reverse. A text that the set can not hold stays UTF-8.
std::string_view from_utf8(std::string_view text, TextSet set, std::string& work);

}  // namespace vx
