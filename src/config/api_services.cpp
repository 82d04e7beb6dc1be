#include "config/added.h"
#include "frame/no_throw.h"
#include "frame/state.h"
#include "frame/text.h"

using namespace vx;

extern "C" {

VX_STATUS VX_Get_VexalKit_Service(const char* Uid, char* ServiceName, int32_t BufferSize) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Uid);
  VX_REQUIRE_POINTER(ServiceName);
  const auto size = static_cast<std::size_t>(BufferSize > 0 ? BufferSize : 0);
  const SopObj* service = find_service_by_uid(Uid);
  if (service == nullptr) {
    copy_text(ServiceName, size, "");
    return VX_INVALID_SOP_CLASS_UID;
  }
  return copy_text(ServiceName, size, service->name) ? kOk : VX_BUFFER_TOO_SMALL;
}

VX_STATUS VX_Get_UID_From_VexalKit_Service(const char* ServiceName, char* Uid, int32_t BufferSize) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(ServiceName);
  VX_REQUIRE_POINTER(Uid);
  const SopObj* service = find_service(ServiceName);
  if (service == nullptr) return VX_UNKNOWN_SERVICE;
  const auto size = static_cast<std::size_t>(BufferSize > 0 ? BufferSize : 0);
  return copy_text(Uid, size, service->uid) ? kOk : VX_BUFFER_TOO_SMALL;
}

VX_STATUS VX_Add_Service(const char* Uid) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Uid);
  return no_throw([&]() -> VX_STATUS {
    return find_service_by_uid(Uid) != nullptr || add_service(Uid) != nullptr ? kOk
                                                                              : VX_INVALID_SOP_CLASS_UID;
  });
}

}  // extern "C"
