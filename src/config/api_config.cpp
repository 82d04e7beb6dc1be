#include <cstring>

#include "config/config.h"
#include "frame/lock.h"
#include "frame/no_throw.h"
#include "frame/state.h"
#include "frame/text.h"

using namespace vx;

extern "C" {

VX_STATUS VX_Set_Int_Config_Value(VX_INT_KEY Key, int32_t Value) {
  VX_REQUIRE_LIBRARY();
  return no_throw([&] { return config_set_int(Key, Value); });
}

VX_STATUS VX_Get_Int_Config_Value(VX_INT_KEY Key, int32_t* Value) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Value);
  *Value = 0;
  if (Key < 0 || Key >= VX_INT_KEY_COUNT) return VX_INVALID_PARAMETER_NAME;
  *Value = config_int(Key);
  return kOk;
}

VX_STATUS VX_Set_Long_Config_Value(VX_LONG_KEY Key, int32_t Value) {
  VX_REQUIRE_LIBRARY();
  return no_throw([&] { return config_set_long(Key, Value); });
}

VX_STATUS VX_Get_Long_Config_Value(VX_LONG_KEY Key, int32_t* Value) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Value);
  *Value = 0;
  if (Key < 0 || Key >= VX_LONG_KEY_COUNT) return VX_INVALID_PARAMETER_NAME;
  *Value = config_long(Key);
  return kOk;
}

VX_STATUS VX_Set_Bool_Config_Value(VX_BOOL_KEY Key, int32_t Value) {
  VX_REQUIRE_LIBRARY();
  return no_throw([&] { return config_set_bool(Key, Value != 0); });
}

VX_STATUS VX_Get_Bool_Config_Value(VX_BOOL_KEY Key, int32_t* Value) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Value);
  *Value = 0;
  if (Key < 0 || Key >= VX_BOOL_KEY_COUNT) return VX_INVALID_PARAMETER_NAME;
  *Value = config_bool(Key) ? 1 : 0;
  return kOk;
}

VX_STATUS VX_Set_String_Config_Value(VX_STRING_KEY Key, const char* Value) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Value);
  return no_throw([&] { return config_set_text(Key, Value); });
}

VX_STATUS VX_Get_String_Config_Value(VX_STRING_KEY Key, int32_t BufferSize, char* Buffer) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Buffer);
  if (Key < 0 || Key >= VX_STRING_KEY_COUNT) return VX_INVALID_PARAMETER_NAME;
  const Guard guard(state().charParamSemaphore);
  const char* text = config().string_values[Key];
  const std::size_t size = std::strlen(text) + 1;
  if (BufferSize < 1 || static_cast<std::size_t>(BufferSize) < size) return VX_BUFFER_TOO_SMALL;
  std::memcpy(Buffer, text, size);
  return kOk;
}

VX_STATUS VX_Set_Log_Destination(VX_LOG_KEY Key, uint32_t Destination) {
  VX_REQUIRE_LIBRARY();
  return no_throw([&] { return config_set_destination(Key, Destination); });
}

VX_STATUS VX_Get_Log_Destination(VX_LOG_KEY Key, uint32_t* Destination) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Destination);
  *Destination = 0;
  if (Key < 0 || Key >= VX_LOG_KEY_COUNT) return VX_INVALID_PARAMETER_NAME;
  *Destination = std::atomic_ref<uint32_t>(config().log_destinations[Key]).load(std::memory_order_relaxed);
  return kOk;
}

}  // extern "C"
