// Walks an object and does to each attribute what the profile asks for.
#pragma once

#include "model/object.h"

namespace vx {

// After the checks of its arguments: VX_Deidentify_Message.
VX_STATUS deidentify(MsgObj& object, const VX_DEIDENTIFICATION& how);

}  // namespace vx
