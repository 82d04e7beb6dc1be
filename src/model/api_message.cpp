// Exported functions of messages, items and their attributes.
#include "config/services.h"
#include "frame/state.h"
#include "model/attributes.h"
#include "model/deferred.h"
#include "model/held.h"
#include "vexalkit.h"

using namespace vx;

namespace {

// Hands the ID of a fresh object out, or -1.
VX_STATUS give_id(int32_t* id, VX_STATUS status, const MsgObj* object) {
  *id = status == kOk ? object->ID : -1;
  return status;
}

VX_STATUS open_empty(int32_t* id, Kind kind) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(id);
  end_parked_objects();
  MsgObj* object;
  const VX_STATUS status = open_object(kind, kNoName, object);
  return give_id(id, status, object);
}

VX_STATUS free_by_id(int32_t* id, const char* function, VX_STATUS bad_id) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(id);
  end_parked_objects();
  MsgObj* object = find_object(*id);
  if (object == nullptr) return bad_id;
  const VX_STATUS status = free_object(*object, function, bad_id);
  if (status == kOk) *id = -1;
  return status;
}

VX_STATUS empty_by_id(int32_t id, Kind kind, VX_STATUS bad_id) {
  VX_REQUIRE_LIBRARY();
  MsgObj* object = find_object(id);
  if (object == nullptr || object->ObjectKind != kind) return bad_id;
  if (is_range_held(*object, 0, 0xFFFFFFFFU)) return VX_STATE_VIOLATION;
  empty_object(*object);
  return kOk;
}

// The kinds that have a service and a command.
MsgObj* find_with_service(int32_t id) {
  MsgObj* object = find_object(id);
  return object != nullptr && (object->ObjectKind == Kind::Message || is_file(*object)) ? object : nullptr;
}

// Runs work(object) on the object of an ID.
template <typename Work>
VX_STATUS with_object(int32_t id, Work work) {
  VX_REQUIRE_LIBRARY();
  MsgObj* object = find_object(id);
  return object != nullptr ? work(*object) : VX_INVALID_MESSAGE_ID;
}

}  // namespace

VX_STATUS VX_Open_Empty_Message(int32_t* MsgID) {
  return open_empty(MsgID, Kind::Message);
}

VX_STATUS VX_Open_Empty_Item(int32_t* ItemID) {
  return open_empty(ItemID, Kind::Item);
}

VX_STATUS VX_Open_Message(int32_t* MsgID, const char* ServiceName, uint16_t Command) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(MsgID);
  *MsgID = -1;
  end_parked_objects();
  VX_REQUIRE_POINTER(ServiceName);
  if (!is_valid_command(Command)) return VX_INVALID_COMMAND;
  MsgObj* object;
  const VX_STATUS status = open_message(ServiceName, Command, object);
  return give_id(MsgID, status, object);
}

VX_STATUS VX_Open_Item(int32_t* ItemID, const char* ItemName) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(ItemID);
  *ItemID = -1;
  VX_REQUIRE_POINTER(ItemName);
  MsgObj* object;
  const VX_STATUS status = open_item(ItemName, object);
  return give_id(ItemID, status, object);
}

VX_STATUS VX_Free_Message(int32_t* MsgID) {
  return free_by_id(MsgID, "VX_Free_Message", VX_INVALID_MESSAGE_ID);
}

VX_STATUS VX_Free_Item(int32_t* ItemID) {
  return free_by_id(ItemID, "VX_Free_Item", VX_INVALID_ITEM_ID);
}

VX_STATUS VX_Empty_Message(int32_t MsgID) {
  return empty_by_id(MsgID, Kind::Message, VX_INVALID_MESSAGE_ID);
}

VX_STATUS VX_Empty_Item(int32_t ItemID) {
  return empty_by_id(ItemID, Kind::Item, VX_INVALID_ITEM_ID);
}

VX_STATUS VX_Set_Service_Command(int32_t MsgID, const char* ServiceName, uint16_t Command) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(ServiceName);
  if (!is_valid_command(Command)) return VX_INVALID_COMMAND;
  MsgObj* object = find_with_service(MsgID);
  if (object == nullptr) return VX_INVALID_MESSAGE_ID;
  return is_growth_held(*object) ? VX_STATE_VIOLATION : set_service_command(*object, ServiceName, Command);
}

VX_STATUS VX_Get_Message_Service(int32_t MsgID, const char** ServiceName, uint16_t* Command) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(ServiceName);
  VX_REQUIRE_POINTER(Command);
  const MsgObj* object = find_with_service(MsgID);
  if (object == nullptr) return VX_INVALID_MESSAGE_ID;
  *ServiceName = object->ServiceName;
  *Command = object->Command;
  return kOk;
}

VX_STATUS VX_Add_Standard_Attribute(int32_t MsgID, uint32_t Tag) {
  return with_object(MsgID, [=](MsgObj& object) {
    const VX_STATUS status = is_growth_held(object) ? VX_STATE_VIOLATION : decode_up_to(object, Tag);
    return status == kOk ? add_standard_attribute(object, Tag, nullptr) : status;
  });
}

VX_STATUS VX_Add_Nonstandard_Attribute(int32_t MsgID, uint32_t Tag, VX_VR VR) {
  return with_object(MsgID, [=](MsgObj& object) {
    const VX_STATUS status = is_growth_held(object) ? VX_STATE_VIOLATION : decode_up_to(object, Tag);
    return status == kOk ? add_nonstandard_attribute(object, Tag, VR, nullptr) : status;
  });
}

VX_STATUS VX_Delete_Attribute(int32_t MsgID, uint32_t Tag) {
  return with_object(MsgID, [=](MsgObj& object) {
    return is_range_held(object, Tag, Tag) ? VX_STATE_VIOLATION : delete_attribute(object, Tag);
  });
}

VX_STATUS VX_Delete_Range(int32_t MsgID, uint32_t FirstTag, uint32_t LastTag) {
  return with_object(MsgID, [=](MsgObj& object) {
    return is_range_held(object, FirstTag, LastTag) ? VX_STATE_VIOLATION
                                                    : delete_range(object, FirstTag, LastTag);
  });
}

VX_STATUS VX_Get_First_Attribute(int32_t MsgID, uint32_t* Tag, VX_VR* VR, int32_t* Count) {
  return with_object(MsgID, [=](MsgObj& object) { return first_attribute(object, Tag, VR, Count); });
}

VX_STATUS VX_Get_Next_Attribute(int32_t MsgID, uint32_t* Tag, VX_VR* VR, int32_t* Count) {
  return with_object(MsgID, [=](MsgObj& object) { return next_attribute(object, Tag, VR, Count); });
}

VX_STATUS VX_Get_Attribute_Info(int32_t MsgID, uint32_t Tag, VX_VR* VR, int32_t* Count) {
  return with_object(MsgID, [=](MsgObj& object) { return attribute_info(object, Tag, VR, Count); });
}

VX_STATUS VX_Set_Value_Representation(int32_t MsgID, uint32_t Tag, VX_VR VR) {
  VX_REQUIRE_LIBRARY();
  MsgObj* object;
  TagObj* attribute;
  const VX_STATUS status = find_attribute(MsgID, Tag, object, attribute);
  if (status != kOk) return status;
  if (is_value_held(*object, *attribute)) return VX_STATE_VIOLATION;
  return set_value_representation(*object, *attribute, VR);
}
