#pragma once
// The library's conditions, as its source tells them: NAME: RULE for one that it evaluates, NAME alone for
// one that it leaves open. The grammar of the rules stands beside the rules.

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace vxdata {

// A clause of a rule on one attribute.
struct Clause {
  uint32_t tag = 0;
  int value = 0;                      // 0 where none is named, which means the first
  std::vector<std::string> literals;  // of the verbs "is" and "not"
};

struct Condition {
  bool judged = false;
  bool own = false;            // asks for the attribute's own value alone
  std::string fault;           // of the rule's form
  std::vector<uint32_t> tags;  // read whatever the object holds; alternatives are left out
  std::vector<Clause> clauses;
};

using Conditions = std::unordered_map<std::string, Condition>;

// A rule by itself.
Condition read_rule(const std::string& rule);
// From source files with the tables as raw strings.
Conditions read_conditions(const std::vector<std::string>& paths);

}  // namespace vxdata
