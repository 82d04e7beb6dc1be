#include <atomic>
#include <cstring>

#include "codec/stream_calls.h"
#include "codec/stream_form.h"
#include "frame/state.h"
#include "model/attributes.h"
#include "model/held.h"
#include "model/vr.h"
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

VX_STATUS VX_Keep_Stream_Form(int32_t Keep) {
  VX_REQUIRE_LIBRARY();
  std::atomic_ref(vx::state().KeepStreamForm).store(Keep, std::memory_order_relaxed);
  return vx::kOk;
}

VX_STATUS VX_Limit_Decoder(uint32_t Most) {
  VX_REQUIRE_LIBRARY();
  vx::most_decoded = Most;
  return vx::kOk;
}

VX_STATUS VX_Get_VR_Letters(int32_t MsgID, uint32_t Tag, char* Letters) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Letters);
  vx::MsgObj* object = nullptr;
  vx::TagObj* attribute = nullptr;
  const VX_STATUS status = vx::find_attribute(MsgID, Tag, object, attribute);
  if (status != vx::kOk) return status;
  char work[2];
  Letters[vx::stream_letters(*attribute, work).copy(Letters, 2)] = '\0';
  return status;
}

VX_STATUS VX_Set_VR_Letters(int32_t MsgID, uint32_t Tag, const char* Letters) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Letters);
  vx::MsgObj* object = nullptr;
  vx::TagObj* attribute = nullptr;
  const VX_STATUS status = vx::find_attribute(MsgID, Tag, object, attribute);
  if (status != vx::kOk) return status;
  const bool none = std::strcmp(Letters, "UN") == 0;
  if (!none && (std::strlen(Letters) != 2 || !vx::is_wide_vr(Letters[0], Letters[1])))
    return VX_INVALID_VR_CODE;
  if (attribute->VR != VX_VR_UN) return VX_INCOMPATIBLE_VR;
  attribute->DecoderMark = none ? char{} : Letters[0];
  return status;
}
