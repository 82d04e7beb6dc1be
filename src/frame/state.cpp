#include "frame/state.h"

#include <cstddef>
#include <type_traits>

namespace vx {

std::atomic<uint32_t> LibraryState{0};
std::atomic<uint32_t> ConfigState{0};
std::atomic<uint64_t> LibraryLife{0};

StateBlock& state() {
  // Zeroed bytes are a valid block, so it may serve before and after every static of a program.
  static_assert(std::is_trivially_destructible_v<StateBlock>);
  alignas(StateBlock) static std::byte block[sizeof(StateBlock)];
  return *reinterpret_cast<StateBlock*>(block);
}

const char* library_banner() {
  return VX_BUILD_VERSION;
}

const char* library_build_date() {
  return __DATE__;
}

const char* library_build_description() {
#if defined(__x86_64__)
#define VX_MACHINE "x86-64"
#elif defined(__aarch64__)
#define VX_MACHINE "AArch64"
#else
#define VX_MACHINE "64-bit"
#endif
  return "VexalKit for Linux " VX_MACHINE " (VXK3)";
}

}  // namespace vx
