#include "rules.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "base/embedded.h"
#include "base/json.h"
#include "base/names.h"
#include "base/session.h"

namespace vexal {
namespace {

std::string setting(int32_t key) {
  char text[2048] = "";
  VX_Get_String_Config_Value(key, sizeof text, text);
  return text;
}

bool is_repeating(uint32_t tag) {
  const uint32_t high = tag >> 24;
  return (high == 0x50 || high == 0x60) && (tag >> 16) % 2 == 0;
}

std::string joined(const std::vector<std::string>& values) {
  std::string text;
  for (const std::string& value : values) text += (text.empty() ? "" : " | ") + value;
  return text;
}

void append_array(std::string& out, const std::vector<std::string>& values) {
  out += '[';
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i != 0) out += ',';
    append_json(out, values[i]);
  }
  out += ']';
}

// For as long as the program lives. Few of its pages are ever looked at.
std::string_view map_file(const std::string& path) {
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat status = {};
  void* bytes = MAP_FAILED;
  if (file >= 0 && ::fstat(file, &status) == 0 && status.st_size > 0)
    bytes = ::mmap(nullptr, static_cast<std::size_t>(status.st_size), PROT_READ, MAP_PRIVATE, file, 0);
  if (file >= 0) ::close(file);
  if (bytes == MAP_FAILED) throw vxdata::Unusable{path + ": can not be read"};
  return {static_cast<const char*>(bytes), static_cast<std::size_t>(status.st_size)};
}

}  // namespace

RuleBook::RuleBook() {
  take_names();
  try {
    read(setting(VX_CFG_MSG_INFO_FILE));
  } catch (const vxdata::Unusable& unusable) {
    problem_ = unusable.text;
  }
}

void RuleBook::read(const std::string& path) {
  file_.emplace(path, map_file(path));
  for (const Entry& entry : file_->entries()) index_[{entry.number, entry.command}] = entry;
}

const RuleBook& RuleBook::get() {
  static const RuleBook book;
  return book;
}

void RuleBook::take_names() {
  if (is_embedded_configuration()) {
    const ConfigRecord& record = *embedded_config();
    for (int i = 0; i < record.service_count; ++i) {
      services_[record.service_names[i]] = record.service_numbers[i];
    }
    for (int i = 0; i < record.item_count; ++i) items_[record.item_names[i]] = record.item_numbers[i];
    return;
  }
  vxdata::Profile profile;
  vxdata::Problems problems;
  profile.read(setting(VX_CFG_VEXALKIT_3_SERVICES), problems);
  for (const vxdata::Service& service : profile.services()) services_[service.name] = service.number;
  for (const vxdata::Item& item : profile.items()) items_[item.name] = item.number;
}

std::vector<uint16_t> RuleBook::commands(const std::string& service) const {
  std::vector<uint16_t> found;
  const auto at = services_.find(service);
  if (at == services_.end()) return found;
  if (!file_) return found;
  for (const Entry& entry : file_->entries()) {
    if (entry.number == at->second && entry.command != 0 && file_->has_attributes(entry))
      found.push_back(entry.command);
  }
  return found;
}

uint16_t RuleBook::usual_command(const std::string& service) const {
  const std::vector<uint16_t> known = commands(service);
  if (std::find(known.begin(), known.end(), C_STORE_RQ) != known.end()) return C_STORE_RQ;
  const auto request =
      std::find_if(known.begin(), known.end(), [](uint16_t command) { return command < kResponse; });
  return request != known.end() ? *request : known.empty() ? uint16_t{0} : known.front();
}

const RuleBook::Entry* RuleBook::find(const std::map<std::string, int>& numbers, const std::string& name,
                                      uint16_t command) const {
  const auto number = numbers.find(name);
  if (number == numbers.end()) return nullptr;
  const auto at = index_.find({number->second, command});
  return at != index_.end() && file_->has_attributes(at->second) ? &at->second : nullptr;
}

