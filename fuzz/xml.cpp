// XML from hostile bytes, in both forms; what was read is written and read again.
#include <cstdint>
#include <string>

#include "library.h"
#include "vexalkit.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz::start_library();
  if (size == 0) return 0;
  const bool native = (data[0] & 1) != 0;
  const auto read = native ? &VX_XML_Native_To_Message : &VX_XML_To_Message;
  const auto write = native ? &VX_Message_To_XML_Native : &VX_Message_To_XML;
  std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  int32_t message = -1;
  int32_t copy = -1;
  if (VX_Open_Empty_Message(&message) != VX_NORMAL_COMPLETION) __builtin_trap();
  if (VX_Open_Empty_Message(&copy) != VX_NORMAL_COMPLETION) __builtin_trap();
  read(message, &text, &fuzz::give_text);
  std::string again;
  const VX_STATUS status = write(
      message, &again, VX_XML_INCLUDE_BULK | VX_XML_INCLUDE_PIXEL_DATA | VX_XML_BASE64, &fuzz::take_text);
  if (status != VX_NORMAL_COMPLETION && status != VX_MESSAGE_EMPTY) __builtin_trap();
  // What the writer makes is XML.
  if (status == VX_NORMAL_COMPLETION && read(copy, &again, &fuzz::give_text) != VX_NORMAL_COMPLETION)
    __builtin_trap();
  VX_Free_Message(&copy);
  VX_Free_Message(&message);
  return 0;
}
