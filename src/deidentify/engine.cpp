#include "deidentify/engine.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "config/services.h"
#include "deidentify/dummies.h"
#include "deidentify/patient_words.h"
#include "deidentify/profile.h"
#include "deidentify/pseudonyms.h"
#include "frame/limits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "model/attributes.h"
#include "model/deferred.h"
#include "model/dictionary.h"
#include "model/file_values.h"
#include "model/held.h"
#include "model/message_info.h"
#include "model/private_blocks.h"
#include "model/values.h"

namespace vx {
namespace {

constexpr char kFunction[] = "VX_Deidentify_Message";
constexpr uint16_t kFirstGroup = 8;  // those below are the command, the meta group and directories
constexpr uint16_t kStoreRequest = 1;
constexpr uint32_t kSopClass = 0x00080016;
constexpr uint32_t kPatientName = 0x00100010;
constexpr uint32_t kPatientId = 0x00100020;
constexpr uint32_t kDocument = 0x00420011;

// Its values, without padding.
std::vector<std::string_view> texts_of(const TagObj& attribute) {
  std::vector<std::string_view> texts;
  for (const ValueObj* value = attribute.FirstValue; value != nullptr; value = value->Next) {
    std::string_view text(static_cast<const char*>(value->Data), value->Data != nullptr ? value->Length : 0);
    while (!text.empty() && text.back() == '\0') text.remove_suffix(1);
    texts.push_back(trim(text));
  }
  return texts;
}

// The first value of a text, without blanks around it; empty if there is none.
std::string_view first_text(MsgObj& object, uint32_t tag) {
  const TagObj* attribute = find_text(object, tag);
  if (attribute == nullptr) return {};
  const std::vector<std::string_view> texts = texts_of(*attribute);
  return texts.empty() ? std::string_view() : texts[0];
}

bool has_value(const TagObj& attribute) {
  return attribute.Storage == Stored::ByCallback || attribute.Length != 0;
}

constexpr bool is_number_text(int32_t vr) {
  return vr == VX_VR_DS || vr == VX_VR_IS;
}

// A number, date or UID that is written in other letters than those of the VR is a text of its own.
bool has_letters_of(int32_t vr, const TagObj& attribute) {
  std::string_view letters;
  switch (vr) {
    case VX_VR_AS:
      letters = "0123456789DWMY";
      break;
    case VX_VR_DA:
    case VX_VR_DT:
    case VX_VR_TM:
      letters = "0123456789.:+-";
      break;
    case VX_VR_DS:
    case VX_VR_IS:
      letters = "0123456789.+-eE";
      break;
    case VX_VR_UI:
      letters = "0123456789.";
      break;
    default:
      return true;
  }
  const std::vector<std::string_view> texts = texts_of(attribute);
  return std::all_of(texts.begin(), texts.end(), [letters](std::string_view text) {
    return text.find_first_not_of(letters) == std::string_view::npos;
  });
}
constexpr ConfidentialityRow kNotOfItsKind{0, 0, kMayX | kMayZ | kMayD, 0, 0, false};
// Of a text that names the patient a neutral one stays, as others may depend on it.
constexpr ConfidentialityRow kNamesPatient{0, 0, kMayD, 0, 0, false};

// What a sequence that is dealt with as a whole asks of its items, beyond what their own rows say.
enum class Mode : uint8_t {
  Plain,
  Clean,     // what people wrote goes, and codes of the site
  Dummy,     // so does what they drew
  DummyCode  // and every code: the item itself is what has to go
};

// One object of the tree.
struct Level {
  MsgObj& object;
  const MsgTemplate* rules;  // null: not known
  Mode mode;
  int depth;
  std::string patient;      // who it tells of
  bool keeps_code = false;  // the code that the item is
  bool is_code = false;
  const TagObj* next_rule = nullptr;
};

class Walk {
 public:
  Walk(const VX_DEIDENTIFICATION& how, MsgObj& root)
      : how_(how),
        pseudonyms_({static_cast<const char*>(how.Secret), how.SecretSize}),
        patient_words_(root, how.Options) {}

