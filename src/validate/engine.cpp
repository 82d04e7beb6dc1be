#include "validate/engine.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "codec/reader.h"
#include "config/config.h"
#include "config/services.h"
#include "frame/log.h"
#include "frame/text.h"
#include "model/attributes.h"
#include "model/charset_scan.h"
#include "model/convert.h"
#include "model/deferred.h"
#include "model/message_info.h"
#include "model/message_info_file.h"
#include "model/private_blocks.h"
#include "model/seams.h"
#include "validate/conditions.h"
#include "validate/findings.h"

namespace vx {
namespace {

constexpr char kFunction[] = "VXI_Prepare_For_Validation";
constexpr uint16_t kFirstGroup = 3;  // command and meta group have rules of their own
constexpr uint32_t kImageType = 0x00080008;
constexpr int32_t kImageTypeValues = 3;  // what stands behind them is free
constexpr int kMaxDepth = 128;
constexpr std::string_view kOwnPresent = " own present";  // as the table has it; fails for what is missing

bool is_item(const MsgObj& object) {
  return object.ObjectKind == Kind::Item || object.ObjectKind == Kind::SrItem;
}
bool is_nameless(const MsgObj& object) {
  return object.ServiceName == nullptr || std::strcmp(object.ServiceName, kNoName) == 0;
}
bool is_conditional(const ValTagObj* rules) {
  return rules != nullptr && (rules->AttributeType == kType1C || rules->AttributeType == kType2C);
}
const ValidValueObj* first_entry(const ValTagObj* rules) {
  const bool any = rules != nullptr && rules->ValidValues.Head != nullptr;
  return any ? static_cast<const ValidValueObj*>(rules->ValidValues.Head->Data) : nullptr;
}

// ---- Rules onto the attributes ----

VX_STATUS refuse_nameless(const MsgObj& object) {
  const char* text = "Unable to validate, no service and command for message object.";
  if (is_item(object)) text = "Unable to validate, no item type for object.";
  if (is_file(object)) text = "Unable to validate, no service and command for file object.";
  VX_LOG_ERR(kFunction, "%s", text);
  return VX_MSGFILE_ERROR;
}

// A repeating group goes by the rules of its base group.
void share_repeating_rules(MsgObj& object) {
  for (const uint32_t first : {0x50000000U, 0x60000000U}) {
    TagObj* attribute = lower_bound_tag(object, first);
    for (; attribute != nullptr && attribute->Tag >> 24 == first >> 24; attribute = attribute->Next) {
      if (!is_repeating(attribute->Tag) || first_entry(attribute->Template) != nullptr) continue;
      const TagObj* base = find_tag(object, repeating_base(attribute->Tag));
      if (base != nullptr && base->Template != nullptr) attribute->Template = base->Template;
    }
  }
}

// `target` limits the work to one attribute; 0 for all. The items below get their rules when the walk comes
// to them.
VX_STATUS prepare(MsgObj& object, uint32_t target) {
  VX_STATUS status = decode_all(object);
  if (status != kOk || object.TemplatePending == 0) return status;
  if (is_nameless(object)) return refuse_nameless(object);
  if (object.TemplateApplied == 0) {
    status = fill_from_template(object, target, true);
    if (status == kOk && is_repeating(target)) {
      status = fill_from_template(object, repeating_base(target), true);
    }
    if (status != kOk) return status;
  }
  if (object.ObjectKind == Kind::Message) status = add_command_attributes(object);
  if (status != kOk) return status;
  share_repeating_rules(object);
  if (target == 0) object.TemplatePending = 0;
  return kOk;
}

// True if the object has the attribute of a template. The block of a private one may stand elsewhere than in
// the template.
bool has_private(MsgObj& object, const MsgTemplate& source, const TagObj& wanted) {
  const bool creator = is_private_creator(wanted.Tag);
  std::string_view code = template_creator(source, wanted);
  if (creator && wanted.FirstValue != nullptr && wanted.FirstValue->Data != nullptr) {
    code = trim_right({static_cast<const char*>(wanted.FirstValue->Data), wanted.FirstValue->Length});
  }
  uint32_t slot = 0;
  if (code.empty() ||
      find_private_block(object, code, tag_group(wanted.Tag), slot) != VX_FOUND_PRIVATE_BLOCK) {
    return false;
  }
  return creator || find_tag(object, (wanted.Tag & 0xFFFF00FFU) | ((slot & 0xFFU) << 8)) != nullptr;
}

// ---- The walk ----

class Walk {
 public:
  explicit Walk(const Findings& findings) : findings_(findings) {}

  // `outer`: what the object lies in; null where it is what was asked for.
  VX_STATUS object(MsgObj& object, const Scope* outer, int depth);
  VX_STATUS attribute(MsgObj& object, const TagObj& attribute, CharsetCache& charsets);

