// The attributes of an object, one by one.
#pragma once

#include <cstdint>
#include <type_traits>

#include "vexalkit.h"

namespace vexal {

inline bool has_attribute(int32_t object, uint32_t tag) {
  return VX_Get_Attribute_Info(object, tag, nullptr, nullptr) == VX_NORMAL_COMPLETION;
}

// Calls visit(tag, vr, count) for each attribute, in order of tag; until it gives false, if it gives a bool.
// Asking the object for an attribute makes the walk go on behind that one.
template <typename Visit>
void for_each_attribute(int32_t object, Visit visit) {
  uint32_t tag = 0;
  VX_VR vr = 0;
  int32_t count = 0;
  for (VX_STATUS status = VX_Get_First_Attribute(object, &tag, &vr, &count); status == VX_NORMAL_COMPLETION;
       status = VX_Get_Next_Attribute(object, &tag, &vr, &count)) {
    if constexpr (std::is_same_v<std::invoke_result_t<Visit, uint32_t, VX_VR, int32_t>, bool>) {
      if (!visit(tag, vr, count)) return;
    } else {
      visit(tag, vr, count);
    }
  }
}

}  // namespace vexal
