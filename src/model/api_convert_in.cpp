// Exported functions that set values from native types.

#include "frame/no_throw.h"
#include "frame/state.h"
#include "model/attributes.h"
#include "model/convert.h"

namespace {

VX_STATUS set(int32_t id, uint32_t tag, VX_DATA_TYPE type, const void* value, bool first) {
  VX_REQUIRE_LIBRARY();
  vx::MsgObj* object = vx::find_object(id);
  if (object == nullptr) return VX_INVALID_MESSAGE_ID;
  vx::TagObj* attribute = nullptr;
  const VX_STATUS status = vx::find_to_change(*object, tag, attribute);
  if (status != vx::kOk) return status;
  return vx::no_throw([&] { return vx::set_value(*object, *attribute, type, value, first); });
}

}  // namespace

extern "C" {

VX_STATUS VX_Set_Value(int32_t MsgID, uint32_t Tag, VX_DATA_TYPE DataType, const void* Value) {
  return set(MsgID, Tag, DataType, Value, true);
}

VX_STATUS VX_Set_Next_Value(int32_t MsgID, uint32_t Tag, VX_DATA_TYPE DataType, const void* Value) {
  return set(MsgID, Tag, DataType, Value, false);
}

VX_STATUS VX_Set_Value_From_String(int32_t MsgID, uint32_t Tag, const char* Value) {
  return set(MsgID, Tag, VX_STRING_TYPE, Value, true);
}

VX_STATUS VX_Set_Next_Value_From_String(int32_t MsgID, uint32_t Tag, const char* Value) {
  return set(MsgID, Tag, VX_STRING_TYPE, Value, false);
}

VX_STATUS VX_Set_Value_From_Int(int32_t MsgID, uint32_t Tag, int32_t Value) {
  return set(MsgID, Tag, VX_INT_TYPE, &Value, true);
}

VX_STATUS VX_Set_Next_Value_From_Int(int32_t MsgID, uint32_t Tag, int32_t Value) {
  return set(MsgID, Tag, VX_INT_TYPE, &Value, false);
}

VX_STATUS VX_Set_Value_From_UInt(int32_t MsgID, uint32_t Tag, uint32_t Value) {
  return set(MsgID, Tag, VX_UINT_TYPE, &Value, true);
}

VX_STATUS VX_Set_Next_Value_From_UInt(int32_t MsgID, uint32_t Tag, uint32_t Value) {
  return set(MsgID, Tag, VX_UINT_TYPE, &Value, false);
}

VX_STATUS VX_Set_Value_From_ShortInt(int32_t MsgID, uint32_t Tag, int16_t Value) {
  return set(MsgID, Tag, VX_SHORTINT_TYPE, &Value, true);
}

VX_STATUS VX_Set_Next_Value_From_ShortInt(int32_t MsgID, uint32_t Tag, int16_t Value) {
  return set(MsgID, Tag, VX_SHORTINT_TYPE, &Value, false);
}

VX_STATUS VX_Set_Value_From_UShortInt(int32_t MsgID, uint32_t Tag, uint16_t Value) {
  return set(MsgID, Tag, VX_USHORTINT_TYPE, &Value, true);
}

VX_STATUS VX_Set_Next_Value_From_UShortInt(int32_t MsgID, uint32_t Tag, uint16_t Value) {
  return set(MsgID, Tag, VX_USHORTINT_TYPE, &Value, false);
}

VX_STATUS VX_Set_Value_From_LongInt(int32_t MsgID, uint32_t Tag, int32_t Value) {
  return set(MsgID, Tag, VX_LONGINT_TYPE, &Value, true);
}

VX_STATUS VX_Set_Next_Value_From_LongInt(int32_t MsgID, uint32_t Tag, int32_t Value) {
  return set(MsgID, Tag, VX_LONGINT_TYPE, &Value, false);
}

VX_STATUS VX_Set_Value_From_ULongInt(int32_t MsgID, uint32_t Tag, uint32_t Value) {
  return set(MsgID, Tag, VX_ULONGINT_TYPE, &Value, true);
}

VX_STATUS VX_Set_Next_Value_From_ULongInt(int32_t MsgID, uint32_t Tag, uint32_t Value) {
  return set(MsgID, Tag, VX_ULONGINT_TYPE, &Value, false);
}

VX_STATUS VX_Set_Value_From_Float(int32_t MsgID, uint32_t Tag, float Value) {
  return set(MsgID, Tag, VX_FLOAT_TYPE, &Value, true);
}

VX_STATUS VX_Set_Next_Value_From_Float(int32_t MsgID, uint32_t Tag, float Value) {
  return set(MsgID, Tag, VX_FLOAT_TYPE, &Value, false);
}

VX_STATUS VX_Set_Value_From_Double(int32_t MsgID, uint32_t Tag, double Value) {
  return set(MsgID, Tag, VX_DOUBLE_TYPE, &Value, true);
}

VX_STATUS VX_Set_Next_Value_From_Double(int32_t MsgID, uint32_t Tag, double Value) {
  return set(MsgID, Tag, VX_DOUBLE_TYPE, &Value, false);
}

}  // extern "C"
