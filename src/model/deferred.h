// Objects that hold stream data which is not decoded yet. Whoever looks for a tag has the data decoded up to
// that tag first.
#pragma once

#include <cstdint>
#include <cstring>

#include "model/seams.h"

namespace vx {

// The sorts of DirectoryInfo, the first word of what it points to.
enum DirectorySort : int32_t {
  kDirectoryInMemory = 0,
  kDirectoryHandler = 1,
  kDeferredStream = 2,
  kDirectoryRecord = 3
};

inline int32_t directory_sort(const MsgObj& object) {
  int32_t sort;
  std::memcpy(&sort, object.DirectoryInfo, sizeof sort);
  return sort;
}

inline VX_STATUS decode_up_to(MsgObj& object, uint32_t tag) {
  if (object.DirectoryInfo == nullptr || decode_deferred == nullptr) [[likely]]
    return kOk;
  return directory_sort(object) == kDeferredStream ? decode_deferred(object, tag) : kOk;
}
inline VX_STATUS decode_all(MsgObj& object) {
  return decode_up_to(object, 0xFFFFFFFFU);
}

}  // namespace vx
