#include "model/message_info.h"
#include "model/file_values.h"

#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "config/config.h"
#include "config/services.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/seams.h"
#include "frame/state.h"
#include "frame/text.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/message_info_file.h"
#include "model/private_blocks.h"
#include "model/rule_list.h"
#include "model/template_shelf.h"

namespace vx {
namespace {

constexpr char kFunction[] = "VXI_Fill_From_Template";

Shelf<MsgTemplate> templates;  // guarded by templateSemaphore

struct Filling {
  MsgObj& object;
  const MsgTemplate& source;
};

void take_rules(TagObj& attribute, const TagObj& source) {
  attribute.VMLow = source.VMLow;
  attribute.VMHigh = source.VMHigh;
  attribute.Template = source.Template;
}

VX_STATUS set_creator(MsgObj& object, TagObj& attribute, std::string_view code) {
  const VX_STATUS status = set_text(object, attribute, code, true, nullptr);
  if (status == kOk) return kOk;
  VX_LOG_ERR(kFunction, "ERROR setting private creator code value: %s", status_text(status));
  return VX_SYSTEM_ERROR;
}

// The creator attribute of a code in the object: found, or made at the first free place.
VX_STATUS find_or_make_creator(MsgObj& object, std::string_view code, uint16_t group, uint32_t& slot,
                               TagObj*& made) {
  made = nullptr;
  const VX_STATUS found = find_private_block(object, code, group, slot);
  if (found == VX_FOUND_PRIVATE_BLOCK) return kOk;
  VX_STATUS status = found;
  if (found == VX_NOT_FOUND) status = new_tag(object, slot, VX_VR_LO, 1, 1, &made);
  if (status != kOk || made == nullptr) {
    VX_LOG_ERR(kFunction, "Unable to create Private Creator Code attribute: %s", status_text(status));
    return VX_SYSTEM_ERROR;
  }
  return set_creator(object, *made, code);
}

uint32_t rebase(uint32_t tag, uint32_t slot) {
  return (tag & 0xFFFF00FFU) | ((slot & 0xFFU) << 8);
}

std::string_view creator_value(const TagObj& attribute) {
  const ValueObj* value = attribute.FirstValue;
  if (value == nullptr || value->Data == nullptr) return {};
  return trim_right({static_cast<const char*>(value->Data), value->Length});
}

// A creator attribute of the template: at the first free place of the object, with its code.
VX_STATUS add_creator(Filling& fill, const TagObj& source) {
  uint32_t slot = 0;
  TagObj* attribute = nullptr;
  const VX_STATUS status =
      find_or_make_creator(fill.object, creator_value(source), tag_group(source.Tag), slot, attribute);
  if (status != kOk) return status;
  if (attribute == nullptr) attribute = find_tag(fill.object, slot);
  if (attribute != nullptr) take_rules(*attribute, source);
  return kOk;
}

VX_STATUS add_attribute(Filling& fill, const TagObj& source) {
  if (is_private_creator(source.Tag) && !creator_value(source).empty()) return add_creator(fill, source);
  uint32_t tag = source.Tag;
  if (is_private(tag) && tag_element(tag) >= 0x1000) {
    const char* code = template_creator(fill.source, source);
    if (*code != '\0') {
      uint32_t slot = 0;
      TagObj* made = nullptr;
      const VX_STATUS status = find_or_make_creator(fill.object, code, tag_group(tag), slot, made);
      if (status != kOk) return status;
      tag = rebase(tag, slot);
    }
  }
  TagObj* attribute = nullptr;
  const VX_STATUS status = new_tag(fill.object, tag, source.VR, source.VMLow, source.VMHigh, &attribute);
  if (attribute == nullptr || (status != kOk && status != VX_TAG_ALREADY_EXISTS)) {
    VX_LOG_ERR(kFunction, "Problem with Message Info File.");
    return status == VX_SYSTEM_ERROR ? VX_SYSTEM_ERROR : VX_MSGFILE_ERROR;
  }
  take_rules(*attribute, source);
  return kOk;
}

// Puts the rules on a private attribute that the object has, in whichever block.
VX_STATUS update_private(Filling& fill, const TagObj& source) {
  uint32_t tag = source.Tag;
  const bool creator = is_private_creator(tag);
  const std::string_view code = creator ? creator_value(source) : template_creator(fill.source, source);
  if (!code.empty()) {
    uint32_t slot = 0;
    const VX_STATUS found = find_private_block(fill.object, code, tag_group(tag), slot);
    if (found != VX_FOUND_PRIVATE_BLOCK) return VX_NOT_FOUND;
    tag = creator ? slot : rebase(tag, slot);
  }
  TagObj* attribute = find_tag(fill.object, tag);
  if (attribute != nullptr) take_rules(*attribute, source);
  return kOk;
}

}  // namespace

const char* attribute_type_text(int32_t type) {
  constexpr const char* kTexts[] = {"1 ", "1C", "2 ", "2C", "3 "};
  return type >= kType1 && type <= kType3 ? kTexts[type] : "??";
}

int32_t attribute_type_from_text(const char* text, std::size_t length) {
  if (length == 0) return kTypeNotSet;
  const bool conditional = length > 1 && text[1] == 'C';
  switch (text[0]) {
    case '1':
      return conditional ? kType1C : kType1;
    case '2':
      return conditional ? kType2C : kType2;
    case '3':
      return conditional ? kTypeNotSet : kType3;
    default:
      return kTypeNotSet;
  }
}

int32_t template_number(const char* name, uint16_t command) {
  if (command == 0) return find_item_number(name);
  const SopObj* service = find_service(name);
  return service == nullptr ? -1 : service->number;
}

VX_STATUS info_file_path(std::string& path) {
  const std::string configured = config_text(VX_CFG_MSG_INFO_FILE);
  if (configured.empty()) {
    VX_LOG_ERR("VXI_Read_Message_Info", "Could not open message info file, configuration value not set.");
    return VX_MSGFILE_ERROR;
  }
  return expand_path(configured.c_str(), path) ? kOk : VX_MSGFILE_ERROR;
}

VX_STATUS get_template(const char* name, uint16_t command, const MsgTemplate*& out) {
  const Guard guard(state().templateSemaphore);
  out = templates.find(name, command);
  if (out != nullptr) return kOk;
  MsgTemplate contents{};
  const VX_STATUS status =
      read_configured(name, command, [&](const TemplateRequest& r) { return read_template(r, contents); });
  if (status != kOk) return status;
  out = templates.add(contents);
  if (out != nullptr) return kOk;
  free_template_parts(contents);
  return VX_SYSTEM_ERROR;
}

const char* template_creator(const MsgTemplate& message_template, const TagObj& attribute) {
  static_cast<void>(message_template);
  if (!is_private(attribute.Tag) || tag_element(attribute.Tag) < 0x1000) return "";
  const uint32_t creator = (attribute.Tag & 0xFFFF0000U) | (tag_element(attribute.Tag) >> 8);
  for (const TagObj* before = attribute.Previous; before != nullptr && before->Tag >= creator;
       before = before->Previous) {
    if (before->Tag != creator) continue;
    const ValueObj* value = before->FirstValue;
    return value == nullptr || value->Data == nullptr ? "" : static_cast<const char*>(value->Data);
  }
  return "";
}

VX_STATUS fill_from_template(MsgObj& object, uint32_t filter, bool for_validation) {
  const bool item = object.ObjectKind == Kind::Item || object.ObjectKind == Kind::SrItem;
  const uint16_t command = item ? 0 : object.Command;
  if (has_no_template(command)) return kOk;
  const MsgTemplate* source = nullptr;
  VX_STATUS status =
      get_template(object.ServiceName == nullptr ? kNoName : object.ServiceName, command, source);
  if (status != kOk) return status;
  Filling fill{object, *source};
  TagObj* held = object.FirstTag;  // goes along with the template; what the object lacks stays absent
  for (const TagObj* attribute = source->FirstTag; attribute != nullptr; attribute = attribute->Next) {
    if (filter != 0 && attribute->Tag < filter) continue;
    if (filter != 0 && attribute->Tag > filter) break;
    if (!for_validation) {
      status = add_attribute(fill, *attribute);
    } else if (is_private(attribute->Tag)) {
      status = update_private(fill, *attribute);
    } else {
      while (held != nullptr && held->Tag < attribute->Tag) held = held->Next;
      if (held != nullptr && held->Tag == attribute->Tag) take_rules(*held, *attribute);
    }
    if (status != kOk) return status;
  }
  object.TemplateApplied = filter == 0 && !for_validation ? 1 : 0;
  return kOk;
}

void model_drop() {
  release_all_file_values();
  templates.drop();
  drop_rules();
}

}  // namespace vx
