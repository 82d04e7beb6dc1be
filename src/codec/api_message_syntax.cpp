#include "codec/message_syntax.h"
#include "frame/state.h"
#include "model/held.h"
#include "model/seams.h"
#include "vexalkit.h"

VX_STATUS VX_Set_Message_Transfer_Syntax(int32_t MsgID, VX_TRANSFER_SYNTAX Syntax) {
  VX_REQUIRE_LIBRARY();
  vx::MsgObj* object = vx::find_object(MsgID);
  if (object == nullptr) return VX_INVALID_MESSAGE_ID;
  if (vx::is_range_held(*object, 0x00020010U, 0x00020010U)) return VX_STATE_VIOLATION;
  return vx::set_message_syntax(*object, Syntax);
}

VX_STATUS VX_Get_Message_Transfer_Syntax(int32_t MsgID, VX_TRANSFER_SYNTAX* Syntax) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Syntax);
  vx::MsgObj* object = vx::find_object(MsgID);
  if (object == nullptr) return VX_INVALID_MESSAGE_ID;
  return vx::get_message_syntax(*object, *Syntax);
}

VX_STATUS VX_Reset_Message_Transfer_Syntax(int32_t MsgID) {
  VX_REQUIRE_LIBRARY();
  vx::MsgObj* object = vx::find_object(MsgID);
  if (object == nullptr) return VX_INVALID_MESSAGE_ID;
  return vx::reset_message_syntax(*object);
}
