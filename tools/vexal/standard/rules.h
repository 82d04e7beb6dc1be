// The rules of messages and items as the Message Info File of the configuration has them, for people to read.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "message_file.h"
#include "vexalkit.h"

namespace vexal {

inline constexpr uint16_t kResponse = 0x8000;  // commands from here on

using Rule = vxdata::Attribute;
using Rules = vxdata::AttributeList;  // ascending by tag

class RuleBook {
 public:
  // Read on first use, each block when it is asked for.
  static const RuleBook& get();

  const std::string& problem() const { return problem_; }  // empty if the file could be read
  // Whether there are rules for a service and command.
  bool has(const std::string& service, uint16_t command) const;
  // The commands of a service that rules are known for, in the order of the file.
  std::vector<uint16_t> commands(const std::string& service) const;
  // C_STORE_RQ where the service has one, else its first request; 0 without any.
  uint16_t usual_command(const std::string& service) const;
  const Rules* message(const std::string& service, uint16_t command) const;
  const Rules* item(const std::string& name) const;
  // Services and items near a word.
  std::vector<std::string> similar(const std::string& word, std::size_t limit) const;

 private:
  RuleBook();
  void take_names();
  void read(const std::string& path);  // throws vxdata::Unusable
  using Entry = vxdata::MessageDirectory::Entry;
  const Entry* find(const std::map<std::string, int>& numbers, const std::string& name,
                    uint16_t command) const;
  const Rules* decode(const Entry* entry) const;

  std::string problem_;
  std::map<std::string, int> services_;
  std::map<std::string, int> items_;
  std::optional<vxdata::MessageDirectory> file_;
  std::map<std::pair<int, uint16_t>, Entry> index_;
  mutable std::mutex mutex_;
  mutable std::map<std::size_t, Rules> decoded_;  // by where the body starts; guarded by mutex_
};

// Null if no rule is for the tag; a repeating group goes by its base group.
const Rule* find_rule(const Rules& rules, uint32_t tag);

// "1-n"; empty for a tag that the dictionary does not know.
std::string multiplicity_text(uint32_t tag);
// The letters of the dictionary, or of the rule where it has none.
std::string representation_text(uint32_t tag, const Rule* rule);
// "CT | MR", with "..." where other values may stand, and "2: " in front where it is for the second value
// only. `number` keeps to what holds for one value; 0 for all.
std::string values_text(const Rule& rule, int number);
// Members of a JSON object: type, condition, values, items; each with a comma in front.
void append_rule_json(std::string& out, const Rule& rule);

}  // namespace vexal