// A block that is damaged has no rules.
const Rules* RuleBook::decode(const Entry* entry) const {
  if (entry == nullptr) return nullptr;
  const std::lock_guard guard(mutex_);
  const auto known = decoded_.find(entry->body);
  if (known != decoded_.end()) return &known->second;
  try {
    return &(decoded_[entry->body] = file_->decode(*entry, vxdata::Dictionary()));
  } catch (const vxdata::Unusable& unusable) {
    complain("%s", unusable.text.c_str());
    return nullptr;
  }
}

bool RuleBook::has(const std::string& service, uint16_t command) const {
  return command != 0 && find(services_, service, command) != nullptr;
}

const Rules* RuleBook::message(const std::string& service, uint16_t command) const {
  return command == 0 ? nullptr : decode(find(services_, service, command));
}

const Rules* RuleBook::item(const std::string& name) const {
  return decode(find(items_, name, 0));
}

std::vector<std::string> RuleBook::similar(const std::string& word, std::size_t limit) const {
  std::string upper = word;
  for (char& c : upper) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
  const std::size_t reach = std::max<std::size_t>(2, word.size() / 4);
  std::vector<std::pair<std::size_t, std::string>> near;
  for (const auto* names : {&services_, &items_}) {
    for (const auto& [name, number] : *names) {
      const bool part = upper.size() > 1 && name.find(upper) != std::string::npos;
      const std::size_t distance = part ? 0 : edit_distance(word, name, reach);
      if (distance <= reach) near.emplace_back(distance, name);
    }
  }
  std::stable_sort(near.begin(), near.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<std::string> names;
  for (std::size_t i = 0; i < std::min(limit, near.size()); ++i) names.push_back(near[i].second);
  return names;
}

const Rule* find_rule(const Rules& rules, uint32_t tag) {
  const auto find = [&rules](uint32_t wanted) -> const Rule* {
    const auto at = std::lower_bound(rules.begin(), rules.end(), wanted,
                                     [](const Rule& rule, uint32_t other) { return rule.tag < other; });
    return at != rules.end() && at->tag == wanted ? &*at : nullptr;
  };
  const Rule* rule = find(tag);
  return rule != nullptr || !is_repeating(tag) ? rule : find(tag & 0xFF00FFFFU);
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

std::string representation_text(uint32_t tag, const Rule* rule) {
  char name[128];
  VX_VR vr = 0;
  uint16_t low = 0;
  uint16_t high = 0;
  if (VX_Get_Tags_Dict_Info(tag, name, sizeof name, &vr, &low, &high) == VX_NORMAL_COMPLETION) {
    return vr_letters(vr);
  }
  return rule != nullptr && rule->vr ? std::string(vxdata::vr_letters(*rule->vr)) : "";
}

std::string values_text(const Rule& rule, int number) {
  if (!rule.items.empty()) return joined(rule.items);
  bool by_number = false;  // lists for the first value only are for every value
  for (const vxdata::ValueList& list : rule.values) by_number = by_number || list.number > 1;
  std::string text;
  for (const vxdata::ValueList& list : rule.values) {
    if (number != 0 && by_number && list.number != number) continue;
    if (!text.empty()) text += "; ";
    if (by_number && number == 0) text += std::to_string(list.number) + ": ";
    text += joined(list.values);
    if (!list.enumerated) text += " | ...";
  }
  return text;
}

void append_rule_json(std::string& out, const Rule& rule) {
  out += ",\"type\":\"" + std::string(vxdata::type_text(rule.type)) + "\"";
  if (!rule.condition.empty()) {
    out += ",\"condition\":";
    append_json(out, rule.condition);
  }
  if (!rule.values.empty()) {
    out += ",\"values\":[";
    for (std::size_t i = 0; i < rule.values.size(); ++i) {
      const vxdata::ValueList& list = rule.values[i];
      out += std::string(i == 0 ? "" : ",") + "{\"valueNumber\":" + std::to_string(list.number) +
             ",\"enumerated\":" + (list.enumerated ? "true" : "false") + ",\"list\":";
      append_array(out, list.values);
      out += '}';
    }
    out += ']';
  }
  if (!rule.items.empty()) {
    out += ",\"items\":";
    append_array(out, rule.items);
  }
}

}  // namespace vexal
