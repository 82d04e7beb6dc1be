// The transfer syntax that an object carries.
#pragma once

#include "config/transfer_syntax.h"
#include "model/object.h"

namespace vx {

// VX_INVALID_MESSAGE_ID for an object that carries none, VX_INVALID_TRANSFER_SYNTAX.
VX_STATUS set_message_syntax(MsgObj& object, VX_TRANSFER_SYNTAX syntax);
VX_STATUS reset_message_syntax(MsgObj& object);
// For a file: the value of (0002,0010). VX_EMPTY_VALUE, VX_NULL_VALUE, VX_INVALID_TAG,
// VX_INVALID_TRANSFER_SYNTAX.
VX_STATUS file_syntax(MsgObj& object, VX_TRANSFER_SYNTAX& syntax);

}  // namespace vx
