// The last step of every text form: a text that is whole goes to the application.
#pragma once

#include <string>

#include "model/object.h"

namespace vx {

// Hands `text` over in blocks, with a blank behind it where its length is odd. VX_SYSTEM_ERROR where the
// callback refuses.
VX_STATUS hand_out_text(const MsgObj& object, std::string& text, void* user, VX_STREAM_OUTPUT callback);

}  // namespace vx
