// Status codes and their texts.
#pragma once

#include "vexalkit.h"

namespace vx {

inline constexpr VX_STATUS kOk = VX_NORMAL_COMPLETION;

// The text of a status; "Unknown Error" for a number that is none.
const char* status_text(VX_STATUS status);

// The text of an error number of the system, in one of a few rotating buffers of the calling thread.
const char* system_error_text(int error);

}  // namespace vx
