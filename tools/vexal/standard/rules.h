// The rules of messages and items as the library knows them, for people to read.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "vexalkit.h"

namespace vexal {

inline constexpr uint16_t kResponse = 0x8000;  // commands from here on

using Rules = std::span<const RuleObj>;  // ascending by tag; the library's, for as long as it runs

// Of a service and command, or of an item type (command 0); without any where none are known.
Rules rules_of(const char* name, uint16_t command, VX_STATUS* status = nullptr);
// Null if there is none; a repeating group goes by its base group.
const RuleObj* find_rule(const char* name, uint16_t command, uint32_t tag);
// The commands of a service that rules are known for; VX_MSGFILE_ERROR, which the log explains.
VX_STATUS rule_commands(const char* service, std::vector<uint16_t>& commands);
// Of these C_STORE_RQ, else the first request; 0 without any.
uint16_t usual_command(const std::vector<uint16_t>& commands);
// Services and items near a word.
std::vector<std::string> similar_names(const std::string& word, std::size_t limit);

// The first type that items of a sequence take; null if none is named.
const char* item_type(const RuleObj& rule);
// Values that a rule lists in a row for one place.
struct ValueList {
  int32_t number;
  bool enumerated;
  std::span<const RuleValueObj> values;
};
std::vector<ValueList> value_lists(const RuleObj& rule);
// Whether there are lists of their own for other values than the first; else they are for every value.
bool lists_by_number(const std::vector<ValueList>& lists);

std::string_view type_letters(const RuleObj& rule);  // "1C"
// "1-n"; empty for a tag that the dictionary does not know.
std::string multiplicity_text(uint32_t tag);
// "CT | MR", with "..." where other values may stand, and "2: " in front where it is for the second value
// only. `number` keeps to what holds for one value; 0 for all.
std::string values_text(const RuleObj& rule, int number);
// Members of a JSON object: type, condition, values, items; each with a comma in front.
void append_rule_json(std::string& out, const RuleObj& rule);

}  // namespace vexal
