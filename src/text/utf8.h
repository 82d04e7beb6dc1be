// Text of objects as UTF-8 and back. Text under no Specific Character Set is UTF-8 if it can be; where
// Unicode conversion is off, or ICU missing, a byte stands for the code point of its value, so that no byte
// is lost on the way there and back.
#pragma once

#include <string>
#include <string_view>

#include "text/charset.h"

namespace vx {

struct TextSet {
  enum class Kind { None, Utf8, Others };
  Kind kind = Kind::None;
  TextCharsets sets;    // of Others
  bool latin1 = false;  // of Others: ISO_IR 100 alone, which needs no conversion
};

// What the object's own (0008,0005) says; `inherited` if it has none.
TextSet text_set_of(MsgObj& object, const TextSet& inherited);
// Length of the longest start that is well-formed UTF-8 (no overlong forms, no surrogates).
std::size_t valid_utf8(std::string_view text);
// Nothing but ASCII, and no escape sequences to another set.
bool is_ascii(std::string_view text);
// `text` itself, or its UTF-8 form in `work`. Only after that is a person name cut at ^ and =, which may be
// bytes of other characters before. `whole` becomes false where the bytes are no text in the set.
std::string_view to_utf8(std::string_view text, const TextSet& set, bool person_name, std::string& work,
                         bool& whole);
// The reverse. `whole` becomes false where the set can not hold all of it; ? stands for what it can not.
std::string_view from_utf8(std::string_view text, const TextSet& set, std::string& work, bool& whole);

}  // namespace vx
