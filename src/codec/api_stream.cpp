#include "codec/stream_calls.h"
#include "frame/state.h"
#include "model/held.h"
#include "vexalkit.h"

VX_STATUS VX_Message_To_Stream(int32_t MsgID, uint32_t StartTag, uint32_t EndTag, VX_TRANSFER_SYNTAX Syntax,
                               void* UserInfo, VX_STREAM_OUTPUT Callback) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Callback);
  vx::MsgObj* object = vx::find_object(MsgID);
  if (object == nullptr) return VX_INVALID_MESSAGE_ID;
  return vx::message_to_stream(*object, StartTag, EndTag, Syntax, UserInfo, Callback);
}

VX_STATUS VX_Stream_To_Message(int32_t MsgID, uint32_t StartTag, uint32_t EndTag, VX_TRANSFER_SYNTAX Syntax,
                               uint32_t* ErrorTag, void* UserInfo, VX_STREAM_INPUT Callback) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(ErrorTag);
  VX_REQUIRE_POINTER(Callback);
  vx::MsgObj* object = vx::find_object(MsgID);
  if (object == nullptr) return VX_INVALID_MESSAGE_ID;
  if (vx::is_range_held(*object, 0, 0xFFFFFFFFU)) return VX_STATE_VIOLATION;
  return vx::stream_to_message(*object, StartTag, EndTag, Syntax, *ErrorTag, nullptr, UserInfo, Callback);
}

VX_STATUS VX_Stream_To_Message_With_Offset(int32_t MsgID, uint32_t StartTag, uint32_t EndTag,
                                           VX_TRANSFER_SYNTAX Syntax, uint32_t* ErrorTag, uint32_t* Offset,
                                           void* UserInfo, VX_STREAM_INPUT Callback) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(ErrorTag);
  VX_REQUIRE_POINTER(Offset);
  VX_REQUIRE_POINTER(Callback);
  vx::MsgObj* object = vx::find_object(MsgID);
  if (object == nullptr) return VX_INVALID_MESSAGE_ID;
  if (vx::is_range_held(*object, 0, 0xFFFFFFFFU)) return VX_STATE_VIOLATION;
  return vx::stream_to_message(*object, StartTag, EndTag, Syntax, *ErrorTag, Offset, UserInfo, Callback);
}

VX_STATUS VX_Get_Stream_Length(int32_t MsgID, uint32_t StartTag, uint32_t EndTag, uint32_t* Length,
                               VX_TRANSFER_SYNTAX Syntax) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Length);
  vx::MsgObj* object = vx::find_object(MsgID);
  if (object == nullptr) return VX_INVALID_MESSAGE_ID;
  return vx::stream_length(*object, StartTag, EndTag, Syntax, *Length);
}
