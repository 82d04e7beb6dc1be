// Message Info Files: one message and one item are read from whatever a file holds, for objects and for
// applications. The attributes of a template rise, and every text has its terminator.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "frame/pool.h"
#include "frame/seams.h"
#include "model/message_info_file.h"
#include "model/rule_list.h"

namespace {

void walk(const vx::MsgTemplate& message_template) {
  const vx::TagObj* previous = nullptr;
  for (const vx::TagObj* at = message_template.FirstTag; at != nullptr; at = at->Next) {
    if (at->Previous != previous || (previous != nullptr && at->Tag <= previous->Tag)) std::abort();
    for (const vx::CNode* node = at->Template->ValidValues.Head; node != nullptr; node = node->Next) {
      const auto* value = static_cast<const vx::ValidValueObj*>(node->Data);
      if (value->Value[value->Length] != '\0') std::abort();
    }
    const char* creator = vx::template_creator(message_template, *at);
    if (creator == nullptr) std::abort();
    previous = at;
  }
}

void walk_rules(const vx::RuleList& list) {
  std::size_t length = 0;
  for (int32_t i = 0; i < list.Count; ++i) {
    const RuleObj& rule = list.Rules[i];
    if (i > 0 && rule.Tag <= list.Rules[i - 1].Tag) std::abort();
    if (vx::find_rule(list, rule.Tag) != &rule) std::abort();
    for (const char* text :
         {rule.Condition, rule.ConditionRule, rule.Module, rule.Creator, rule.DefaultValue})
      length += text == nullptr ? 0 : std::strlen(text);
    for (int32_t n = 0; n < rule.ValueCount; ++n) length += std::strlen(rule.Values[n].Text);
  }
  if (length > static_cast<std::size_t>(list.Count) * 0xFFFF * 1000) std::abort();
}

// A few attributes, so that the dictionary's word meets the file's.
void load_dictionary() {
  static const DictEntry sequence{nullptr, 0x00081140, VX_VR_SQ, 1, 1, "Referenced Image Sequence", nullptr};
  static const DictEntry name{nullptr, 0x00100010, VX_VR_PN, 1, 1, "Patient's Name", nullptr};
  static const DictEntry numbers{nullptr, 0x00090002, VX_VR_US, 1, 255, "Private Numbers", "ACME 1.0"};
  static const DictEntry* chains[VX_DICTIONARY_CHAINS];
  for (const DictEntry* entry : {&sequence, &name, &numbers})
    chains[entry->Tag % VX_DICTIONARY_CHAINS] = entry;
  static const DictionaryRecord record{nullptr, chains};
  vx::dictionary_take_record(&record);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const int memory = ::memfd_create("message_info", 0);
  static const std::string path = "/proc/self/fd/" + std::to_string(memory);
  static const bool loaded = (load_dictionary(), true);
  static_cast<void>(loaded);
  if (::ftruncate(memory, 0) != 0 || ::pwrite(memory, data, size, 0) != static_cast<ssize_t>(size)) return 0;
  for (const uint16_t command : {static_cast<uint16_t>(C_STORE_RQ), uint16_t{0}}) {
    vx::MsgTemplate result{};
    const VX_STATUS status = vx::read_template({path.c_str(), "NAME", command, 1}, result);
    if (status == VX_NORMAL_COMPLETION) {
      walk(result);
      vx::free_template_parts(result);
    } else if (status != VX_MSGFILE_ERROR || result.FirstTag != nullptr) {
      std::abort();
    }
    const vx::TemplateRequest request{path.c_str(), "NAME", command, 1};
    std::vector<uint16_t> commands;
    vx::list_commands(request, commands);
    vx::RuleList rules{};
    if (vx::read_rules(request, rules) == VX_NORMAL_COMPLETION) {
      walk_rules(rules);
    } else if (rules.Rules != nullptr) {
      std::abort();
    }
    vx::release(const_cast<RuleObj*>(rules.Rules));
  }
  return 0;
}
