// The life of the library: what the lifecycle functions of the interface do.
#pragma once

#include "frame/status.h"

namespace vx {

VX_STATUS library_initialize(VX_CONFIG_FUNCTION config_function, VX_DICTIONARY_FUNCTION dictionary_function,
                             VX_MESSAGE_INFO_FUNCTION message_info_function);
VX_STATUS library_reset();
VX_STATUS library_release();

// Null removes the recorded path.
VX_STATUS record_ini_path(const char* path);

}  // namespace vx
