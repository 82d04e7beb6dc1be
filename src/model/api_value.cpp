// Exported functions of values that do not convert.
#include "config/config.h"
#include "frame/state.h"
#include "model/attributes.h"
#include "model/held.h"
#include "model/values.h"
#include "vexalkit.h"

using namespace vx;

namespace {

// Runs work(object, attribute) on an attribute that must be there.
template <typename Work>
VX_STATUS with_attribute(int32_t id, uint32_t tag, Work work) {
  MsgObj* object;
  TagObj* attribute;
  const VX_STATUS status = find_attribute(id, tag, object, attribute);
  return status == kOk ? work(*object, *attribute) : status;
}

// The same for work that changes the value.
template <typename Work>
VX_STATUS with_changeable_attribute(int32_t id, uint32_t tag, Work work) {
  return with_attribute(id, tag, [&](MsgObj& object, TagObj& attribute) {
    return is_value_held(object, attribute) ? VX_STATE_VIOLATION : work(object, attribute);
  });
}

// The same; an attribute that is not there is added as far as the object takes it.
template <typename Work>
VX_STATUS with_added_attribute(int32_t id, uint32_t tag, Work work) {
  MsgObj* object = find_object(id);
  if (object == nullptr) return VX_INVALID_MESSAGE_ID;
  TagObj* attribute;
  const VX_STATUS status = find_to_change(*object, tag, attribute);
  return status == kOk ? work(*object, *attribute) : status;
}

}  // namespace

VX_STATUS VX_Get_Value_Count(int32_t MsgID, uint32_t Tag, int32_t* Count) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Count);
  return with_attribute(
      MsgID, Tag, [=](const MsgObj&, const TagObj& attribute) { return value_count(attribute, *Count); });
}

VX_STATUS VX_Get_Value_Length(int32_t MsgID, uint32_t Tag, int32_t ValueNumber, uint32_t* Length) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Length);
  return with_attribute(MsgID, Tag, [=](MsgObj& object, TagObj& attribute) {
    return value_length(object, attribute, ValueNumber, *Length);
  });
}

VX_STATUS VX_Get_Value_To_Buffer(int32_t MsgID, uint32_t Tag, uint32_t BufferSize, void* Buffer,
                                 uint32_t* Length) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Buffer);
  VX_REQUIRE_POINTER(Length);
  return with_attribute(MsgID, Tag, [=](const MsgObj&, const TagObj& attribute) {
    return value_to_buffer(attribute, BufferSize, Buffer, *Length);
  });
}

VX_STATUS VX_Get_Value_To_Function(int32_t MsgID, uint32_t Tag, void* UserInfo, VX_READER_FUNCTION Function) {
  VX_REQUIRE_LIBRARY();
  return with_attribute(MsgID, Tag, [=](MsgObj& object, TagObj& attribute) {
    return Function != nullptr ? value_to_function(object, attribute, UserInfo, Function)
                               : VX_NULL_POINTER_PARM;
  });
}

VX_STATUS VX_Set_Value_To_Empty(int32_t MsgID, uint32_t Tag) {
  VX_REQUIRE_LIBRARY();
  return with_added_attribute(MsgID, Tag, [](MsgObj& object, TagObj& attribute) {
    clear_value(object, attribute, false, config_bool(VX_CFG_RELEASE_SQ_ITEMS));
    return kOk;
  });
}

VX_STATUS VX_Set_Value_To_NULL(int32_t MsgID, uint32_t Tag) {
  VX_REQUIRE_LIBRARY();
  return with_added_attribute(MsgID, Tag, set_null);
}

VX_STATUS VX_Set_Next_Value_To_NULL(int32_t MsgID, uint32_t Tag) {
  VX_REQUIRE_LIBRARY();
  return with_added_attribute(MsgID, Tag,
                              [](MsgObj&, TagObj& attribute) { return set_next_null(attribute); });
}

VX_STATUS VX_Set_Value_From_Buffer(int32_t MsgID, uint32_t Tag, const void* Buffer, uint32_t Length) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Buffer);
  return with_added_attribute(MsgID, Tag, [=](MsgObj& object, TagObj& attribute) {
    return value_from_buffer(object, attribute, Buffer, Length);
  });
}

VX_STATUS VX_Set_Value_From_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                     VX_WRITER_FUNCTION Function) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Function);
  return with_added_attribute(MsgID, Tag, [=](MsgObj& object, TagObj& attribute) {
    return value_from_function(object, attribute, UserInfo, Function);
  });
}

VX_STATUS VX_Delete_Current_Value(int32_t MsgID, uint32_t Tag) {
  VX_REQUIRE_LIBRARY();
  return with_changeable_attribute(MsgID, Tag, delete_current_value);
}

VX_STATUS VX_Byte_Swap_OBOW(int32_t MsgID, uint32_t Tag) {
  VX_REQUIRE_LIBRARY();
  return with_changeable_attribute(MsgID, Tag,
                                   [](const MsgObj&, TagObj& attribute) { return swap_value(attribute); });
}