 private:
  struct Spot {
    MsgObj& object;
    const Scope& scope;
    const TagObj& attribute;
    CharsetCache& charsets;
    int depth;
  };
  VX_STATUS check(const Spot& at);
  VX_STATUS record(const Spot& at, int32_t severity, VX_STATUS status, const ValueCursor* value = nullptr) {
    return record_finding(findings_, {at.object, at.attribute.Tag, severity, status, &at.attribute, value});
  }
  VX_STATUS missing(MsgObj& object, const Scope& scope, const MsgTemplate& source, const TagObj& wanted);
  VX_STATUS presence(const Spot& at);
  VX_STATUS multiplicity(const Spot& at);
  VX_STATUS values(const Spot& at);
  VX_STATUS numeric_values(const Spot& at);
  VX_STATUS text(const Spot& at, std::string_view bytes, const ValueCursor& value);
  VX_STATUS listed(const Spot& at, std::string_view bytes, const ValueCursor& value);
  VX_STATUS item(const Spot& at, MsgObj& item, const ValueCursor& value);

  Findings findings_;
};

VX_STATUS Walk::object(MsgObj& object, const Scope* outer, int depth) {
  if (depth > kMaxDepth) return VX_INVALID_VALUE_FOR_VR;
  const uint16_t command = is_item(object) ? 0 : object.Command;
  const MsgTemplate* source = nullptr;
  VX_STATUS status = kOk;
  if (!is_nameless(object) && !has_no_template(command)) {
    status = get_template(object.ServiceName, command, source);
    if (status != kOk) return status;
  }
  const TagObj* wanted = source != nullptr ? source->FirstTag : nullptr;
  const Scope scope{object.ID, outer};
  CharsetCache charsets;
  for (const TagObj* attribute = object.FirstTag; status == kOk; attribute = attribute->Next) {
    const uint32_t tag = attribute != nullptr ? attribute->Tag : 0xFFFFFFFFU;
    for (; status == kOk && wanted != nullptr && wanted->Tag <= tag; wanted = wanted->Next) {
      if (wanted->Tag != tag) status = missing(object, scope, *source, *wanted);
    }
    if (attribute == nullptr) break;
    if (status == kOk && tag_group(tag) >= kFirstGroup) {
      status = check({object, scope, *attribute, charsets, depth});
    }
  }
  return status;
}

VX_STATUS Walk::missing(MsgObj& object, const Scope& scope, const MsgTemplate& source, const TagObj& wanted) {
  const ValTagObj* rules = wanted.Template;
  if (tag_group(wanted.Tag) < kFirstGroup || rules == nullptr) return kOk;
  if (rules->AttributeType == kType3 || rules->AttributeType == kTypeNotSet) return kOk;
  if (is_conditional(rules)) {
    if (rules->Condition == nullptr || rules->ConditionRule == kOwnPresent) return kOk;
    if (evaluate_condition(rules->ConditionRule, scope, wanted.Tag) != kConditionHolds) return kOk;
  }
  if (is_private(wanted.Tag) && has_private(object, source, wanted)) return kOk;
  return record_finding(findings_, {object, wanted.Tag, kError, VX_REQUIRED_ATTRIBUTE_MISSING});
}

VX_STATUS Walk::attribute(MsgObj& object, const TagObj& attribute, CharsetCache& charsets) {
  const Scope scope{object.ID};
  return check({object, scope, attribute, charsets, 0});
}

VX_STATUS Walk::check(const Spot& at) {
  const TagObj& attribute = at.attribute;
  const bool filled = attribute.ValueCount > 0;
  const bool ruled = attribute.Template != nullptr;
  VX_STATUS status = kOk;
  if (tag_group(attribute.Tag) < kFirstGroup) return VX_INVALID_TAG;
  if (!ruled) {
    if (tag_element(attribute.Tag) == 0) return kOk;
    if (!is_private(attribute.Tag)) {
      if (filled) status = record(at, kWarning, VX_NON_SERVICE_ATTRIBUTE);
    } else if (attribute.VR == VX_VR_UN) {
      return kOk;
    }
  }
  if (status == kOk && attribute.VR == VX_VR_UN && filled) status = record(at, kError, VX_INVALID_VR_CODE);
  if (status != kOk || attribute.Storage == Stored::ByCallback) return status;
  if (ruled) {
    status = presence(at);
    if (status == kOk && filled && attribute.VR != VX_VR_SQ) status = multiplicity(at);
  }
  if (status != kOk || attribute.FirstValue == nullptr || attribute.Storage != Stored::InMemory)
    return status;
  return is_numeric_vr(attribute.VR) ? numeric_values(at) : values(at);
}

// Whether the attribute may and must have values, by its type.
VX_STATUS Walk::presence(const Spot& at) {
  const ValTagObj& rules = *at.attribute.Template;
  int32_t required = kConditionHolds;
  if (is_conditional(&rules)) {
    required = kConditionUnknown;
    if (rules.Condition != nullptr) {
      required = evaluate_condition(rules.ConditionRule, at.scope, at.attribute.Tag);
    } else {
      const VX_STATUS status = record(at, kRemark, VX_NO_CONDITION_FUNCTION);
      if (status != kOk) return status;
    }
  } else if (rules.AttributeType != kType1 && rules.AttributeType != kType2) {
    return kOk;
  }
  const bool filled = at.attribute.ValueCount > 0;
  const bool null = filled && at.attribute.Length == 0;
  if (required == kConditionUnknown) {
    const VX_STATUS status = record(at, kRemark, VX_UNABLE_TO_CHECK_CONDITION);
    if (status != kOk || !rules.MayBePresent) return status;
  }
  if (required != kConditionHolds && rules.MayBePresent) {
    return null && rules.AttributeType == kType1C ? record(at, kError, VX_VALUE_MAY_NOT_BE_NULL) : kOk;
  }
  if (required == kConditionFails) return filled ? record(at, kError, VX_VALUE_NOT_ALLOWED) : kOk;
  if (!filled) return record(at, kError, VX_REQUIRED_VALUE_MISSING);
  const bool may_be_null = rules.AttributeType == kType2 || rules.AttributeType == kType2C;
  return may_be_null || !null ? kOk : record(at, kError, VX_VALUE_MAY_NOT_BE_NULL);
}

int32_t optional_severity() {
  switch (config_first_char(VX_CFG_NULL_TYPE3_VALIDATION)) {
    case 'I':
      return kRemark;
    case 'W':
      return kWarning;
    default:
      return kError;
  }
}

VX_STATUS Walk::multiplicity(const Spot& at) {
  const TagObj& attribute = at.attribute;
  const int32_t type = attribute.Template->AttributeType;
  if (attribute.ValueCount < attribute.VMLow) {
    const bool null = attribute.ValueCount == 1 && attribute.Length == 0;
    if (null && (type == kType2 || type == kType2C)) return kOk;
    return record(at, type == kType3 ? optional_severity() : kError, VX_TOO_FEW_VALUES);
  }
  const bool unlimited = attribute.VMHigh == 255 || is_bulk_vr(attribute.VR);
  return unlimited || attribute.ValueCount <= attribute.VMHigh ? kOk : record(at, kError, VX_TOO_MANY_VALUES);
}

// ---- Values ----

// Numbers always fit their VR: they matter only where the rules list them.
VX_STATUS Walk::numeric_values(const Spot& at) {
  if (first_entry(at.attribute.Template) == nullptr || is_private(at.attribute.Tag)) return kOk;
  const uint32_t width = vr_width(at.attribute.VR);
  for (ValueCursor value{.number = 1}; value.number <= at.attribute.ValueCount; ++value.number) {
    const void* bytes = numeric_value(at.attribute, value.number);
    if (bytes == nullptr) return kOk;
    const VX_STATUS status = listed(at, {static_cast<const char*>(bytes), width}, value);
    if (status != kOk) return status;
  }
  return kOk;
}

VX_STATUS Walk::values(const Spot& at) {
  if (is_bulk_vr(at.attribute.VR)) return kOk;
  ValueCursor value{.number = 1, .value = at.attribute.FirstValue};
  for (; value.value != nullptr && value.number <= at.attribute.ValueCount; ++value.number) {
    const ValueObj& piece = *value.value;
    VX_STATUS status = kOk;
    if (piece.Data != nullptr && piece.Length != 0) {
      status = at.attribute.VR == VX_VR_SQ
                   ? item(at, *static_cast<MsgObj*>(piece.Data), value)
                   : text(at, {static_cast<const char*>(piece.Data), piece.Length}, value);
    }
    if (status != kOk) return status;
    value.previous = value.value;
    value.value = piece.Next;
  }
  return kOk;
}

VX_STATUS Walk::text(const Spot& at, std::string_view bytes, const ValueCursor& value) {
  const TagObj& attribute = at.attribute;
  const VX_STATUS checked = check_value(at.object, attribute.Tag, attribute.VR, bytes, &at.charsets);
  if (checked != kOk) {
    const VX_STATUS status = record(at, kError, checked, &value);
    if (status != kOk) return status;
  }
  if (first_entry(attribute.Template) == nullptr || is_private(attribute.Tag)) return kOk;
  while (!bytes.empty() && bytes.front() == ' ') bytes.remove_prefix(1);
  while (!bytes.empty() && (bytes.back() == ' ' || (attribute.VR == VX_VR_UI && bytes.back() == '\0'))) {
    bytes.remove_suffix(1);
  }
  return listed(at, bytes, value);
}

// A value against the values that the rules list. Where none matches, the last one tells how grave that is.
VX_STATUS Walk::listed(const Spot& at, std::string_view bytes, const ValueCursor& value) {
  const ValTagObj& rules = *at.attribute.Template;
  const ValidValueObj* entry = nullptr;
  for (const CNode* node = rules.ValidValues.Head; node != nullptr; node = node->Next) {
    entry = static_cast<const ValidValueObj*>(node->Data);
    const bool applies = rules.MaxValueNumber <= 1 || entry->ValueNumber == value.number;
    if (applies && std::string_view(entry->Value, entry->Length) == bytes) return kOk;
  }
  if (entry == nullptr || (at.attribute.Tag == kImageType && value.number > kImageTypeValues)) return kOk;
  return entry->IsEnumerated != 0 ? record(at, kError, VX_NOT_ONE_OF_ENUMERATED_VALUES, &value)
                                  : record(at, kWarning, VX_NOT_ONE_OF_DEFINED_TERMS, &value);
}

// ---- Sequences ----

bool takes_item(const ValTagObj& rules, const MsgObj& item) {
  const std::string_view name = item.ServiceName;
  for (const CNode* node = rules.ValidValues.Head; node != nullptr; node = node->Next) {
    const auto* entry = static_cast<const ValidValueObj*>(node->Data);
    if (std::string_view(entry->Value, entry->Length) == name) return true;
  }
  return false;
}

bool is_blank(const MsgObj& item) {
  const TagObj* attribute = item.FirstTag;
  while (attribute != nullptr && attribute->Length == 0) attribute = attribute->Next;
  return attribute == nullptr;
}

VX_STATUS Walk::item(const Spot& at, MsgObj& item, const ValueCursor& value) {
  const ValTagObj* rules = at.attribute.Template;
  VX_STATUS status = kOk;
  if (at.attribute.Tag == kDirectoryRecords) {
    status = name_record(item);
    if (status != kOk || is_nameless(item)) return status;
    if (find_item_number(item.ServiceName) < 0)
      return record(at, kError, VX_NOT_ONE_OF_DEFINED_TERMS, &value);
  }
  if (const ValidValueObj* first = first_entry(rules)) {
    if (is_nameless(item)) status = set_object_name(item, first->Value);
    if (status != kOk) return status;
    if (!is_private(at.attribute.Tag) && !takes_item(*rules, item)) {
      status = record(at, kError, VX_NOT_ONE_OF_DEFINED_TERMS, &value);
    }
  }
  if (status != kOk) return status;
  const int32_t type = rules != nullptr ? rules->AttributeType : kTypeNotSet;
  if ((type == kType2 || type == kType2C || type == kType3) && is_blank(item)) return kOk;
  if (item.TemplatePending != 0) {
    if (is_nameless(item)) return kOk;
    status = prepare(item, 0);
  }
  return status == kOk ? object(item, &at.scope, at.depth + 1) : status;
}

VX_STATUS finish(MsgObj& object, VX_STATUS walked, ValErrObj*& first) {
  CNode* head = object.ValidationErrors.Head;
  object.ValidationCursor = head;
  if (walked != kOk) return walked;
  if (head == nullptr) return VX_MESSAGE_VALIDATES;
  first = static_cast<ValErrObj*>(head->Data);
  object.ValidationCursor = head->Next;
  return VX_DOES_NOT_VALIDATE;
}

}  // namespace

VX_STATUS validate_whole(MsgObj& object, int32_t level, ValErrObj*& first) {
  clear_findings(object);
  VX_STATUS status = prepare(object, 0);
  if (status == kOk) status = Walk({object, level}).object(object, nullptr, 0);
  return finish(object, status, first);
}

VX_STATUS validate_one(MsgObj& object, uint32_t tag, int32_t level, ValErrObj*& first) {
  TagObj* attribute = nullptr;
  VX_STATUS status = find_or_add_tag(object, tag, "", attribute);
  if (status != kOk) return status;
  clear_findings(object);
  status = prepare(object, tag);
  CharsetCache charsets;
  if (status == kOk) status = Walk({object, level}).attribute(object, *attribute, charsets);
  return finish(object, status, first);
}

VX_STATUS next_finding(MsgObj& object, ValErrObj*& finding) {
  CNode* node = object.ValidationCursor;
  if (node == nullptr) return VX_END_OF_LIST;
  finding = static_cast<ValErrObj*>(node->Data);
  object.ValidationCursor = node->Next;
  return kOk;
}

}  // namespace vx
