// Bulk values as text: their bytes in little-endian order, from wherever they lie.
#pragma once

#include <string>
#include <string_view>

#include "model/object.h"
#include "text/number_text.h"
#include "text/text_output.h"

namespace vx {

// A null value adds nothing.
// As one line of Base64.
VX_STATUS add_base64(MsgObj& object, TagObj& attribute, TextOutput& output);
// In lines of 76 characters, with the number of bytes.
VX_STATUS add_base64_lines(MsgObj& object, TagObj& attribute, TextOutput& output, std::size_t& length);
// As pairs of digits with blanks between.
VX_STATUS add_hex(MsgObj& object, TagObj& attribute, TextOutput& output, std::size_t& length);

// The bytes of an attribute of SV or UV in memory. False: of another, or no whole numbers.
bool wide_integers(const TagObj& attribute, std::string& bytes);
// One of them in decimal digits.
std::string_view wide_text(const TagObj& attribute, const char* bytes, NumberText& text);

// Items of fragments with their delimiter (PS3.5 section A.4), of whose bytes these are the first and the
// last.
bool are_fragments(std::string_view head, std::string_view tail);
// Pixel data in fragments: by the transfer syntax, and where that is not known by what the value looks like.
// The syntax is that of the object, or of an icon's item what it was read in.
bool is_in_fragments(MsgObj& object, const TagObj& attribute);

}  // namespace vx
