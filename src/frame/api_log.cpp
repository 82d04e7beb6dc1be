#include <cstdarg>

#include "frame/log.h"
#include "frame/state.h"

using namespace vx;

extern "C" {

int32_t VXlog(uint32_t Level, const char* Format, ...) {
  va_list values;
  va_start(values, Format);
  const int result = log_line_v(Level, nullptr, Format, values);
  va_end(values);
  return result;
}

int32_t VXlog_Function(const char* FunctionName, uint32_t Level, const char* Format, ...) {
  va_list values;
  va_start(values, Format);
  const int result = log_line_v(Level, FunctionName, Format, values);
  va_end(values);
  return result;
}

const char* VX_Set_Log_Prefix(const char* Prefix) {
  return log_set_prefix(Prefix);
}

void VX_Register_MemoryLog_Function(VX_LOG_FUNCTION Function) {
  log_register(Function);
}

void VX_Register_Enhanced_MemoryLog_Function(VX_ENHANCED_LOG_FUNCTION Function) {
  log_register_enhanced(Function);
}

VX_STATUS VX_MemoryLog_To_Function(int32_t Clear, VX_MEMORY_LOG_READER Callback) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Callback);
  return log_memory_to_function(Clear != 0, Callback);
}

}  // extern "C"
