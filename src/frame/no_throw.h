// The border of the library: no exception crosses it.
#pragma once

#include "frame/status.h"

namespace vx {

// What the call gives; VX_SYSTEM_ERROR when the working memory of a call could not be had.
template <typename Call>
VX_STATUS no_throw(Call&& call) noexcept {
  try {
    return call();
  } catch (...) {
    return VX_SYSTEM_ERROR;
  }
}

}  // namespace vx
