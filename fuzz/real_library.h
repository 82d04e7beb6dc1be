// A library with the configuration of the build, for targets that work by its templates. It logs nothing.
#pragma once

#include <cstdint>
#include <string_view>

#include "vexalkit.h"

namespace fuzz {

inline void require(bool condition) {
  if (!condition) __builtin_trap();
}

// Starts the library; targets call it once.
inline void start_real_library() {
  VX_Set_VexalINI(VEXAL_FUZZ_INI);
  require(VX_Library_Initialization(nullptr, nullptr, nullptr) == VX_NORMAL_COMPLETION);
  VX_Set_String_Config_Value(VX_CFG_LOG_FILE, "/dev/null");
  for (VX_LOG_KEY key = 0; key < VX_LOG_KEY_COUNT; ++key) VX_Set_Log_Destination(key, VX_LOG_OFF);
}

// Bytes that a stream function gives all at once, and then no more.
struct Source {
  std::string_view bytes;
  bool given = false;
};
inline VX_STATUS give(int32_t, void* user, int32_t, uint32_t* size, void** data, int32_t* last) {
  auto& source = *static_cast<Source*>(user);
  *data = const_cast<char*>(source.bytes.data());
  *size = source.given ? 0 : static_cast<uint32_t>(source.bytes.size());
  source.given = true;
  *last = 1;
  return VX_NORMAL_COMPLETION;
}

}  // namespace fuzz
