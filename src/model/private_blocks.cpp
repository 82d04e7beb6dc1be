#include "model/private_blocks.h"

#include "config/config.h"
#include "frame/limits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/deferred.h"
#include "model/dictionary.h"
#include "model/values.h"

namespace vx {
namespace {

constexpr uint32_t group_base(uint16_t group) {
  return static_cast<uint32_t>(group) << 16;
}
constexpr uint32_t block_base(uint32_t creator_tag) {
  return (creator_tag & 0xFFFF0000U) | ((creator_tag & 0xFFU) << 8);
}

// The creator code that an attribute holds, as it stands in the value; false if it holds no text.
bool creator_code(const TagObj& attribute, std::string_view& code) {
  if (!is_text_vr(attribute.VR) || attribute.Storage != Stored::InMemory) return false;
  const ValueObj* value = attribute.FirstValue;
  if (value == nullptr || value->Data == nullptr || value->Length >= kMaxCreatorCode) return false;
  code = trim_right({static_cast<const char*>(value->Data), value->Length});
  return true;
}

bool is_creator_of(const TagObj& attribute, std::string_view code) {
  std::string_view held;
  return creator_code(attribute, held) && held == code;
}

// What the search says of a triple that it can not turn into a tag, for functions that need the block.
VX_STATUS as_not_found(VX_STATUS status) {
  return status == VX_TOO_MANY_BLOCKS ? VX_NOT_FOUND : status;
}

VX_STATUS set_creator(MsgObj& object, TagObj& attribute, std::string_view code) {
  VX_STATUS status = set_text(object, attribute, code, true, nullptr);
  if (status == VX_INVALID_CHARS_IN_VALUE && config_bool(VX_CFG_ALLOW_INVALID_PRIVATE_CREATOR_CODES)) {
    VX_LOG_WARN("VXI_AddPrivateBlockTag", "(%4.4X,%4.4X): %s", tag_group(attribute.Tag),
                tag_element(attribute.Tag), "Tag added regardless of finding invalid characters.\n");
    status = kOk;
  }
  return status;
}

// Makes the creator attribute at a free place; one that can not get its code goes again.
VX_STATUS add_creator(MsgObj& object, std::string_view code, uint32_t tag, const char* function) {
  TagObj* attribute;
  VX_STATUS status = new_tag(object, tag, VX_VR_LO, 1, 255, &attribute);
  if (status == kOk) {
    status = set_creator(object, *attribute, code);
    if (status == kOk) return kOk;
    VX_LOG_ERR("VXI_AddPrivateBlockTag", "ERROR setting private group value: %s", status_text(status));
    delete_attribute(object, tag);
  }
  if (function != nullptr) VX_LOG_ERR(function, "Failed to add Private Block tag 0x%8.8X", tag);
  return VX_SYSTEM_ERROR;
}

// The road of an attribute that the dictionary knows. True if it is in the object now.
bool add_from_dictionary(MsgObj& object, std::string_view creator, uint16_t group, uint8_t element,
                         const DictInfo& info) {
  uint32_t slot = 0;
  VX_STATUS status = add_private_block(object, creator, group, &slot, 0, nullptr);
  if (status != kOk) {
    VX_LOG_ERR("VX_Add_Private_Attribute", "Unable to add private block specified in dictionary: %s",
               status_text(status));
    return false;
  }
  status = new_tag(object, block_base(slot) | element, info.vr, info.vm_low, info.vm_high, nullptr);
  if (status == kOk) return true;
  VX_LOG_ERR("VX_Add_Private_Attribute", "Unable to add private attribute specified in dictionary: %s",
             status_text(status));
  return false;
}

}  // namespace

VX_STATUS find_private_block(MsgObj& object, std::string_view creator, uint16_t group, uint32_t& slot) {
  const VX_STATUS status = decode_all(object);
  if (status != kOk) return status;
  if (!is_private_group(group)) return VX_INVALID_GROUP;
  const std::string_view code = trim_right(creator);
  const uint32_t last = group_base(group) | 0xFF;
  uint32_t free_slot = group_base(group) | 0x10;
  const Guard guard(object.Semaphore);
  const TagObj* attribute = lower_bound_tag(object, free_slot);
  for (; attribute != nullptr && attribute->Tag <= last; attribute = attribute->Next) {
    if (attribute->Tag == free_slot) ++free_slot;
    if (is_creator_of(*attribute, code)) {
      slot = attribute->Tag;
      return VX_FOUND_PRIVATE_BLOCK;
    }
  }
  slot = free_slot;
  return free_slot > last ? VX_TOO_MANY_BLOCKS : VX_NOT_FOUND;
}

VX_STATUS private_tag(MsgObj& object, std::string_view creator, uint16_t group, uint8_t element,
                      uint32_t& tag) {
  uint32_t slot = 0;
  const VX_STATUS status = find_private_block(object, creator, group, slot);
  if (status != VX_FOUND_PRIVATE_BLOCK) return status;
  tag = block_base(slot) | element;
  return kOk;
}

VX_STATUS add_private_block(MsgObj& object, std::string_view creator, uint16_t group, uint32_t* slot,
                            uint32_t at, const char* function) {
  const Guard guard(object.Semaphore);
  uint32_t place = 0;
  VX_STATUS status = find_private_block(object, creator, group, place);
  if (status == VX_FOUND_PRIVATE_BLOCK) {
    if (slot != nullptr) *slot = place;
    return kOk;
  }
  if (status != VX_NOT_FOUND) return status;
  if (at != 0 && find_tag(object, at) == nullptr) place = at;
  status = add_creator(object, trim_right(creator), place, function);
  if (status == kOk && slot != nullptr) *slot = place;
  return status;
}

VX_STATUS delete_private_block(MsgObj& object, std::string_view creator, uint16_t group) {
  uint32_t slot = 0;
  VX_STATUS status = find_private_block(object, creator, group, slot);
  if (status != VX_FOUND_PRIVATE_BLOCK) return as_not_found(status);
  status = delete_attribute(object, slot);
  if (status != kOk) return status;
  return delete_range(object, block_base(slot), block_base(slot) | 0xFF);
}

VX_STATUS add_private_attribute(MsgObj& object, std::string_view creator, uint16_t group, uint8_t element,
                                int32_t vr) {
  uint32_t tag = 0;
  VX_STATUS status = private_tag(object, creator, group, element, tag);
  if (status == kOk && find_tag(object, tag) != nullptr) return VX_TAG_ALREADY_EXISTS;
  if (status != kOk && status != VX_NOT_FOUND && status != VX_TOO_MANY_BLOCKS) return status;
  DictInfo info{};
  if (dictionary_lookup(group_base(group) | 0x1000 | element, creator, info) == kOk &&
      add_from_dictionary(object, creator, group, element, info)) {
    return kOk;
  }
  if (!is_vr(vr)) return VX_INVALID_VR_CODE;
  const Guard guard(object.Semaphore);
  status = private_tag(object, creator, group, element, tag);
  return status == kOk ? new_tag(object, tag, vr, 1, 255, nullptr) : status;
}

std::string_view creator_of(MsgObj& object, uint32_t tag) {
  if (!is_private(tag) || tag_element(tag) < 0x1000) return {};
  const uint32_t slot = (tag & 0xFFFF0000U) | (tag_element(tag) >> 8);
  MsgObj* holder = &object;
  for (int level = 0; holder != nullptr && level < kMaxNesting; ++level) {
    const TagObj* attribute = lower_bound_tag(*holder, slot);
    std::string_view code;
    if (attribute != nullptr && attribute->Tag == slot && creator_code(*attribute, code)) return code;
    // An item of a private sequence may leave the creator to the data set that holds the sequence.
    if ((holder->PrivateTag & 0xFFFFFF00U) != (tag & 0xFFFFFF00U)) break;
    holder = find_object(holder->ParentID);
  }
  return {};
}

bool block_has_values(MsgObj& object, std::string_view creator, uint16_t group) {
  if (!is_private_group(group)) return false;
  if (creator.size() > kMaxCreatorCode) {
    VX_LOG_ERR("VXI_privateBlockHasValues", "Private Code length exceeds VR_LO_LENGTH max");
    return false;
  }
  const std::string_view code = trim_right(creator);
  uint32_t first = group_base(group);
  uint32_t last = first | 0xFF;
  const Guard guard(object.Semaphore);
  TagObj* attribute = lower_bound_tag(object, first);
  while (attribute != nullptr && attribute->Tag <= last) {
    if (!is_private_creator(attribute->Tag)) {
      if (attribute->ValueCount > 0) return true;
      attribute = attribute->Next;
    } else if (is_creator_of(*attribute, code)) {
      first = block_base(attribute->Tag);
      last = first | 0xFF;
      attribute = lower_bound_tag(object, first);
    } else {
      attribute = attribute->Next;
    }
  }
  return false;
}

}  // namespace vx
