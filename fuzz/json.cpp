// JSON from hostile bytes, in both forms; what was read is written and read again. The reader takes what
// jansson takes, but for numbers of any size and keys with NUL.
#include <jansson.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "library.h"
#include "vexalkit.h"

namespace {

// Texts that jansson refuses and the reader takes, or the other way, on purpose; to jansson, a NUL may be the
// end.
bool is_known_difference(const std::string& text, enum json_error_code code) {
  return text.find('\0') != std::string::npos || code == json_error_numeric_overflow ||
         code == json_error_null_byte_in_key ||
         std::count_if(text.begin(), text.end(), [](char c) { return c == '[' || c == '{'; }) > 1000;
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
  const bool refused =
      VX_Json_To_Message_With_Options(message, &text, form, &fuzz::give_text) == VX_CALLBACK_CANNOT_COMPLY;
  json_error_t error{};
  json_t* peer = json_loadb(text.data(), text.size(), JSON_DECODE_ANY | JSON_ALLOW_NUL, &error);
  if (refused != (peer == nullptr) &&
      !is_known_difference(text, peer != nullptr ? json_error_unknown : json_error_code(&error)))
    __builtin_trap();
  json_decref(peer);
  std::string again;
  const int32_t options = form | VX_JSON_INCLUDE_BULK | VX_JSON_INCLUDE_PIXEL_DATA;
  const VX_STATUS status = VX_Message_To_Json(message, &again, options, &fuzz::take_text);
  if (status != VX_NORMAL_COMPLETION && status != VX_MESSAGE_EMPTY) __builtin_trap();
  // What the writer makes is JSON.
  if (status == VX_NORMAL_COMPLETION &&
      VX_Json_To_Message_With_Options(copy, &again, form, &fuzz::give_text) == VX_CALLBACK_CANNOT_COMPLY)
    __builtin_trap();
  VX_Free_Message(&copy);
  VX_Free_Message(&message);
  return 0;
}
