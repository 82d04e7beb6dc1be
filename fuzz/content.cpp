// The content of a report held against its template, on hostile data sets: whatever was decoded is judged, in
// memory that goes with it, every finding lies in the object, and the data are the same afterwards.
#include "../tools/vexal/standard/report_content.h"

#include <cstdint>
#include <string>

#include "library.h"

namespace {

void require(bool condition) {
  if (!condition) __builtin_trap();
}
VX_STATUS input(int32_t id, void* user, int32_t, uint32_t* size, void** data, int32_t* last) {
  return fuzz::give_text(id, user, size, data, 1, last);
}
std::string encode(int32_t id) {
  std::string bytes;
  VX_Message_To_Stream(id, 0, 0xFFFFFFFFU, EXPLICIT_LITTLE_ENDIAN, &bytes, &fuzz::take_text);
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz::start_library();
  std::string bytes(reinterpret_cast<const char*>(data), size & ~std::size_t{1});
  int32_t id = -1;
  uint32_t tag = 0;
  require(VX_Open_Empty_Message(&id) == VX_NORMAL_COMPLETION);
  VX_Stream_To_Message(id, 0, 0xFFFFFFFFU, EXPLICIT_LITTLE_ENDIAN, &tag, &bytes, &input);
  const std::string before = encode(id);
  for (const vexal::ContentFinding& finding : vexal::check_report_content(id)) {
    require(finding.severity >= 0 && finding.severity < 3 && finding.reason.starts_with("1"));
    VX_VR vr = 0;
    int32_t count = 0;
    require(VX_Get_Attribute_Info(finding.what.MsgItemID, finding.what.Tag, &vr, &count) !=
            VX_INVALID_MESSAGE_ID);
  }
  require(encode(id) == before);
  require(VX_Free_Message(&id) == VX_NORMAL_COMPLETION);
  return 0;
}
