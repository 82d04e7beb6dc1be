#include "deidentify/dummies.h"

#include <algorithm>
#include <string>

#include "frame/text.h"
#include "model/convert.h"
#include "model/message_info.h"
#include "model/values.h"

namespace vx {
namespace {

// By VR code; neutral where there is none.
const char* dummy_text(int32_t vr) {
  switch (vr) {
    case VX_VR_AS:
      return "000Y";
    case VX_VR_DA:
      return "19000101";
    case VX_VR_DT:
      return "19000101000000";
    case VX_VR_TM:
      return "000000";
    case VX_VR_DS:
    case VX_VR_IS:
      return "0";
    case VX_VR_UI:
      return "2.25.0";
    case VX_VR_UR:
      return "http://anonymized.invalid";
    default:
      return kNeutralText;
  }
}

const ValidValueObj* listed_for(const TagObj* rules, int32_t number) {
  if (rules == nullptr || rules->Template == nullptr) return nullptr;
  const ValTagObj& listed = *rules->Template;
  for (const CNode* node = listed.ValidValues.Head; node != nullptr; node = node->Next) {
    const auto* entry = static_cast<const ValidValueObj*>(node->Data);
    if (listed.MaxValueNumber <= 1 || entry->ValueNumber == number) return entry;
  }
  return nullptr;
}

bool is_listed(const ValTagObj& listed, std::string_view text, int32_t number) {
  for (const CNode* node = listed.ValidValues.Head; node != nullptr; node = node->Next) {
    const auto* entry = static_cast<const ValidValueObj*>(node->Data);
    if (listed.MaxValueNumber > 1 && entry->ValueNumber != number) continue;
    if (std::string_view(entry->Value, entry->Length) == text) return true;
  }
  return false;
}

// An overlay without its data would not be one: as many zeros as it has bytes.
VX_STATUS set_zeros(MsgObj& object, TagObj& attribute, uint32_t length) {
  constexpr uint32_t kFewest = 8;  // an element of each VR
  constexpr uint32_t kMost = 1U << 24;
  const bool known = attribute.Tag >> 24 == 0x60 && length != kUndefinedLength && length <= kMost;
  const std::string zeros(known ? std::max(length, kFewest) : kFewest, '\0');
  return store_value(object, attribute, zeros.data(), static_cast<uint32_t>(zeros.size()), {});
}

}  // namespace

bool has_listed_values(const TagObj& attribute, const TagObj* rules) {
  if (listed_for(rules, 1) == nullptr || !is_text_vr(attribute.VR)) return false;
  if (attribute.Storage != Stored::InMemory) return false;
  int32_t number = 1;
  for (const ValueObj* value = attribute.FirstValue; value != nullptr; value = value->Next, ++number) {
    if (value->Data == nullptr) continue;
    const std::string_view text(static_cast<const char*>(value->Data), value->Length);
    if (!is_listed(*rules->Template, trim(text), number)) return false;
  }
  return true;
}

VX_STATUS set_empty(MsgObj& object, TagObj& attribute) {
  clear_value(object, attribute, false, true);
  return append_null(attribute);
}

VX_STATUS put_text(MsgObj& object, TagObj& attribute, std::string_view text, bool first) {
  const VX_STATUS status = set_text(object, attribute, text, first, nullptr);
  return status == VX_SYSTEM_ERROR || status == VX_TEMP_FILE_ERROR ? status : kOk;
}

VX_STATUS replace_text(MsgObj& object, TagObj& attribute, std::string_view text) {
  clear_value(object, attribute, false, true);
  return put_text(object, attribute, text, true);
}

VX_STATUS set_dummy(MsgObj& object, TagObj& attribute, const TagObj* rules) {
  const uint32_t length = attribute.Length;
  clear_value(object, attribute, false, true);
  if (is_bulk_vr(attribute.VR)) return set_zeros(object, attribute, length);
  int32_t count = 1;
  if (rules != nullptr) {
    count = std::max<int32_t>(
        {1, rules->VMLow, rules->Template != nullptr ? rules->Template->MaxValueNumber : 0});
    if (rules->VMHigh != 255) count = std::min<int32_t>(count, rules->VMHigh);
  }
  VX_STATUS status = kOk;
  for (int32_t number = 1; status == kOk && number <= count; ++number) {
    const ValidValueObj* listed = listed_for(rules, number);
    if (is_text_vr(attribute.VR)) {
      const std::string_view text = listed != nullptr ? std::string_view(listed->Value, listed->Length)
                                                      : std::string_view(dummy_text(attribute.VR));
      status = put_text(object, attribute, text, number == 1);
    } else {
      const char zero[8] = {};
      status = store_value(object, attribute, listed != nullptr ? listed->Value : zero,
                           vr_width(attribute.VR), {.first = number == 1});
    }
  }
  return status;
}

}  // namespace vx
