#include "frame/pool.h"
#include "frame/state.h"

using namespace vx;

extern "C" {

VX_STATUS VX_Cleanup_Memory(int32_t MaxSeconds) {
  VX_REQUIRE_LIBRARY();
  return cleanup_memory(MaxSeconds);
}

VX_STATUS VX_Report_Memory(uint64_t* TotalBytes, uint64_t* FreeBytes) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(TotalBytes);
  VX_REQUIRE_POINTER(FreeBytes);
  report_memory(*TotalBytes, *FreeBytes);
  return kOk;
}

}  // extern "C"
