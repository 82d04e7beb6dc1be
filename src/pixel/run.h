// What a codec keeps for one frame, behind the context pointer of its callback.
#pragma once

#include <cstdint>

#include "frame/status.h"

namespace vx {

struct RunContext {
  explicit RunContext(bool rle) : is_rle(rle) {}
  virtual ~RunContext() = default;
  RunContext(const RunContext&) = delete;
  RunContext& operator=(const RunContext&) = delete;
  const bool is_rle;
};

// The arguments of a compression callback, without its release.
struct CodecCall {
  int32_t id;
  void** context;
  uint32_t size;
  const void* data;
  uint32_t* out_size;
  void** out;
  bool first;
  bool last;
};

inline RunContext* run_of(void** context) {
  return context != nullptr ? static_cast<RunContext*>(*context) : nullptr;
}
// The release. VX_CALLBACK_CANNOT_COMPLY: there is nothing to release.
inline VX_STATUS end_run(void** context) {
  RunContext* run = run_of(context);
  if (run == nullptr) return VX_CALLBACK_CANNOT_COMPLY;
  delete run;
  *context = nullptr;
  return kOk;
}

}  // namespace vx
