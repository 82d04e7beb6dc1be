#include "model/rule_list.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "frame/log.h"
#include "frame/pool.h"
#include "frame/state.h"
#include "frame/text.h"
#include "model/dictionary.h"
#include "model/message_info.h"
#include "model/object.h"
#include "model/seams.h"
#include "model/template_shelf.h"

namespace vx {
namespace {

Shelf<RuleList> lists;  // guarded by templateSemaphore

// Gathers the rules of a body with their texts in one string, and puts all into one block in the end.
class RuleTaker final : public RecordTaker {
 public:
  explicit RuleTaker(RuleList& target) : target_(target) {}

  VX_STATUS record(uint32_t tag, uint16_t parameter, std::string_view data) override;
  VX_STATUS finish() override;

 private:
  using Place = std::size_t;  // of a text; 0: none
  struct Draft {
    RuleObj rule;
    Place condition, condition_rule, module, creator, default_value;
    std::size_t first_value;
  };
  struct DraftValue {
    Place text;
    int32_t number, enumerated;
  };

  Place keep(std::string_view text);
  VX_STATUS complete(Draft& draft) const;

  RuleList& target_;
  std::vector<Draft> drafts_;
  std::vector<DraftValue> values_;
  std::string texts_ = std::string(1, '\0');
};

RuleTaker::Place RuleTaker::keep(std::string_view text) {
  if (text.empty()) return 0;
  const Place place = texts_.size();
  texts_.append(text.data(), text.size() + 1);  // a NUL stands behind each record's data
  return place;
}

VX_STATUS RuleTaker::record(uint32_t tag, uint16_t parameter, std::string_view data) {
  if (drafts_.empty() || drafts_.back().rule.Tag != tag) {
    drafts_.push_back({});
    drafts_.back().rule.Tag = tag;
    drafts_.back().rule.Type = kTypeNotSet;
    drafts_.back().rule.VR = VX_VR_UN;
    drafts_.back().first_value = values_.size();
  }
  Draft& draft = drafts_.back();
  if (parameter >= 1 && parameter <= kLastDefined) {
    const bool enumerated = parameter <= kLastEnumerated;
    const int32_t number = enumerated ? parameter : parameter - kLastEnumerated;
    if (const Place text = keep(data); text != 0) values_.push_back({text, number, enumerated ? 1 : 0});
    return kOk;
  }
  switch (parameter) {
    case kConditionName: {
      draft.condition = keep(data);
      std::string_view rule;
      if (find_condition != nullptr && find_condition(data, rule) && !rule.empty())
        draft.condition_rule = keep(std::string(rule.substr(rule.find_first_not_of(' '))));
      return kOk;
    }
    case kConditionRule:
      draft.condition_rule = keep(data);
      return kOk;
    case kOtherwise:
      draft.rule.MayBePresent = data == "may" ? 1 : 0;
      return kOk;
    case kModuleTitle:
      draft.module = keep(data);
      return kOk;
    case kVrLetters:
      return parse_vr(data, draft.rule.VR);
    case kDefaultValue:
      draft.default_value = keep(data);
      return kOk;
    case kCreatorCode:
      draft.creator = keep(data);
      return kOk;
    case kAttributeType:
      return parse_type(data, draft.rule.Type);
    default:
      return kOk;
  }
}

// What the dictionary says goes before what the file says.
VX_STATUS RuleTaker::complete(Draft& draft) const {
  if (draft.rule.Type == kTypeNotSet) {
    VX_LOG_ERR("VXI_Read_Message_Info", "No type code for tag 0x%8.8X in Message File.", draft.rule.Tag);
    return VX_MSGFILE_ERROR;
  }
  DictInfo info{draft.rule.VR, 1, 255, nullptr};
  const std::string_view creator = draft.creator == 0 ? "" : texts_.data() + draft.creator;
  dictionary_lookup(draft.rule.Tag, creator, info);
  draft.rule.VR = info.vr;
  draft.rule.VMLow = info.vm_low;
  draft.rule.VMHigh = info.vm_high;
  return kOk;
}

VX_STATUS RuleTaker::finish() {
  if (drafts_.empty()) return kOk;
  const std::size_t rule_bytes = drafts_.size() * sizeof(RuleObj);
  const std::size_t value_bytes = values_.size() * sizeof(RuleValueObj);
  auto* block = static_cast<char*>(allocate_raw(rule_bytes + value_bytes + texts_.size()));
  if (block == nullptr) return VX_SYSTEM_ERROR;
  auto* rules = reinterpret_cast<RuleObj*>(block);
  auto* values = reinterpret_cast<RuleValueObj*>(block + rule_bytes);
  char* texts = block + rule_bytes + value_bytes;
  std::memcpy(texts, texts_.data(), texts_.size());
  const auto text = [texts](Place place) { return place == 0 ? nullptr : texts + place; };
  for (std::size_t i = 0; i < values_.size(); ++i)
    values[i] = {text(values_[i].text), values_[i].number, values_[i].enumerated};
  for (std::size_t i = 0; i < drafts_.size(); ++i) {
    Draft& draft = drafts_[i];
    if (const VX_STATUS status = complete(draft); status != kOk) {
      release(block);
      return status;
    }
    const std::size_t end = i + 1 < drafts_.size() ? drafts_[i + 1].first_value : values_.size();
    draft.rule.Condition = text(draft.condition);
    draft.rule.ConditionRule = text(draft.condition_rule);
    draft.rule.Module = text(draft.module);
    draft.rule.Creator = text(draft.creator);
    draft.rule.DefaultValue = text(draft.default_value);
    draft.rule.Values = values + draft.first_value;
    draft.rule.ValueCount = static_cast<int32_t>(end - draft.first_value);
    rules[i] = draft.rule;
  }
  target_.Rules = rules;
  target_.Count = static_cast<int32_t>(drafts_.size());
  return kOk;
}

// A command that the file lacks has no rules; asking for them is no fault.
VX_STATUS read_known_rules(const TemplateRequest& request, RuleList& out) {
  if (request.command != 0) {
    std::vector<uint16_t> commands;
    const VX_STATUS status = list_commands(request, commands);
    if (status != kOk) return status;
    if (std::find(commands.begin(), commands.end(), request.command) == commands.end()) return kOk;
  }
  return read_rules(request, out);
}

}  // namespace

VX_STATUS read_rules(const TemplateRequest& request, RuleList& out) {
  RuleTaker taker(out);
  return read_records(request, taker);
}

VX_STATUS get_rules(const char* name, uint16_t command, const RuleList*& out) {
  const Guard guard(state().templateSemaphore);
  out = lists.find(name, command);
  if (out == nullptr) {
    if (template_number(name, command) < 0) return VX_NOT_FOUND;
    RuleList list{nullptr, command, nullptr, 0};
    const VX_STATUS status =
        read_configured(name, command, [&](const TemplateRequest& r) { return read_known_rules(r, list); });
    if (status != kOk) return status;
    list.Name = duplicate_text(name);
    out = list.Name == nullptr ? nullptr : lists.add(list);
    if (out == nullptr) {
      release(list.Name);
      release(const_cast<RuleObj*>(list.Rules));
      return VX_SYSTEM_ERROR;
    }
  }
  return out->Count == 0 ? VX_NOT_FOUND : kOk;
}

const RuleObj* find_rule(const RuleList& rules, uint32_t tag) {
  const RuleObj* end = rules.Rules + rules.Count;
  const RuleObj* at = std::lower_bound(
      rules.Rules, end, tag, [](const RuleObj& rule, uint32_t wanted) { return rule.Tag < wanted; });
  if (at != end && at->Tag == tag) return at;
  return is_repeating(tag) && tag != repeating_base(tag) ? find_rule(rules, repeating_base(tag)) : nullptr;
}

VX_STATUS rule_commands(const char* service, std::vector<uint16_t>& commands) {
  const Guard guard(state().templateSemaphore);
  constexpr uint16_t kAny = C_STORE_RQ;  // of some service
  return read_configured(service, kAny, [&](const TemplateRequest& r) { return list_commands(r, commands); });
}

void drop_rules() {
  lists.drop();
}

}  // namespace vx
