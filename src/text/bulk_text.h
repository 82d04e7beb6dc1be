// Bulk values as text: their bytes in little-endian order, from wherever they lie.
#pragma once

#include <string>

#include "model/object.h"
#include "text/text_output.h"

namespace vx {

// A null value adds nothing.
// As one line of Base64.
VX_STATUS add_base64(MsgObj& object, TagObj& attribute, TextOutput& output);
// In lines of 76 characters, with the number of bytes.
VX_STATUS add_base64_lines(MsgObj& object, TagObj& attribute, TextOutput& output, std::size_t& length);
// As pairs of digits with blanks between.
VX_STATUS add_hex(MsgObj& object, TagObj& attribute, TextOutput& output, std::size_t& length);

}  // namespace vx
