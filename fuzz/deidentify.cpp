// De-identification of whatever can be decoded. The first bytes choose options, service and transfer syntax;
// the templates are the real ones. What is done has left no name and no private attribute, can be done again,
// and can be written.
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>

#include "real_library.h"

namespace {

using fuzz::require;
using fuzz::Source;

VX_STATUS output(int32_t, void*, uint32_t, void*, int32_t, int32_t) {
  return VX_NORMAL_COMPLETION;
}
VX_STATUS report(int32_t object, uint32_t tag, const char* path, char action, void*) {
  const bool known = VX_Get_Attribute_Info(object, tag, nullptr, nullptr) == VX_NORMAL_COMPLETION;
  return known && std::strlen(path) >= 8 && std::strchr("XZDUC", action) != nullptr ? VX_NORMAL_COMPLETION
                                                                                    : VX_CANNOT_COMPLY;
}

void start_library() {
  static const bool started = [] {
    fuzz::start_real_library();
    return true;
  }();
  require(started);
}

bool is_private(uint32_t tag) {
  const uint32_t group = tag >> 16;
  return group % 2 == 1 && group > 7 && group != 0xFFFF;
}

// Names that are none, and nothing private; the items below too.
void look_at(int32_t object, bool private_may_stay) {
  uint32_t tag = 0;
  VX_VR vr = 0;
  VX_STATUS status = VX_Get_First_Attribute(object, &tag, &vr, nullptr);
  for (; status == VX_NORMAL_COMPLETION; status = VX_Get_Next_Attribute(object, &tag, &vr, nullptr)) {
    require(private_may_stay || !is_private(tag));
    char text[64] = "";
    if (vr == VX_VR_PN && VX_Get_Value_To_String(object, tag, sizeof text, text) == VX_NORMAL_COMPLETION)
      require(*text == '\0' || std::strncmp(text, "ANON", 4) == 0 || private_may_stay);
    if (vr != VX_VR_SQ) continue;
    int32_t item = -1;
    for (VX_STATUS found = VX_Get_Value_To_Int(object, tag, &item); found == VX_NORMAL_COMPLETION;
         found = VX_Get_Next_Value_To_Int(object, tag, &item))
      look_at(item, private_may_stay);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  constexpr VX_TRANSFER_SYNTAX kSyntaxes[] = {EXPLICIT_LITTLE_ENDIAN, IMPLICIT_LITTLE_ENDIAN,
                                              EXPLICIT_BIG_ENDIAN};
  start_library();
  if (size < 4) return 0;
  const uint32_t options = (data[0] | uint32_t{data[1]} << 8) & ~uint32_t{VX_RETAIN_FULL_DATES};
  Source source{{reinterpret_cast<const char*>(data) + 4, (size - 4) & ~std::size_t{1}}};
  int32_t id = -1;
  uint32_t error_tag = 0;
  require(VX_Open_Empty_Message(&id) == VX_NORMAL_COMPLETION);
  const VX_TRANSFER_SYNTAX syntax = kSyntaxes[data[3] % std::size(kSyntaxes)];
  VX_Stream_To_Message(id, 0x00080000, 0xFFFFFFFFU, syntax, &error_tag, &source, &fuzz::give);
  // A service that is a directory makes the object one, which is refused.
  if (data[2] != 0) VX_Set_Service_Command(id, Services[data[2] % 220], C_STORE_RQ);
  const VX_DEIDENTIFICATION how = {options, 0, "sixteen letters.", 16, report, nullptr};
  for (int times = 0; times < 2; ++times) {
    const VX_STATUS status = VX_Deidentify_Message(id, &how);
    require(status == VX_NORMAL_COMPLETION ||
            (times == 0 && (status == VX_INVALID_SOP_CLASS_UID || status == VX_VALUE_NOT_ALLOWED ||
                            status == VX_INVALID_MESSAGE_ID)));
    if (status != VX_NORMAL_COMPLETION) break;
    look_at(id, (options & VX_RETAIN_SAFE_PRIVATE) != 0);
    VX_Message_To_Stream(id, 0, 0xFFFFFFFFU, syntax, nullptr, output);
  }
  VX_Free_Message(&id);
  return 0;
}
