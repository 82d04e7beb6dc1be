// What all benchmarks need: a running library and objects to work on.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>

#include "vexalkit.h"

namespace bench {

inline void require(VX_STATUS status, const char* what) {
  if (status == VX_NORMAL_COMPLETION) return;
  std::cerr << what << ": " << VX_Error_Message(status) << "\n";
  std::exit(1);
}

// With the configuration that VEXAL_INI or the build folder names.
inline void open_library() {
  if (std::getenv("VEXAL_INI") == nullptr) VX_Set_VexalINI(VEXAL_BENCH_INI);
  require(VX_Library_Initialization(nullptr, nullptr, nullptr), "VX_Library_Initialization");
  VX_Set_String_Config_Value(VX_CFG_LOG_FILE, "/dev/null");
  for (VX_LOG_KEY key = 0; key < VX_LOG_KEY_COUNT; ++key) VX_Set_Log_Destination(key, VX_LOG_OFF);
}

// The library, started once.
inline void start_library() {
  static const bool started = (open_library(), true);
  (void)started;
}

// For what happens once in the life of a library. Objects are gone afterwards.
inline void restart_library() {
  start_library();
  VX_Library_Release();
  open_library();
}

// A stream of bytes in memory, written by an encode and read by a decode.
struct Memory {
  std::string bytes;
  std::size_t position = 0;
};

inline VX_STATUS write_memory(int32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  static_cast<Memory*>(user)->bytes.append(static_cast<const char*>(data), size);
  return VX_NORMAL_COMPLETION;
}

inline VX_STATUS count_bytes(int32_t, void* user, uint32_t size, void*, int32_t, int32_t) {
  *static_cast<uint64_t*>(user) += size;
  return VX_NORMAL_COMPLETION;
}

inline VX_STATUS read_memory(int32_t, void* user, int32_t, uint32_t* size, void** data, int32_t* last) {
  auto& memory = *static_cast<Memory*>(user);
  constexpr std::size_t kBlock = 256 * 1024;
  const std::size_t left = memory.bytes.size() - memory.position;
  const std::size_t length = left < kBlock ? left : kBlock;
  *size = static_cast<uint32_t>(length);
  *data = memory.bytes.data() + memory.position;
  memory.position += length;
  *last = memory.position == memory.bytes.size() ? 1 : 0;
  return VX_NORMAL_COMPLETION;
}

}  // namespace bench
