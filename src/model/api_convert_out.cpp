// Exported functions that read values into native types.

#include "frame/state.h"
#include "model/attributes.h"
#include "model/convert.h"

namespace {

// An unknown object comes before a null output.
VX_STATUS null_output(int32_t id) {
  return vx::find_object(id) == nullptr ? VX_INVALID_MESSAGE_ID : VX_NULL_POINTER_PARM;
}

VX_STATUS get_number(int32_t id, uint32_t tag, VX_DATA_TYPE type, void* value, bool first) {
  VX_REQUIRE_LIBRARY();
  if (value == nullptr) return null_output(id);
  vx::MsgObj* object = nullptr;
  vx::TagObj* attribute = nullptr;
  const VX_STATUS status = vx::find_attribute(id, tag, object, attribute);
  return status != vx::kOk ? status : vx::get_number(*attribute, first, type, value);
}

VX_STATUS get_text(int32_t id, uint32_t tag, int32_t size, char* buffer, bool first) {
  VX_REQUIRE_LIBRARY();
  if (buffer == nullptr) return null_output(id);
  vx::MsgObj* object = nullptr;
  vx::TagObj* attribute = nullptr;
  const VX_STATUS status = vx::find_attribute(id, tag, object, attribute);
  return status != vx::kOk ? status : vx::get_text(*attribute, first, size, buffer, true);
}

VX_STATUS get_any(int32_t id, uint32_t tag, VX_DATA_TYPE type, uint32_t size, void* buffer, uint32_t* length,
                  bool first) {
  VX_REQUIRE_LIBRARY();
  if (buffer == nullptr || length == nullptr) return null_output(id);
  vx::MsgObj* object = nullptr;
  vx::TagObj* attribute = nullptr;
  const VX_STATUS status = vx::find_attribute(id, tag, object, attribute);
  if (status != vx::kOk) return status;
  return vx::get_value(*object, *attribute, first, type, size, buffer, *length, true);
}

}  // namespace

extern "C" {

VX_STATUS VX_Get_Value(int32_t MsgID, uint32_t Tag, VX_DATA_TYPE DataType, uint32_t BufferSize, void* Buffer,
                       uint32_t* Length) {
  return get_any(MsgID, Tag, DataType, BufferSize, Buffer, Length, true);
}

VX_STATUS VX_Get_Next_Value(int32_t MsgID, uint32_t Tag, VX_DATA_TYPE DataType, uint32_t BufferSize,
                            void* Buffer, uint32_t* Length) {
  return get_any(MsgID, Tag, DataType, BufferSize, Buffer, Length, false);
}

VX_STATUS VX_Get_Value_To_String(int32_t MsgID, uint32_t Tag, int32_t BufferSize, char* Buffer) {
  return get_text(MsgID, Tag, BufferSize, Buffer, true);
}

VX_STATUS VX_Get_Next_Value_To_String(int32_t MsgID, uint32_t Tag, int32_t BufferSize, char* Buffer) {
  return get_text(MsgID, Tag, BufferSize, Buffer, false);
}

VX_STATUS VX_Get_Value_To_Int(int32_t MsgID, uint32_t Tag, int32_t* Value) {
  return get_number(MsgID, Tag, VX_INT_TYPE, Value, true);
}

VX_STATUS VX_Get_Next_Value_To_Int(int32_t MsgID, uint32_t Tag, int32_t* Value) {
  return get_number(MsgID, Tag, VX_INT_TYPE, Value, false);
}

VX_STATUS VX_Get_Value_To_UInt(int32_t MsgID, uint32_t Tag, uint32_t* Value) {
  return get_number(MsgID, Tag, VX_UINT_TYPE, Value, true);
}

VX_STATUS VX_Get_Next_Value_To_UInt(int32_t MsgID, uint32_t Tag, uint32_t* Value) {
  return get_number(MsgID, Tag, VX_UINT_TYPE, Value, false);
}

VX_STATUS VX_Get_Value_To_ShortInt(int32_t MsgID, uint32_t Tag, int16_t* Value) {
  return get_number(MsgID, Tag, VX_SHORTINT_TYPE, Value, true);
}

VX_STATUS VX_Get_Next_Value_To_ShortInt(int32_t MsgID, uint32_t Tag, int16_t* Value) {
  return get_number(MsgID, Tag, VX_SHORTINT_TYPE, Value, false);
}

VX_STATUS VX_Get_Value_To_UShortInt(int32_t MsgID, uint32_t Tag, uint16_t* Value) {
  return get_number(MsgID, Tag, VX_USHORTINT_TYPE, Value, true);
}

VX_STATUS VX_Get_Next_Value_To_UShortInt(int32_t MsgID, uint32_t Tag, uint16_t* Value) {
  return get_number(MsgID, Tag, VX_USHORTINT_TYPE, Value, false);
}

VX_STATUS VX_Get_Value_To_LongInt(int32_t MsgID, uint32_t Tag, int32_t* Value) {
  return get_number(MsgID, Tag, VX_LONGINT_TYPE, Value, true);
}

VX_STATUS VX_Get_Next_Value_To_LongInt(int32_t MsgID, uint32_t Tag, int32_t* Value) {
  return get_number(MsgID, Tag, VX_LONGINT_TYPE, Value, false);
}

VX_STATUS VX_Get_Value_To_ULongInt(int32_t MsgID, uint32_t Tag, uint32_t* Value) {
  return get_number(MsgID, Tag, VX_ULONGINT_TYPE, Value, true);
}

VX_STATUS VX_Get_Next_Value_To_ULongInt(int32_t MsgID, uint32_t Tag, uint32_t* Value) {
  return get_number(MsgID, Tag, VX_ULONGINT_TYPE, Value, false);
}

VX_STATUS VX_Get_Value_To_Float(int32_t MsgID, uint32_t Tag, float* Value) {
  return get_number(MsgID, Tag, VX_FLOAT_TYPE, Value, true);
}

VX_STATUS VX_Get_Next_Value_To_Float(int32_t MsgID, uint32_t Tag, float* Value) {
  return get_number(MsgID, Tag, VX_FLOAT_TYPE, Value, false);
}

VX_STATUS VX_Get_Value_To_Double(int32_t MsgID, uint32_t Tag, double* Value) {
  return get_number(MsgID, Tag, VX_DOUBLE_TYPE, Value, true);
}

VX_STATUS VX_Get_Next_Value_To_Double(int32_t MsgID, uint32_t Tag, double* Value) {
  return get_number(MsgID, Tag, VX_DOUBLE_TYPE, Value, false);
}

}  // extern "C"
