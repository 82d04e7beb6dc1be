#include "frame/no_throw.h"
#include "frame/state.h"
#include "model/held.h"
#include "text/json.h"
#include "vexalkit.h"

VX_STATUS VX_Message_To_Json(int32_t MsgID, void* UserInfo, int32_t Options, VX_STREAM_OUTPUT Callback) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Callback);
  vx::MsgObj* object = vx::find_object(MsgID);
  if (object == nullptr) return VX_INVALID_MESSAGE_ID;
  const vx::Held held(*object, vx::Hold::All);
  return vx::no_throw([&] { return vx::object_to_json(*object, Options, UserInfo, Callback); });
}

VX_STATUS VX_Json_To_Message(int32_t MsgID, void* UserInfo, VX_TEXT_INPUT Callback) {
  return VX_Json_To_Message_With_Options(MsgID, UserInfo, 0, Callback);
}

VX_STATUS VX_Json_To_Message_With_Options(int32_t MsgID, void* UserInfo, int32_t Options,
                                          VX_TEXT_INPUT Callback) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Callback);
  vx::MsgObj* object = vx::find_object(MsgID);
  if (object == nullptr) return VX_INVALID_MESSAGE_ID;
  if (vx::is_range_held(*object, 0, 0xFFFFFFFFU)) return VX_STATE_VIOLATION;
  return vx::no_throw([&] { return vx::json_to_object(*object, Options, UserInfo, Callback); });
}
