// Application entities.
#pragma once

#include <cstdint>
#include <type_traits>

#include "frame/list.h"
#include "frame/lock.h"
#include "frame/status.h"

namespace vx {

struct AppObj {
  int32_t ID;
  char Title[20];
  CObList Callbacks;        // of CBObj, owned
  CObList Sessions;         // open associations
  CObList NegotiationInfo;  // extended negotiation records, owned
  Lock CallbackSemaphore;
  Lock SessionSemaphore;
  Lock NegotiationSemaphore;
};
static_assert(std::is_trivially_destructible_v<AppObj>);

AppObj* find_application(int32_t id);
VX_STATUS register_application(int32_t* id, const char* title);
VX_STATUS release_application(int32_t* id);

}  // namespace vx
