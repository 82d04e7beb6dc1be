// Checks an object against the template of its service and command, or of its item type.
#pragma once

#include <cstdint>

#include "model/object.h"

namespace vx {

// Both free the findings of the validation before. VX_MESSAGE_VALIDATES; VX_DOES_NOT_VALIDATE, `first` then
// the first finding; else the status of what could not be done.
VX_STATUS validate_whole(MsgObj& object, int32_t level, ValErrObj*& first);
// An attribute that is absent is added first, as reading its value would. VX_INVALID_TAG.
VX_STATUS validate_one(MsgObj& object, uint32_t tag, int32_t level, ValErrObj*& first);
// VX_END_OF_LIST.
VX_STATUS next_finding(MsgObj& object, ValErrObj*& finding);

}  // namespace vx