  VX_STATUS root(MsgObj& object, const MsgTemplate* rules);

 private:
  VX_STATUS object(Level level);
  VX_STATUS attribute(Level& level, TagObj& attribute);
  VX_STATUS private_attribute(Level& level, TagObj& attribute);
  VX_STATUS replace_misfit(Level& level, TagObj& attribute, const TagObj* rule, const DictInfo& known);
  VX_STATUS without_row(Level& level, TagObj& attribute, const TagObj* rule);
  VX_STATUS act(Level& level, TagObj& attribute, const TagObj* rule, const ConfidentialityRow& row,
                uint32_t options);
  VX_STATUS clean(Level& level, TagObj& attribute, const TagObj* rule, const ConfidentialityRow& row);
  VX_STATUS dummy(Level& level, TagObj& attribute, const TagObj* rule, Mode mode);
  VX_STATUS items(Level& level, TagObj& attribute, const TagObj* rule, Mode mode);
  VX_STATUS change_uids(Level& level, TagObj& attribute);
  VX_STATUS remove(Level& level, TagObj& attribute);
  std::vector<std::string> shifted(const TagObj& attribute) const;
  VX_STATUS set_texts(Level& level, TagObj& attribute, Action action, const std::vector<std::string>& texts);
  VX_STATUS set_pseudonym(Level& level, TagObj& attribute);
  VX_STATUS report(const Level& level, const TagObj& attribute, Action action);
  VX_STATUS note_safe_blocks(MsgObj& object);
  bool is_safe(const Level& level, const TagObj& attribute);
  bool names_patient(const Level& level, const TagObj& attribute) const;

