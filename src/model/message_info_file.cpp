#include "model/message_info_file.h"

#include <cstring>
#include <string_view>

#include "frame/limits.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/text.h"
#include "model/convert.h"
#include "model/dictionary.h"
#include "model/seams.h"
#include "model/values.h"
#include "model/vr.h"

namespace vx {
namespace {

constexpr char kFunction[] = "VXI_Read_Message_Info";

void free_values(TagObj& attribute) {
  while (attribute.FirstValue != nullptr) {
    ValueObj* next = attribute.FirstValue->Next;
    free_value(attribute.FirstValue);
    attribute.FirstValue = next;
  }
  attribute.LastValue = nullptr;
  attribute.ValueCount = 0;
  attribute.Length = 0;
}

void free_rules(ValTagObj* rules) {
  if (rules == nullptr) return;
  while (void* value = list_remove_head(rules->ValidValues)) release(value);
  release(const_cast<char*>(rules->Condition));
  pool_free(Pool::ValTagObj, rules);
}

void free_attribute(TagObj* attribute) {
  if (attribute == nullptr) return;
  free_values(*attribute);
  free_rules(attribute->Template);
  pool_free(Pool::TagObj, attribute);
}

// Builds the chain of a template out of the records of a body.
class Builder final : public RecordTaker {
 public:
  explicit Builder(MsgTemplate& target) : target_(target) {}
  ~Builder() { free_attribute(current_); }
  Builder(const Builder&) = delete;
  Builder& operator=(const Builder&) = delete;

  VX_STATUS record(uint32_t tag, uint16_t parameter, std::string_view data) override;
  VX_STATUS finish() override;

 private:
  VX_STATUS start(uint32_t tag);
  VX_STATUS valid_value(uint16_t number, bool enumerated, std::string_view data);
  VX_STATUS default_value(std::string_view data);
  VX_STATUS condition(std::string_view data, bool named);
  VX_STATUS attach_creator();
  bool to_stored_form(std::string_view& data, char (&binary)[8]) const;
  VX_STATUS append_text(TagObj& attribute, std::string_view text);
  void link(TagObj* attribute, TagObj* behind);

