#include "condition_words.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <string_view>
#include <vector>

#include "base/names.h"
#include "text.h"

namespace vexal {
namespace {

constexpr struct {
  std::string_view verb;
  std::string_view words;  // the arguments behind them
} kVerbs[] = {{"is", "is"},
              {"not", "is not"},
              {"=", "is"},
              {"<>", "is not"},
              {">", "is above"},
              {"present", "is present"},
              {"absent", "is not present"},
              {"counted", "has a value"},
              {"uncounted", "has no value"},
              {"plural", "has more than one item"},
              {"multivalued", "has more than one value"},
              {"null", "is empty"},
              {"points", "points to"},
              {"lists", "contains"},
              {"optional", "is not required"},
              {"uneven", "is not 1\\1"},
              {"private", "is the tag of a private attribute"}};

std::string tag_words(std::string_view text) {
  uint32_t tag = 0;
  std::from_chars(text.data(), text.data() + text.size(), tag, 16);
  char name[128] = "";
  VX_VR vr = 0;
  uint16_t low = 0;
  uint16_t high = 0;
  const VX_STATUS status = VX_Get_Tags_Dict_Info(tag, name, sizeof name, &vr, &low, &high);
  return status == VX_NORMAL_COMPLETION ? std::string(name) + " " + format_tag(tag) : format_tag(tag);
}

// "^52009229>own": where the attribute is looked for, and which it is.
std::string subject_words(std::string_view text) {
  std::string where;
  if (text.starts_with('^')) where = " around this item";
  text.remove_prefix(std::min(text.find_first_not_of("^~"), text.size()));
  std::string sequences;
  for (std::size_t at = text.find('>'); at != std::string_view::npos; at = text.find('>')) {
    sequences += std::string(sequences.empty() ? "" : ", ") + tag_words(text.substr(0, at));
    text.remove_prefix(at + 1);
  }
  const std::string tag = text == "own" ? "this attribute" : tag_words(text);
  return tag + (sequences.empty() ? where : " in " + sequences);
}

// Of long lists the beginning.
std::string listed(std::vector<std::string> parts, const char* link) {
  constexpr std::size_t kShown = 8;
  if (parts.size() > kShown) {
    parts.resize(kShown);
    parts.emplace_back("others");
  }
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : link) + part;
  return text;
}

std::string clause_words(const std::string& clause) {
  const std::size_t space = std::min(clause.find(' '), clause.size());
  std::string tags = clause.substr(0, space);
  while (!tags.empty() && (tags.back() == '?' || tags.back() == '!')) tags.pop_back();
  std::string value;
  if (const std::size_t colon = tags.find(':'); colon != std::string::npos) {
    value = tags.substr(colon + 1) == "*" ? "a value of " : "value " + tags.substr(colon + 1) + " of ";
    tags.erase(colon);
  }
  const char* link = tags.find('/') != std::string::npos ? " or " : " and ";
  std::replace(tags.begin(), tags.end(), '/', ',');
  std::vector<std::string> subjects;
  for (const std::string& tag : vxdata::split(tags, ',')) subjects.push_back(subject_words(tag));
  std::string rest = space < clause.size() ? clause.substr(space + 1) : "";
  const std::string verb = rest.substr(0, rest.find(' '));
  rest.erase(0, verb.size() + 1);
  std::string words = verb;
  for (const auto& row : kVerbs) {
    if (row.verb == verb) words = row.words;
  }
  std::vector<std::string> arguments;
  for (std::string argument : vxdata::split(rest, '/')) {
    if (argument.ends_with('$')) argument.pop_back();
    if (verb == "points" || verb == "lists") argument = tag_words(argument);
    if (!argument.empty()) arguments.push_back(argument);
  }
  return value + listed(subjects, link) + " " + words + (arguments.empty() ? "" : " ") +
         listed(arguments, " or ");
}

std::string rule_words(std::string rule) {
  rule.erase(std::min(rule.find(" -> "), rule.size()));
  std::string words;
  for (;;) {
    const std::size_t end = std::min({rule.find(" & "), rule.find(" | "), rule.size()});
    words += clause_words(rule.substr(0, end));
    if (end == rule.size()) return words;
    words += rule[end + 1] == '&' ? ", and " : ", or ";
    rule.erase(0, end + 3);
  }
}

// The condition of the library that asks for no more than a value where the attribute is there.
constexpr std::string_view kMayBePresent = "LOSSY_COMPRESSION_PERFORMED";

}  // namespace

std::string condition_words(const RuleObj& rule) {
  const std::string_view name = rule.Condition != nullptr ? rule.Condition : "";
  if (name == kMayBePresent) return "";
  if (rule.ConditionRule != nullptr) return rule_words(rule.ConditionRule);
  std::string words(name);  // prose, in capitals
  for (char& c : words) c = c == '_' ? ' ' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return words;
}

}  // namespace vexal
