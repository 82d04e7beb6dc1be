// The process-wide state block of the library.
#pragma once

#include <atomic>
#include <cstdint>

#include "frame/lock.h"
#include "frame/registry.h"
#include "frame/status.h"

namespace vx {

inline constexpr uint32_t kLibraryMark = 0x23FE4399;
inline constexpr uint32_t kConfigMark = 0x26FE4399;

extern std::atomic<uint32_t> LibraryState;
extern std::atomic<uint32_t> ConfigState;
// Counts the ends of the library: what a thread keeps of an object is void in another life.
extern std::atomic<uint64_t> LibraryLife;

inline bool library_initialized() {
  return LibraryState.load(std::memory_order_acquire) == kLibraryMark;
}

// Opens every exported function: the library must run.
#define VX_REQUIRE_LIBRARY()                                             \
  do {                                                                   \
    if (!::vx::library_initialized()) return VX_LIBRARY_NOT_INITIALIZED; \
  } while (0)
#define VX_REQUIRE_POINTER(pointer)                        \
  do {                                                     \
    if ((pointer) == nullptr) return VX_NULL_POINTER_PARM; \
  } while (0)

// What every initialisation and reset starts from zero. Everything that outlives a reset stands outside.
struct StateBlock {
  MessageRegistry messages;
  SmallRegistry applications;
  SmallRegistry sessions;
  int32_t EchoApplicationID;  // the library's own application, -1 until it exists
  bool EchoTried;             // the first registration makes it
  int32_t KeepStreamForm;     // VX_Keep_Stream_Form; aligned, without a lock
  int32_t AcceptUnknown;      // VX_Accept_Unknown_Contexts; the same
  Lock dictionSemaphore;
  Lock templateSemaphore;  // the list of message templates
  Lock charParamSemaphore;
  Lock serviceSemaphore;
};
StateBlock& state();

// The path that VX_Set_VexalINI recorded, or null; lives outside the pools.
const char* recorded_ini_path();

// The banner that versions of ready-built records are compared with.
const char* library_banner();
const char* library_build_date();
const char* library_build_description();

}  // namespace vx
