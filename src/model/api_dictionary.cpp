// Exported functions of the data dictionary.

#include <string_view>

#include "frame/state.h"
#include "model/dictionary.h"
#include "model/object.h"

namespace {

// The tag of a private attribute; the block byte has no meaning. 0 for a group that is not private.
uint32_t private_tag(uint16_t group, uint8_t element) {
  return vx::is_private_group(group) ? (static_cast<uint32_t>(group) << 16) | 0x1000U | element : 0;
}

VX_STATUS describe(uint32_t tag, std::string_view creator, char* buffer, int32_t size, VX_VR* vr,
                   uint16_t* low, uint16_t* high) {
  if (size < 1) return VX_BUFFER_TOO_SMALL;
  vx::DictInfo info{-1, 0, 0, nullptr};
  const VX_STATUS status = vx::dictionary_describe(tag, creator, info, buffer, size);
  if (info.vr < 0) return status;
  *vr = info.vr;
  *low = info.vm_low;
  *high = info.vm_high;
  return status;
}

}  // namespace

extern "C" {

VX_STATUS VX_Get_Tag_Info(uint32_t Tag, char* Buffer, int32_t BufferSize) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Buffer);
  return vx::dictionary_name(Tag, {}, Buffer, BufferSize);
}

VX_STATUS VX_Get_Tags_Dict_Info(uint32_t Tag, char* Buffer, int32_t BufferSize, VX_VR* VR, uint16_t* VMLow,
                                uint16_t* VMHigh) {
  VX_REQUIRE_LIBRARY();
  if (Tag == 0 || Buffer == nullptr || VR == nullptr || VMLow == nullptr || VMHigh == nullptr) {
    return VX_NULL_POINTER_PARM;
  }
  return describe(Tag, {}, Buffer, BufferSize, VR, VMLow, VMHigh);
}

VX_STATUS VX_Get_pTag_Info(const char* PrivateCode, uint16_t Group, uint8_t Element, char* Buffer,
                           int32_t BufferSize) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(PrivateCode);
  VX_REQUIRE_POINTER(Buffer);
  const uint32_t tag = private_tag(Group, Element);
  return tag == 0 ? VX_INVALID_TAG : vx::dictionary_name(tag, PrivateCode, Buffer, BufferSize);
}

VX_STATUS VX_Get_pTags_Dict_Info(const char* PrivateCode, uint16_t Group, uint8_t Element, char* Buffer,
                                 int32_t BufferSize, VX_VR* VR, uint16_t* VMLow, uint16_t* VMHigh) {
  VX_REQUIRE_LIBRARY();
  if (PrivateCode == nullptr || Buffer == nullptr || VR == nullptr || VMLow == nullptr || VMHigh == nullptr) {
    return VX_NULL_POINTER_PARM;
  }
  const uint32_t tag = private_tag(Group, Element);
  return tag == 0 ? VX_INVALID_TAG : describe(tag, PrivateCode, Buffer, BufferSize, VR, VMLow, VMHigh);
}

VX_STATUS VX_Get_Tag_Keyword(uint32_t Tag, char* Buffer, int32_t BufferSize) {
  VX_REQUIRE_LIBRARY();
  return vx::dictionary_keyword(Tag, Buffer, BufferSize);
}

}  // extern "C"
