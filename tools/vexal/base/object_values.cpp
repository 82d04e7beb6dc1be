#include "object_values.h"

#include <cmath>

#include "thrown.h"
#include "vexalkit.h"

namespace vexal {
namespace {

VX_STATUS append(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  if (size != 0) static_cast<std::string*>(user)->append(static_cast<const char*>(data), size);
  return VX_NORMAL_COMPLETION;
}

}  // namespace

uint32_t number_of(int32_t id, uint32_t tag, uint32_t otherwise) {
  uint32_t value = 0;
  return VX_Get_Value_To_UInt(id, tag, &value) == VX_NORMAL_COMPLETION ? value : otherwise;
}

std::optional<double> real_of(int32_t id, uint32_t tag, int number) {
  double value = 0;
  VX_STATUS status = VX_Get_Value_To_Double(id, tag, &value);
  for (int i = 1; i < number && status == VX_NORMAL_COMPLETION; ++i) {
    status = VX_Get_Next_Value_To_Double(id, tag, &value);
  }
  if (status != VX_NORMAL_COMPLETION || !std::isfinite(value)) return std::nullopt;
  return value;
}

int32_t item_of(int32_t id, uint32_t tag, uint32_t number) {
  int32_t item = -1;
  if (VX_Get_Value_To_Int(id, tag, &item) != VX_NORMAL_COMPLETION) return -1;
  for (uint32_t i = 0; i < number; ++i) {
    if (VX_Get_Next_Value_To_Int(id, tag, &item) != VX_NORMAL_COMPLETION) return -1;
  }
  return item;
}

std::vector<int32_t> integers_of(int32_t id, uint32_t tag) {
  std::vector<int32_t> values;
  int32_t value = 0;
  VX_STATUS status = VX_Get_Value_To_Int(id, tag, &value);
  while (status == VX_NORMAL_COMPLETION) {
    values.push_back(value);
    status = VX_Get_Next_Value_To_Int(id, tag, &value);
  }
  return values;
}

std::string bytes_of(int32_t id, uint32_t tag) {
  std::string bytes;
  VX_Get_Value_To_Function(id, tag, &bytes, guarded<append>);
  return bytes;
}

}  // namespace vexal