  MsgTemplate& target_;
  TagObj* last_ = nullptr;
  TagObj* current_ = nullptr;
  char creator_[kMaxCreatorCode + 1] = {};
};

TagObj* new_attribute(uint32_t tag) {
  auto* attribute = new_object<TagObj>(Pool::TagObj);
  if (attribute == nullptr) return nullptr;
  attribute->Tag = tag;
  attribute->Storage = Stored::InMemory;
  attribute->Template = new_object<ValTagObj>(Pool::ValTagObj);
  if (attribute->Template == nullptr) {
    pool_free(Pool::TagObj, attribute);
    return nullptr;
  }
  attribute->Template->AttributeType = kTypeNotSet;
  attribute->VR = VX_VR_UN;
  attribute->VMLow = 1;
  attribute->VMHigh = 255;
  return attribute;
}

VX_STATUS Builder::start(uint32_t tag) {
  if (current_ != nullptr) {
    const VX_STATUS status = finish();
    if (status != kOk) return status;
  }
  creator_[0] = '\0';
  current_ = new_attribute(tag);
  return current_ == nullptr ? VX_SYSTEM_ERROR : kOk;
}

void Builder::link(TagObj* attribute, TagObj* behind) {
  TagObj* next = behind == nullptr ? target_.FirstTag : behind->Next;
  attribute->Previous = behind;
  attribute->Next = next;
  (behind == nullptr ? target_.FirstTag : behind->Next) = attribute;
  if (next != nullptr) {
    next->Previous = attribute;
  } else {
    last_ = attribute;
  }
}

// Values of numeric VRs take their binary form. False if they have none.
bool Builder::to_stored_form(std::string_view& data, char (&binary)[8]) const {
  if (is_text_vr(current_->VR)) return true;
  uint32_t length = 0;
  if (convert_text_to_binary(current_->VR, data, binary, length) != kOk) return false;
  data = {binary, length};
  return true;
}

VX_STATUS Builder::valid_value(uint16_t number, bool enumerated, std::string_view data) {
  if (data.empty()) return kOk;
  char binary[8];
  if (current_->VR != VX_VR_SQ && !to_stored_form(data, binary)) {
    VX_LOG_ERR(kFunction, "Failed to read valid value for tag 0x%X", current_->Tag);
    return VX_MSGFILE_ERROR;
  }
  auto* value = static_cast<ValidValueObj*>(allocate(sizeof(ValidValueObj) + data.size() + 1));
  if (value == nullptr || list_add_tail(current_->Template->ValidValues, value) == nullptr) {
    VX_LOG_ERR(kFunction, "Unable to allocate new Valid Value Object");
    release(value);
    return VX_SYSTEM_ERROR;
  }
  auto* bytes = reinterpret_cast<char*>(value + 1);
  std::memcpy(bytes, data.data(), data.size());
  value->Length = static_cast<uint32_t>(data.size());
  value->ValueNumber = number;
  value->IsEnumerated = enumerated ? 1 : 0;
  value->Value = bytes;
  if (number > current_->Template->MaxValueNumber) current_->Template->MaxValueNumber = number;
  return kOk;
}

// A value with a NUL behind its bytes, which its length does not count.
VX_STATUS Builder::append_text(TagObj& attribute, std::string_view text) {
  const auto length = static_cast<uint32_t>(text.size());
  ValueObj* value = new_value(length + 1);
  if (value == nullptr) {
    VX_LOG_ERR(kFunction, "Unable to allocate new Value Object");
    return VX_SYSTEM_ERROR;
  }
  std::memcpy(value->Data, text.data(), text.size());
  static_cast<char*>(value->Data)[length] = '\0';
  value->Length = length;
  append_value(attribute, value, 1, length);
  return kOk;
}

VX_STATUS Builder::default_value(std::string_view data) {
  if (data.empty()) return kOk;
  if (data == kNullDefault) {
    free_values(*current_);
    return append_null(*current_) == kOk ? kOk : VX_SYSTEM_ERROR;
  }
  char binary[8];
  if (!to_stored_form(data, binary)) {
    VX_LOG_ERR(kFunction, "Failed to read default for tag 0x%X", current_->Tag);
    return VX_MSGFILE_ERROR;
  }
  return append_text(*current_, data);
}

// By the name of a predicate, or as a rule that stands at the place itself.
VX_STATUS Builder::condition(std::string_view data, bool named) {
  if (data.empty()) return kOk;
  char* name = duplicate_text(data.data());
  if (name == nullptr) return VX_SYSTEM_ERROR;
  release(const_cast<char*>(current_->Template->Condition));
  current_->Template->Condition = name;
  current_->Template->ConditionRule = named ? std::string_view() : std::string_view(name);
  if (named && find_condition != nullptr && !find_condition(data, current_->Template->ConditionRule)) {
    VX_LOG_WARN(kFunction, "Unknown validate function: %s", name);
  }
  return kOk;
}

VX_STATUS Builder::record(uint32_t tag, uint16_t parameter, std::string_view data) {
  if (current_ == nullptr || tag != current_->Tag) {
    const VX_STATUS status = start(tag);
    if (status != kOk) return status;
  }
  if (parameter >= 1 && parameter <= kLastEnumerated) return valid_value(parameter, true, data);
  if (parameter > kLastEnumerated && parameter <= kLastDefined) {
    return valid_value(static_cast<uint16_t>(parameter - kLastEnumerated), false, data);
  }
  switch (parameter) {
    case kConditionName:
    case kConditionRule:
      return condition(data, parameter == kConditionName);
    case kOtherwise:
      current_->Template->MayBePresent = data == "may";
      return kOk;
    case kVrLetters:
      return parse_vr(data, current_->VR);
    case kDefaultValue:
      return default_value(data);
    case kCreatorCode:
      copy_text(creator_, sizeof creator_, data);
      return kOk;
    case kAttributeType:
      return parse_type(data, current_->Template->AttributeType);
    default:
      return kOk;
  }
}

// The chain gets the creator attribute of the current attribute's block, unless it has it.
VX_STATUS Builder::attach_creator() {
  const uint32_t tag = (current_->Tag & 0xFFFF0000U) | (tag_element(current_->Tag) >> 8);
  TagObj* behind = last_;
  while (behind != nullptr && behind->Tag > tag) behind = behind->Previous;
  if (behind != nullptr && behind->Tag == tag) return kOk;
  TagObj* creator = new_attribute(tag);
  if (creator == nullptr) return VX_SYSTEM_ERROR;
  creator->Template->AttributeType = kType1;
  creator->VR = VX_VR_LO;
  creator->VMLow = 0;
  creator->VMHigh = 1;
  char code[kMaxCreatorCode + 2];
  std::size_t length = std::strlen(creator_);
  std::memcpy(code, creator_, length);
  if (length % 2 != 0) code[length++] = ' ';
  const VX_STATUS status = append_text(*creator, {code, length});
  if (status != kOk) {
    free_attribute(creator);
    return status;
  }
  link(creator, behind);
  return kOk;
}

VX_STATUS Builder::finish() {
  if (current_ == nullptr) return kOk;
  TagObj& attribute = *current_;
  if (attribute.Template->AttributeType == kTypeNotSet) {
    VX_LOG_ERR(kFunction, "No type code for tag 0x%8.8X in Message File.", attribute.Tag);
    return VX_MSGFILE_ERROR;
  }
  DictInfo info{};
  if (dictionary_lookup(attribute.Tag, creator_, info) == kOk) {
    // Values read for another class of VR do not have this one's form.
    const bool same_form = attribute.VR == info.vr || (is_text_vr(attribute.VR) && is_text_vr(info.vr));
    if (!same_form && attribute.Length != 0) free_values(attribute);
    attribute.VR = info.vr;
    attribute.VMLow = info.vm_low;
    attribute.VMHigh = info.vm_high;
  } else if (attribute.VR == VX_VR_UN) {
    if (is_private(attribute.Tag)) {
      VX_LOG_ERR(kFunction, "No dictionary entry for private tag 0x%4.4X, \"%s\", 0x%2.2X in Message File.",
                 tag_group(attribute.Tag), creator_, tag_element(attribute.Tag) & 0xFFU);
    } else {
      VX_LOG_ERR(kFunction, "No dictionary entry for tag 0x%8.8X in Message File.", attribute.Tag);
    }
    return VX_MSGFILE_ERROR;
  }
  if (creator_[0] != '\0' && is_private(attribute.Tag) && tag_element(attribute.Tag) >= 0x1000) {
    const VX_STATUS status = attach_creator();
    if (status != kOk) return status;
  }
  link(current_, last_);
  current_ = nullptr;
  return kOk;
}

}  // namespace

void free_template_parts(MsgTemplate& message_template) {
  release(message_template.Name);
  message_template.Name = nullptr;
  while (message_template.FirstTag != nullptr) {
    TagObj* next = message_template.FirstTag->Next;
    free_attribute(message_template.FirstTag);
    message_template.FirstTag = next;
  }
}

VX_STATUS read_template(const TemplateRequest& request, MsgTemplate& out) {
  out = MsgTemplate{};
  out.Command = request.command;
  out.Name = duplicate_text(request.name);
  if (out.Name == nullptr) return VX_SYSTEM_ERROR;
  Builder builder(out);
  const VX_STATUS status = read_records(request, builder);
  if (status != kOk) free_template_parts(out);
  return status;
}

}  // namespace vx