  const VX_DEIDENTIFICATION& how_;
  Pseudonyms pseudonyms_;
  PatientWords patient_words_;
  int32_t shift_ = 0;
  std::string path_;  // of the object at hand, with a dot behind it
  struct SafeBlock {
    uint16_t group;
    std::string creator;
    bool whole;
    std::vector<uint16_t> elements;
  };
  std::vector<SafeBlock> safe_blocks_;  // as the object itself says
};

Need need_of(const Level& level, const TagObj* rule) {
  if (level.rules == nullptr) return Need::Unknown;
  // An overlay is complete or not there at all.
  if (rule != nullptr && rule->Tag >> 24 == 0x60 && rule->Template->AttributeType != kType1)
    return Need::Nothing;
  if (rule == nullptr || rule->Template == nullptr) return Need::Nothing;
  switch (rule->Template->AttributeType) {
    case kType1:
    case kType1C:
      return Need::Value;
    case kType2:
    case kType2C:
      return Need::Presence;
    default:
      return Need::Nothing;
  }
}

// The rule of an attribute; both lists ascend. Repeating groups go by their base.
const TagObj* rule_for(Level& level, uint32_t tag) {
  if (level.rules == nullptr) return nullptr;
  const uint32_t wanted = is_repeating(tag) ? repeating_base(tag) : tag;
  const TagObj*& rule = level.next_rule;
  if (rule == nullptr || rule->Tag > wanted) rule = level.rules->FirstTag;
  while (rule != nullptr && rule->Tag < wanted) rule = rule->Next;
  return rule != nullptr && rule->Tag == wanted ? rule : nullptr;
}

// ---- Objects ----

VX_STATUS Walk::root(MsgObj& object, const MsgTemplate* rules) {
  std::string_view patient = first_text(object, kPatientId);
  if (patient.empty()) patient = first_text(object, kPatientName);
  shift_ = how_.DateShift != 0 ? how_.DateShift : pseudonyms_.date_shift(patient);
  if ((how_.Options & VX_RETAIN_SAFE_PRIVATE) != 0) {
    const VX_STATUS status = note_safe_blocks(object);
    if (status != kOk) return status;
  }
  return this->object({object, rules, Mode::Plain, 0, std::string(patient)});
}

VX_STATUS Walk::object(Level level) {
  if (level.depth > kMaxNesting) return VX_INVALID_VALUE_FOR_VR;
  MsgObj& object = level.object;
  VX_STATUS status = decode_all(object);
  const std::string_view scheme = first_text(object, 0x00080102);
  level.is_code = !scheme.empty() || find_tag(object, 0x00080100) != nullptr ||
                  find_tag(object, 0x00080119) != nullptr || find_tag(object, 0x00080120) != nullptr;
  level.keeps_code = is_public_scheme(scheme) && level.mode != Mode::DummyCode;
  if (std::string_view id = first_text(object, kPatientId); !id.empty()) level.patient = id;
  for (uint32_t tag = 0; status == kOk;) {
    TagObj* next = lower_bound_tag(object, tag);
    if (next == nullptr) break;
    const uint32_t at = next->Tag;
    status = attribute(level, *next);
    if (at == 0xFFFFFFFFU) break;
    tag = at + 1;
  }
  return status;
}

VX_STATUS Walk::items(Level& level, TagObj& attribute, const TagObj* rule, Mode mode) {
  const std::size_t length = path_.size();
  int32_t number = 0;
  VX_STATUS status = kOk;
  for (const ValueObj* value = attribute.FirstValue; value != nullptr && status == kOk; value = value->Next) {
    if (value->Data == nullptr) continue;
    auto& item = *static_cast<MsgObj*>(value->Data);
    const char* type = nullptr;
    if (item.ServiceName != nullptr && std::strcmp(item.ServiceName, kNoName) != 0) type = item.ServiceName;
    if (type == nullptr && rule != nullptr && rule->Template != nullptr &&
        rule->Template->ValidValues.Head != nullptr) {
      type = static_cast<const ValidValueObj*>(rule->Template->ValidValues.Head->Data)->Value;
    }
    const MsgTemplate* rules = nullptr;
    if (type != nullptr && find_item_number(type) >= 0) {
      status = get_template(type, 0, rules);
      if (status == VX_SYSTEM_ERROR) return status;
      status = kOk;
    }
    if (how_.Report != nullptr) {
      char step[24];
      std::snprintf(step, sizeof step, "%08X[%d].", attribute.Tag, number++);
      path_ += step;
    }
    status = object({item, rules, mode, level.depth + 1, level.patient});
    path_.resize(length);
  }
  return status;
}

VX_STATUS Walk::report(const Level& level, const TagObj& attribute, Action action) {
  if (how_.Report == nullptr) return kOk;
  char tag[9];
  std::snprintf(tag, sizeof tag, "%08X", attribute.Tag);
  const Held held(level.object, Hold::All);
  const std::string path = path_ + tag;
  return how_.Report(level.object.ID, attribute.Tag, path.c_str(), static_cast<char>(action),
                     how_.UserInfo) == kOk
             ? kOk
             : VX_CALLBACK_CANNOT_COMPLY;
}

// ---- Attributes ----

VX_STATUS Walk::attribute(Level& level, TagObj& attribute) {
  const uint32_t tag = attribute.Tag;
  if (is_private(tag)) return private_attribute(level, attribute);
  if (tag_element(tag) == 0 && tag_group(tag) >= kFirstGroup) return delete_attribute(level.object, tag);
  if (attribute.Storage == Stored::InFile && is_text_vr(attribute.VR)) {
    if (const VX_STATUS status = load_file_value(level.object, attribute); status != kOk) return status;
  }
  DictInfo known{};
  const TagObj* rule = rule_for(level, tag);
  if (dictionary_lookup(tag, {}, known) != kOk) return remove(level, attribute);
  if (attribute.VR == VX_VR_UN && known.vr != VX_VR_UN && attribute.Storage == Stored::InMemory) {
    set_value_representation(level.object, attribute, known.vr);  // what can not be read stays UN, and goes
  }
  // Text where numbers belong is not what the profile thinks of.
  const bool misfit = attribute.VR != known.vr && (attribute.VR == VX_VR_UN || is_text_vr(attribute.VR)) &&
                      !is_text_vr(known.vr) && has_value(attribute);
  if (misfit || (attribute.VR == VX_VR_UN && known.vr != VX_VR_UN && has_value(attribute)))
    return replace_misfit(level, attribute, rule, known);
  const bool fits = has_letters_of(attribute.VR, attribute) && has_letters_of(known.vr, attribute);
  if (!fits) return act(level, attribute, rule, kNotOfItsKind, 0);
  const ConfidentialityRow* row = confidentiality_of(tag, attribute.VR);
  if (row != nullptr) return act(level, attribute, rule, *row, how_.Options);
  if (names_patient(level, attribute)) return act(level, attribute, rule, kNamesPatient, 0);
  return without_row(level, attribute, rule);
}

// In a text that would stay; what a public code means is the same for everyone.
bool Walk::names_patient(const Level& level, const TagObj& attribute) const {
  const bool code = level.is_code && level.keeps_code && tag_group(attribute.Tag) == 0x0008;
  return !code && patient_words_.stand_in(attribute);
}

// A value that is not of the attribute's VR goes, and what has to be there comes back in the right one.
VX_STATUS Walk::replace_misfit(Level& level, TagObj& attribute, const TagObj* rule, const DictInfo& known) {
  const Need need = need_of(level, rule);
  const uint32_t tag = attribute.Tag;
  VX_STATUS status = remove(level, attribute);
  if (status != kOk || need == Need::Nothing || need == Need::Unknown || known.vr == VX_VR_SQ) return status;
  TagObj* fresh = nullptr;
  status = new_tag(level.object, tag, known.vr, known.vm_low, known.vm_high, &fresh);
  if (status != kOk) return status;
  return need == Need::Value ? set_dummy(level.object, *fresh, rule) : set_empty(level.object, *fresh);
}

VX_STATUS Walk::without_row(Level& level, TagObj& attribute, const TagObj* rule) {
  if (attribute.VR == VX_VR_SQ) {
    return items(level, attribute, rule, level.mode == Mode::DummyCode ? Mode::Dummy : level.mode);
  }
  if (level.mode == Mode::Plain || !has_value(attribute) || tag_group(attribute.Tag) < kFirstGroup)
    return kOk;
  bool stays = has_listed_values(attribute, rule);
  if (level.is_code && tag_group(attribute.Tag) == 0x0008) {
    stays = level.keeps_code || attribute.VR == VX_VR_UI || attribute.VR == VX_VR_CS;
  } else if (!stays) {
    const int32_t vr = attribute.VR;
    const bool drawn = level.mode != Mode::Clean && (vr == VX_VR_FL || vr == VX_VR_FD || is_bulk_vr(vr));
    const bool written = is_text_vr(vr) && vr != VX_VR_CS && vr != VX_VR_UI && !is_number_text(vr);
    stays = !drawn && !written;
  }
  return stays ? kOk : dummy(level, attribute, rule, level.mode);
}

VX_STATUS Walk::act(Level& level, TagObj& attribute, const TagObj* rule, const ConfidentialityRow& row,
                    uint32_t options) {
  const Action action = action_of(row, options, need_of(level, rule));
  const bool sequence = attribute.VR == VX_VR_SQ;
  switch (action) {
    case Action::Keep:
      if (names_patient(level, attribute)) return act(level, attribute, rule, kNamesPatient, 0);
      return sequence ? items(level, attribute, rule, Mode::Plain) : kOk;
    case Action::Remove:
      return remove(level, attribute);
    case Action::Uid:
      if (sequence) return items(level, attribute, rule, Mode::Plain);
      return attribute.VR == VX_VR_UI ? change_uids(level, attribute) : remove(level, attribute);
    case Action::Clean:
      return clean(level, attribute, rule, row);
    case Action::Empty:
    case Action::Dummy:
      break;
  }
  if (!has_value(attribute)) return kOk;
  if (row.patient) return set_pseudonym(level, attribute);
  if (action == Action::Dummy) return dummy(level, attribute, rule, Mode::DummyCode);
  const VX_STATUS status = report(level, attribute, Action::Empty);
  return status == kOk ? set_empty(level.object, attribute) : status;
}

VX_STATUS Walk::dummy(Level& level, TagObj& attribute, const TagObj* rule, Mode mode) {
  VX_STATUS status = report(level, attribute, Action::Dummy);
  if (status != kOk) return status;
  return attribute.VR == VX_VR_SQ ? items(level, attribute, rule, mode)
                                  : set_dummy(level.object, attribute, rule);
}

VX_STATUS Walk::remove(Level& level, TagObj& attribute) {
  const uint32_t tag = attribute.Tag;
  VX_STATUS status = report(level, attribute, Action::Remove);
  if (status != kOk) return status;
  // An overlay without its plane is none.
  if (tag >> 24 == 0x60 && tag_element(tag) == 0x3000) {
    return delete_range(level.object, tag & 0xFFFF0000U, tag | 0xFFFFU);
  }
  return delete_attribute(level.object, tag);
}

// What nobody looks at is cleaned where that can be told; else it goes by the table without options.
VX_STATUS Walk::clean(Level& level, TagObj& attribute, const TagObj* rule, const ConfidentialityRow& row) {
  const int32_t vr = attribute.VR;
  if (vr == VX_VR_SQ) return items(level, attribute, rule, Mode::Clean);
  if (!has_value(attribute)) return kOk;
  if ((row.clean & how_.Options & VX_RETAIN_MODIFIED_DATES) != 0) {
    if (vr == VX_VR_TM || vr == VX_VR_SH)
      return kOk;  // whole days leave the time of day and the zone as they are
    const std::vector<std::string> dates =
        vr == VX_VR_DA || vr == VX_VR_DT ? shifted(attribute) : std::vector<std::string>();
    return dates.empty() ? act(level, attribute, rule, row, 0)
                         : set_texts(level, attribute, Action::Clean, dates);
  }
  if (has_listed_values(attribute, rule)) return kOk;
  if (!is_text_vr(vr) || vr == VX_VR_UI) return act(level, attribute, rule, row, 0);
  const VX_STATUS status = report(level, attribute, Action::Clean);
  return status == kOk ? set_dummy(level.object, attribute, rule) : status;
}

VX_STATUS Walk::change_uids(Level& level, TagObj& attribute) {
  if (!has_value(attribute)) return kOk;
  if (attribute.Storage != Stored::InMemory) return remove(level, attribute);
  std::vector<std::string> uids;
  bool changed = false;
  for (const std::string_view old : texts_of(attribute)) {
    uids.push_back(old.empty() ? std::string() : pseudonyms_.uid(old));
    changed = changed || uids.back() != old;
  }
  return changed ? set_texts(level, attribute, Action::Uid, uids) : kOk;
}

// Empty if one of them can not be read, and so not be moved.
std::vector<std::string> Walk::shifted(const TagObj& attribute) const {
  std::vector<std::string> dates;
  for (const std::string_view old : texts_of(attribute)) {
    dates.push_back(shifted_date(old, shift_));
    if (dates.back().empty()) return {};
  }
  return dates;
}

VX_STATUS Walk::set_texts(Level& level, TagObj& attribute, Action action,
                          const std::vector<std::string>& texts) {
  VX_STATUS status = report(level, attribute, action);
  if (status != kOk) return status;
  clear_value(level.object, attribute, false, true);
  for (std::size_t i = 0; i < texts.size() && status == kOk; ++i) {
    status = texts[i].empty() ? append_null(attribute) : put_text(level.object, attribute, texts[i], i == 0);
  }
  return status;
}

VX_STATUS Walk::set_pseudonym(Level& level, TagObj& attribute) {
  const VX_STATUS status = report(level, attribute, Action::Dummy);
  if (status != kOk) return status;
  if (level.patient.empty()) level.patient = first_text(level.object, attribute.Tag);
  return replace_text(level.object, attribute, pseudonyms_.patient(level.patient));
}

// ---- Private attributes ----

// (0008,0300) tells which blocks, or which of their attributes, are harmless (PS3.3 section C.12.1.1.7).
VX_STATUS Walk::note_safe_blocks(MsgObj& object) {
  const TagObj* characteristics = find_tag(object, 0x00080300);
  if (characteristics == nullptr || characteristics->VR != VX_VR_SQ) return kOk;
  for (const ValueObj* value = characteristics->FirstValue; value != nullptr; value = value->Next) {
    if (value->Data == nullptr) continue;
    auto& item = *static_cast<MsgObj*>(value->Data);
    const VX_STATUS status = decode_all(item);
    if (status != kOk) return status;
    const TagObj* group = find_tag(item, 0x00080301);
    const std::string_view creator = first_text(item, 0x00080302);
    const std::string_view safety = first_text(item, 0x00080303);
    const void* number = group != nullptr && group->VR == VX_VR_US ? numeric_value(*group, 1) : nullptr;
    if (number == nullptr || creator.empty() || (safety != "SAFE" && safety != "MIXED")) continue;
    SafeBlock block{0, std::string(creator), safety == "SAFE", {}};
    std::memcpy(&block.group, number, sizeof block.group);
    const TagObj* listed = find_tag(item, 0x00080304);
    if (listed != nullptr && listed->VR == VX_VR_US) {
      for (int32_t i = 1; const void* element = numeric_value(*listed, i); ++i) {
        std::memcpy(&block.elements.emplace_back(), element, sizeof(uint16_t));
      }
    }
    safe_blocks_.push_back(std::move(block));
  }
  return kOk;
}

bool Walk::is_safe(const Level& level, const TagObj& attribute) {
  const uint16_t group = tag_group(attribute.Tag);
  const auto element = static_cast<uint8_t>(attribute.Tag & 0xFFU);
  const std::string_view creator = creator_of(level.object, attribute.Tag);
  if (creator.empty()) return false;
  if (is_safe_private(creator, group, element)) return true;
  return std::any_of(safe_blocks_.begin(), safe_blocks_.end(), [&](const SafeBlock& block) {
    const auto& listed = block.elements;
    return block.group == group && block.creator == creator &&
           (block.whole || std::find(listed.begin(), listed.end(), element) != listed.end());
  });
}

VX_STATUS Walk::private_attribute(Level& level, TagObj& attribute) {
  const Action action = action_of(private_confidentiality(), how_.Options, Need::Nothing);
  if (action != Action::Clean) return remove(level, attribute);
  if (!is_private_creator(attribute.Tag)) {
    if (!is_safe(level, attribute) || patient_words_.stand_in(attribute)) return remove(level, attribute);
    return attribute.VR == VX_VR_SQ ? items(level, attribute, nullptr, Mode::Dummy) : kOk;
  }
  // The creator stays for those of its block that do.
  const uint32_t first = (attribute.Tag & 0xFFFF0000U) | (attribute.Tag & 0xFFU) << 8;
  const TagObj* of_block = lower_bound_tag(level.object, first);
  for (; of_block != nullptr && of_block->Tag <= (first | 0xFFU); of_block = of_block->Next) {
    if (is_safe(level, *of_block)) return kOk;
  }
  return remove(level, attribute);
}

// ---- What the object tells of it ----

// Anew, whatever of it was there.
VX_STATUS renew(MsgObj& object, uint32_t tag, TagObj*& attribute) {
  DictInfo known{};
  VX_STATUS status = dictionary_lookup(tag, {}, known);
  if (status == kOk && find_tag(object, tag) != nullptr) status = delete_attribute(object, tag);
  return status == kOk ? new_tag(object, tag, known.vr, known.vm_low, known.vm_high, &attribute) : status;
}

VX_STATUS put(MsgObj& object, uint32_t tag, std::string_view text) {
  TagObj* attribute = nullptr;
  const VX_STATUS status = renew(object, tag, attribute);
  return status == kOk ? put_text(object, *attribute, text, true) : status;
}

VX_STATUS add_method(MsgObj& object, TagObj& sequence, const MethodCode& method) {
  MsgObj* item = nullptr;
  VX_STATUS status = open_object(Kind::Item, kNoName, item);
  if (status != kOk) return status;
  status = put(*item, 0x00080100, method.value);
  if (status == kOk) status = put(*item, 0x00080102, "DCM");
  if (status == kOk) status = put(*item, 0x00080104, method.meaning);
  if (status == kOk) status = adopt_item(&object, sequence, item);
  if (status == kOk) status = append_item(sequence, *item);
  if (status != kOk) free_item(*item, true);
  return status;
}

VX_STATUS tell(MsgObj& object, uint32_t options) {
  TagObj* sequence = nullptr;
  TagObj* texts = nullptr;
  VX_STATUS status = put(object, 0x00120062, "YES");
  if (status == kOk) status = renew(object, 0x00120063, texts);
  if (status == kOk) status = renew(object, 0x00120064, sequence);
  for (const MethodCode& method : kMethods) {
    if (status != kOk) return status;
    if (method.option != 0 && (options & method.option) == 0) continue;
    status = put_text(object, *texts, method.meaning, texts->ValueCount == 0);
    if (status == kOk) status = add_method(object, *sequence, method);
  }
  const bool full = (options & VX_RETAIN_FULL_DATES) != 0;
  const bool modified = (options & VX_RETAIN_MODIFIED_DATES) != 0;
  if (status == kOk)
    status = put(object, 0x00280303, full ? "UNMODIFIED" : modified ? "MODIFIED" : "REMOVED");
  if (status == kOk && (options & VX_CLEAN_PIXEL_DATA) != 0) status = put(object, 0x00280301, "NO");
  return status;
}

// The rules of the object's service, or of its SOP class; null if there are none.
VX_STATUS find_rules(MsgObj& object, const MsgTemplate*& rules) {
  const char* service = object.ServiceName;
  uint16_t command = object.Command;
  if (service == nullptr || std::strcmp(service, kNoName) == 0 || !is_valid_command(command)) {
    const SopObj* found = find_service_by_uid(first_text(object, kSopClass));
    service = found != nullptr ? found->name : nullptr;
    command = kStoreRequest;
  }
  rules = nullptr;
  if (service == nullptr || check_service_command(service, command) != kOk) return kOk;
  const VX_STATUS status = get_template(service, command, rules);
  if (status == VX_SYSTEM_ERROR) return status;
  if (status != kOk || rules->FirstTag == nullptr) rules = nullptr;
  return kOk;
}

}  // namespace

VX_STATUS deidentify(MsgObj& object, const VX_DEIDENTIFICATION& how) {
  VX_STATUS status = decode_all(object);
  const MsgTemplate* rules = nullptr;
  if (status == kOk) status = find_rules(object, rules);
  if (status != kOk) return status;
  if (rules == nullptr && (how.Options & VX_ANY_CLASS) == 0) {
    VX_LOG_ERR(kFunction, "No template for the SOP class of the object.");
    return VX_INVALID_SOP_CLASS_UID;
  }
  const TagObj* document = find_tag(object, kDocument);
  if (document != nullptr && has_value(*document) && (how.Options & VX_REPLACE_DOCUMENTS) == 0) {
    VX_LOG_ERR(kFunction, "The object holds an encapsulated document.");
    return VX_VALUE_NOT_ALLOWED;
  }
  status = Walk(how, object).root(object, rules);
  if (status == kOk) status = tell(object, how.Options);
  if (status == kOk && object.File != nullptr)
    std::memset(object.File->Preamble, 0, sizeof object.File->Preamble);
  return status;
}

}  // namespace vx
