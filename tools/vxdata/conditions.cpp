#include "conditions.h"

#include <algorithm>
#include <cctype>
#include <optional>

#include "bytes.h"
#include "text.h"

namespace vxdata {
namespace {

constexpr size_t kDigits = 8;

std::optional<uint32_t> bare_tag(std::string_view text) {
  if (text.size() < kDigits) return std::nullopt;
  const auto tag = parse_tag(std::string(text.substr(0, 4)) + "," + std::string(text.substr(4, 4)));
  return tag ? std::optional(tag->tag) : std::nullopt;
}

constexpr std::string_view kVerbs[] = {"is",   "present",  "absent", "counted",     "uncounted", "not",
                                       "=",    "<>",       ">",      "points",      "lists",     "plural",
                                       "null", "optional", "uneven", "multivalued", "private"};

// "00080008:3 is A/B", "00280002,00280004 absent".
void read_clause(const std::string& text, bool alternative, Condition& condition) {
  const auto words = split(text, ' ');
  std::string_view subject = words.front();
  if (words.size() < 2 || std::find(std::begin(kVerbs), std::end(kVerbs), words[1]) == std::end(kVerbs)) {
    condition.fault = "no verb in \"" + text + "\"";
  }
  std::vector<uint32_t> tags;
  while (const auto tag = bare_tag(subject)) {
    tags.push_back(*tag);
    subject.remove_prefix(kDigits);
    if (subject.empty() || (subject[0] != ',' && subject[0] != '/')) break;
    if (subject[0] == '/') alternative = true;
    subject.remove_prefix(1);
  }
  if (!alternative) condition.tags.insert(condition.tags.end(), tags.begin(), tags.end());
  if (subject.starts_with('>') || subject.starts_with("*>")) return;  // an attribute of an item
  if (words.size() < 2 || tags.size() != 1 || (words[1] != "is" && words[1] != "not")) return;
  Clause clause;
  clause.tag = tags.front();
  if (!subject.empty() && subject[0] == ':') clause.value = subject[1] == '*' ? -1 : subject[1] - '0';
  clause.literals = split(text.substr(text.find(' ' + words[1] + ' ') + words[1].size() + 2), '/');
  condition.clauses.push_back(std::move(clause));
}

}  // namespace

Condition read_rule(const std::string& rule) {
  Condition condition;
  condition.judged = true;
  condition.own = rule == "own present";
  std::string rest = rule.substr(0, rule.find(" -> "));
  bool alternative = false;
  for (;;) {
    const size_t end = std::min(rest.find(" & "), rest.find(" | "));
    read_clause(rest.substr(0, end), alternative, condition);
    if (end == std::string::npos) return condition;
    alternative = rest[end + 1] == '|';
    rest.erase(0, end + 3);
  }
}

Conditions read_conditions(const std::vector<std::string>& paths) {
  constexpr std::string_view kOpen = "R\"(";
  constexpr std::string_view kClose = ")\"";
  Conditions conditions;
  for (const auto& path : paths) {
    const std::string text = read_file(path);
    for (size_t at = text.find(kOpen); at != std::string::npos; at = text.find(kOpen, at)) {
      at += kOpen.size();
      const std::string table = text.substr(at, text.find(kClose, at) - at);
      for (const auto& line : split(table, '\n')) {
        const size_t colon = line.find(": ");
        if (line.empty()) continue;
        const std::string name = line.substr(0, colon);
        conditions[name] = colon == std::string::npos ? Condition() : read_rule(line.substr(colon + 2));
      }
    }
    if (conditions.empty()) throw Unusable{path + ": no conditions"};
  }
  return conditions;
}

}  // namespace vxdata
