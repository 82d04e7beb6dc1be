// Exported functions of encapsulated values.
#include "frame/state.h"
#include "model/attributes.h"
#include "model/held.h"
#include "pixel/encapsulated.h"

using namespace vx;

namespace {

// Runs work(object, attribute) on an attribute that a frame may be written to.
template <typename Work>
VX_STATUS with_writable(int32_t id, uint32_t tag, Work work) {
  MsgObj* object = find_object(id);
  if (object == nullptr) return VX_INVALID_MESSAGE_ID;
  TagObj* attribute = nullptr;
  if (VX_STATUS status = find_to_change(*object, tag, attribute); status != kOk) return status;
  if (attribute->VR != VX_VR_OB && attribute->VR != VX_VR_OW) return VX_INCOMPATIBLE_VR;
  const Held held(*object, Hold::Value, attribute);
  return work(*object, *attribute);
}

VX_STATUS set(int32_t id, uint32_t tag, void* user, VX_Set_Encapsulated_Callback callback, bool first) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(callback);
  return with_writable(id, tag, [=](MsgObj& object, TagObj& attribute) {
    return set_encapsulated(object, attribute, user, callback, first);
  });
}

VX_STATUS get(int32_t id, uint32_t tag, void* user, VX_Get_Encapsulated_Callback callback, bool next) {
  VX_REQUIRE_LIBRARY();
  MsgObj* object = nullptr;
  TagObj* attribute = nullptr;
  if (VX_STATUS status = find_attribute(id, tag, object, attribute); status != kOk) return status;
  VX_REQUIRE_POINTER(callback);
  const Held held(*object, Hold::Value, attribute);
  return get_encapsulated(*object, *attribute, user, callback, next);
}

}  // namespace

VX_STATUS VX_Set_Encapsulated_Value_From_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                                  VX_Set_Encapsulated_Callback Callback) {
  return set(MsgID, Tag, UserInfo, Callback, true);
}

VX_STATUS VX_Set_Next_Encapsulated_Value_From_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                                       VX_Set_Encapsulated_Callback Callback) {
  return set(MsgID, Tag, UserInfo, Callback, false);
}

VX_STATUS VX_Close_Encapsulated_Value(int32_t MsgID, uint32_t Tag) {
  VX_REQUIRE_LIBRARY();
  return with_writable(MsgID, Tag, close_encapsulated);
}

VX_STATUS VX_Get_Encapsulated_Value_To_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                                VX_Get_Encapsulated_Callback Callback) {
  return get(MsgID, Tag, UserInfo, Callback, false);
}

VX_STATUS VX_Get_Next_Encapsulated_Value_To_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                                     VX_Get_Encapsulated_Callback Callback) {
  return get(MsgID, Tag, UserInfo, Callback, true);
}

VX_STATUS VX_Get_Frame_To_Function(int32_t MsgID, int32_t FrameNumber, void* UserInfo,
                                   VX_Get_Encapsulated_Callback Callback) {
  VX_REQUIRE_LIBRARY();
  MsgObj* object = nullptr;
  TagObj* attribute = nullptr;
  if (VX_STATUS status = find_attribute(MsgID, kPixelData, object, attribute); status != kOk) return status;
  VX_REQUIRE_POINTER(Callback);
  const Held held(*object, Hold::Value, attribute);
  return get_frame(*object, *attribute, FrameNumber, UserInfo, Callback);
}

VX_STATUS VX_Get_Offset_Table_To_Function(int32_t MsgID, void* UserInfo,
                                          VX_Get_Encapsulated_Callback Callback) {
  VX_REQUIRE_LIBRARY();
  MsgObj* object = nullptr;
  TagObj* attribute = nullptr;
  if (VX_STATUS status = find_attribute(MsgID, kPixelData, object, attribute); status != kOk) return status;
  VX_REQUIRE_POINTER(Callback);
  if (attribute->VR < VX_VR_SS || attribute->VR == VX_VR_UN || attribute->VR == VX_VR_SQ)
    return VX_INCOMPATIBLE_VR;
  const Held held(*object, Hold::Value, attribute);
  return get_offset_table(*object, *attribute, UserInfo, Callback);
}
