// JSON from hostile bytes, in both forms; what was read is written and read again.
#include <cstdint>
#include <string>

#include "library.h"
#include "vexalkit.h"

namespace {

VX_STATUS give(int32_t, void* user, uint32_t* size, void** data, int32_t, int32_t* last) {
  auto& text = *static_cast<std::string*>(user);
  *data = text.data();
  *size = static_cast<uint32_t>(text.size());
  *last = 1;
  return VX_NORMAL_COMPLETION;
}
VX_STATUS take(int32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  static_cast<std::string*>(user)->append(static_cast<const char*>(data), size);
  return VX_NORMAL_COMPLETION;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz::start_library();
  if (size == 0) return 0;
  const int32_t form = (data[0] & 1) != 0 ? VX_JSON_STANDARD : 0;
  std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  int32_t message = -1;
  int32_t copy = -1;
  if (VX_Open_Empty_Message(&message) != VX_NORMAL_COMPLETION) __builtin_trap();
  if (VX_Open_Empty_Message(&copy) != VX_NORMAL_COMPLETION) __builtin_trap();
  VX_Json_To_Message_With_Options(message, &text, form, &give);
  std::string again;
  const int32_t options = form | VX_JSON_INCLUDE_BULK | VX_JSON_INCLUDE_PIXEL_DATA;
  const VX_STATUS status = VX_Message_To_Json(message, &again, options, &take);
  if (status != VX_NORMAL_COMPLETION && status != VX_MESSAGE_EMPTY) __builtin_trap();
  // What the writer makes is JSON.
  if (status == VX_NORMAL_COMPLETION &&
      VX_Json_To_Message_With_Options(copy, &again, form, &give) == VX_CALLBACK_CANNOT_COMPLY)
    __builtin_trap();
  VX_Free_Message(&copy);
  VX_Free_Message(&message);
  return 0;
}
