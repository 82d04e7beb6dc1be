// Stream functions of the library over bytes in memory.
#pragma once

#include <cstdint>
#include <string>

#include "vexalkit.h"

namespace vexal {

// VX_STREAM_OUTPUT that appends to the std::string behind `user`.
inline VX_STATUS append_to_string(int32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  static_cast<std::string*>(user)->append(static_cast<const char*>(data), size);
  return VX_NORMAL_COMPLETION;
}

// VX_STREAM_INPUT that gives the std::string behind `user` in one piece.
inline VX_STATUS give_string(int32_t, void* user, int32_t, uint32_t* size, void** data, int32_t* last) {
  auto& bytes = *static_cast<std::string*>(user);
  *size = static_cast<uint32_t>(bytes.size());
  *data = bytes.data();
  *last = 1;
  return VX_NORMAL_COMPLETION;
}

}  // namespace vexal
