#include "rules.h"

#include <algorithm>
#include <map>
#include <utility>

#include "base/embedded.h"
#include "base/json.h"
#include "base/names.h"
#include "base/session.h"
#include "profile.h"

namespace vexal {
namespace {

std::string setting(int32_t key) {
  char text[2048] = "";
  VX_Get_String_Config_Value(key, sizeof text, text);
  return text;
}

std::string joined(std::span<const RuleValueObj> values) {
  std::string text;
  for (const RuleValueObj& value : values) text += (text.empty() ? "" : " | ") + std::string(value.Text);
  return text;
}

void append_array(std::string& out, std::span<const RuleValueObj> values) {
  out += '[';
  for (const RuleValueObj& value : values) {
    if (out.back() != '[') out += ',';
    append_json(out, std::string_view(value.Text));
  }
  out += ']';
}

std::span<const RuleValueObj> listed(const RuleObj& rule) {
  return {rule.Values, static_cast<std::size_t>(rule.ValueCount)};
}

// Of the services, then of the items, each in order.
std::vector<std::string> known_names() {
  std::vector<std::string> services;
  std::vector<std::string> items;
  if (is_embedded_configuration()) {
    const ConfigRecord& record = *embedded_config();
    services.assign(record.service_names, record.service_names + record.service_count);
    items.assign(record.item_names, record.item_names + record.item_count);
  } else {
    vxdata::Profile profile;
    vxdata::Problems problems;
    profile.read(setting(VX_CFG_VEXALKIT_3_SERVICES), problems);
    for (const vxdata::Service& service : profile.services()) services.push_back(service.name);
    for (const vxdata::Item& item : profile.items()) items.push_back(item.name);
  }
  std::sort(services.begin(), services.end());
  std::sort(items.begin(), items.end());
  services.insert(services.end(), items.begin(), items.end());
  return services;
}

}  // namespace

Rules rules_of(const char* name, uint16_t command, VX_STATUS* status) {
  const RuleObj* rules = nullptr;
  int32_t count = 0;
  const VX_STATUS answer = VX_Get_Rules(name, command, &rules, &count);
  if (status != nullptr) *status = answer;
  return {rules, static_cast<std::size_t>(count)};
}

const RuleObj* find_rule(const char* name, uint16_t command, uint32_t tag) {
  const RuleObj* rule = nullptr;
  VX_Find_Rule(name, command, tag, &rule);
  return rule;
}

VX_STATUS rule_commands(const char* service, std::vector<uint16_t>& commands) {
  constexpr int32_t kMost = 64;
  commands.resize(kMost);
  int32_t count = 0;
  const VX_STATUS status = VX_Get_Rule_Commands(service, commands.data(), kMost, &count);
  commands.resize(static_cast<std::size_t>(std::min(count, kMost)));
  return status;
}

uint16_t usual_command(const std::vector<uint16_t>& commands) {
  if (std::find(commands.begin(), commands.end(), C_STORE_RQ) != commands.end()) return C_STORE_RQ;
  const auto request =
      std::find_if(commands.begin(), commands.end(), [](uint16_t command) { return command < kResponse; });
  return request != commands.end() ? *request : commands.empty() ? uint16_t{0} : commands.front();
}

std::vector<std::string> similar_names(const std::string& word, std::size_t limit) {
  std::string upper = word;
  for (char& c : upper) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
  const std::size_t reach = std::max<std::size_t>(2, word.size() / 4);
  std::vector<std::pair<std::size_t, std::string>> near;
  for (const std::string& name : known_names()) {
    const bool part = upper.size() > 1 && name.find(upper) != std::string::npos;
    const std::size_t distance = part ? 0 : edit_distance(word, name, reach);
    if (distance <= reach) near.emplace_back(distance, name);
  }
  std::stable_sort(near.begin(), near.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<std::string> names;
  for (std::size_t i = 0; i < std::min(limit, near.size()); ++i) names.push_back(near[i].second);
  return names;
}

const char* item_type(const RuleObj& rule) {
  return rule.VR == VX_VR_SQ && rule.ValueCount > 0 ? rule.Values->Text : nullptr;
}

std::vector<ValueList> value_lists(const RuleObj& rule) {
  std::vector<ValueList> lists;
  if (rule.VR == VX_VR_SQ) return lists;
  for (const RuleValueObj& value : listed(rule)) {
    const bool enumerated = value.IsEnumerated != 0;
    if (lists.empty() || lists.back().number != value.ValueNumber || lists.back().enumerated != enumerated)
      lists.push_back({value.ValueNumber, enumerated, {&value, 0}});
    lists.back().values = {lists.back().values.data(), lists.back().values.size() + 1};
  }
  return lists;
}

bool lists_by_number(const std::vector<ValueList>& lists) {
  return std::any_of(lists.begin(), lists.end(), [](const ValueList& list) { return list.number > 1; });
}

std::string_view type_letters(const RuleObj& rule) {
  constexpr std::string_view kTypes[] = {"1", "1C", "2", "2C", "3"};
  return kTypes[rule.Type];
}

std::string multiplicity_text(uint32_t tag) {
  char name[128];
  VX_VR vr = 0;
  uint16_t low = 0;
  uint16_t high = 0;
  if (VX_Get_Tags_Dict_Info(tag, name, sizeof name, &vr, &low, &high) != VX_NORMAL_COMPLETION) return "";
  std::string text = std::to_string(low);
  if (high == low) return text;
  return text + "-" + (high == 255 ? "n" : std::to_string(high));
}

std::string values_text(const RuleObj& rule, int number) {
  if (rule.VR == VX_VR_SQ) return joined(listed(rule));
  const std::vector<ValueList> lists = value_lists(rule);
  const bool by_number = lists_by_number(lists);
  std::string text;
  for (const ValueList& list : lists) {
    if (number != 0 && by_number && list.number != number) continue;
    if (!text.empty()) text += "; ";
    if (by_number && number == 0) text += std::to_string(list.number) + ": ";
    text += joined(list.values);
    if (!list.enumerated) text += " | ...";
  }
  return text;
}

void append_rule_json(std::string& out, const RuleObj& rule) {
  out += ",\"type\":\"" + std::string(type_letters(rule)) + "\"";
  if (rule.Condition != nullptr || rule.ConditionRule != nullptr) {
    out += ",\"condition\":";
    append_json(out, rule.Condition != nullptr ? std::string(rule.Condition)
                                               : "(" + std::string(rule.ConditionRule) + ")");
  }
  const std::vector<ValueList> lists = value_lists(rule);
  for (std::size_t i = 0; i < lists.size(); ++i) {
    out += std::string(i == 0 ? ",\"values\":[" : ",") +
           "{\"valueNumber\":" + std::to_string(lists[i].number) +
           ",\"enumerated\":" + (lists[i].enumerated ? "true" : "false") + ",\"list\":";
    append_array(out, lists[i].values);
    out += '}';
  }
  if (!lists.empty()) out += ']';
  if (item_type(rule) != nullptr) {
    out += ",\"items\":";
    append_array(out, listed(rule));
  }
}

}  // namespace vexal
