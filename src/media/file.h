// Part 10 files: a message with preamble, prefix and meta group (PS3.10 section 7).
#pragma once

#include <cstdint>

#include "model/object.h"

namespace vx {

VX_STATUS create_file(const char* file_name, const char* service, uint16_t command, MsgObj*& out);
VX_STATUS create_empty_file(const char* file_name, MsgObj*& out);
VX_STATUS message_to_file(MsgObj& object, const char* file_name);
VX_STATUS file_to_message(MsgObj& object);
// The length of the file as written without padding; kUndefinedLength if a value is of undefined length.
VX_STATUS file_length(MsgObj& object, uint64_t& length);

}  // namespace vx
