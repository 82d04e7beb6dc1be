// Exported functions of value callbacks.
#include "frame/state.h"
#include "frame/text.h"
#include "model/callbacks.h"
#include "model/held.h"
#include "vexalkit.h"

using namespace vx;

namespace {

// Group, element and code of a private registration. VX_INVALID_PRIVATE_CODE: no creator has so long a code.
VX_STATUS private_key(const char* code, uint16_t group, uint8_t element, CBObj& key) {
  if (!copy_text(key.PrivateCode, sizeof key.PrivateCode, trim_right(code))) return VX_INVALID_PRIVATE_CODE;
  key.Group = group;
  key.Element = element;
  return kOk;
}

}  // namespace

VX_STATUS VX_Register_Callback_Function(int32_t ApplicationID, uint32_t Tag, void* UserInfo,
                                        VX_VALUE_CALLBACK Function) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Function);
  if (Tag == 0 || is_private(Tag)) return VX_INVALID_TAG;
  AppObj* app = find_application(ApplicationID);
  if (app == nullptr) return VX_INVALID_APPLICATION_ID;
  CBObj record{};
  record.Tag = Tag;
  record.Function = Function;
  record.UserInfo = UserInfo;
  return register_callback(*app, record);
}

VX_STATUS VX_Register_pCallback_Function(int32_t ApplicationID, const char* PrivateCode, uint16_t Group,
                                         uint8_t Element, void* UserInfo,
                                         VX_PRIVATE_VALUE_CALLBACK Function) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(PrivateCode);
  VX_REQUIRE_POINTER(Function);
  AppObj* app = find_application(ApplicationID);
  if (app == nullptr) return VX_INVALID_APPLICATION_ID;
  CBObj record{};
  const VX_STATUS status = private_key(PrivateCode, Group, Element, record);
  if (status != kOk) return status;
  record.PrivateFunction = Function;
  record.UserInfo = UserInfo;
  return register_callback(*app, record);
}

VX_STATUS VX_Release_Callback_Function(int32_t ApplicationID, uint32_t Tag) {
  VX_REQUIRE_LIBRARY();
  AppObj* app = find_application(ApplicationID);
  if (app == nullptr) return VX_INVALID_APPLICATION_ID;
  if (Tag == 0) return VX_INVALID_TAG;
  CBObj key{};
  key.Tag = Tag;
  return release_callback(*app, key);
}

VX_STATUS VX_Release_pCallback_Function(int32_t ApplicationID, const char* PrivateCode, uint16_t Group,
                                        uint8_t Element) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(PrivateCode);
  AppObj* app = find_application(ApplicationID);
  if (app == nullptr) return VX_INVALID_APPLICATION_ID;
  CBObj key{};
  const VX_STATUS status = private_key(PrivateCode, Group, Element, key);
  return status == kOk ? release_callback(*app, key) : VX_INVALID_TAG;
}

VX_STATUS VX_Set_Message_Callbacks(int32_t ApplicationID, int32_t MsgID) {
  VX_REQUIRE_LIBRARY();
  AppObj* app = find_application(ApplicationID);
  if (app == nullptr) return VX_INVALID_APPLICATION_ID;
  MsgObj* object = find_object(MsgID);
  if (object == nullptr) return VX_INVALID_MESSAGE_ID;
  if (is_range_held(*object, 0, 0xFFFFFFFFU)) return VX_STATE_VIOLATION;
  bind_all(*app, *object);
  return kOk;
}
