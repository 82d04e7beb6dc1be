#include "validate/conditions.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>
#include <optional>
#include <type_traits>
#include <utility>

#include "model/attributes.h"
#include "model/convert.h"
#include "model/message_info.h"
#include "model/seams.h"
#include "model/values.h"
#include "validate/condition_rules.h"
#include "vexalkit.h"

namespace vx {

namespace {

struct Clause;
using Verb = int32_t (*)(int32_t object_id, uint32_t tag, const Clause& clause);

struct Clause {
  std::string_view tags;
  int32_t value_number = 1;  // 0: any
  bool lenient = false;      // a value that can't be read fails
  bool open = false;         // what fails can't be told
  Verb verb = nullptr;
  std::string_view arguments;
};

constexpr int32_t answer(bool holds) {
  return holds ? kConditionHolds : kConditionFails;
}

// Cuts the part before the first of `separators`, one or two, off the text; what was cut at is in
// `separator`, 0 at the end.
std::string_view take_part(std::string_view& text, std::string_view separators, char& separator) {
  const auto separates = [separators](char c) {
    return c == separators[0] || (separators.size() > 1 && c == separators[1]);
  };
  std::size_t at = 0;
  while (at < text.size() && !separates(text[at])) ++at;
  const std::string_view part = text.substr(0, at);
  separator = at < text.size() ? text[at] : '\0';
  text.remove_prefix(at < text.size() ? at + 1 : at);
  return part;
}

template <class Test>
bool any_argument(const Clause& clause, Test test) {
  std::string_view rest = clause.arguments;
  for (char separator = '/'; separator != '\0';) {
    if (test(take_part(rest, "/", separator))) return true;
  }
  return false;
}

template <class Number>
Number to_number(std::string_view text, int base) {
  Number number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number, base);
  return number;
}

// --- Presence ---

VX_STATUS look_up(int32_t object_id, uint32_t tag, TagObj*& attribute) {
  MsgObj* object = nullptr;
  attribute = nullptr;
  return find_attribute(object_id, tag, object, attribute);
}
TagObj* look_up(int32_t object_id, uint32_t tag) {
  TagObj* attribute = nullptr;
  return look_up(object_id, tag, attribute) == kOk ? attribute : nullptr;
}

int32_t held_values(int32_t object_id, uint32_t tag) {
  const TagObj* attribute = look_up(object_id, tag);
  return attribute != nullptr ? attribute->ValueCount : 0;
}

VX_STATUS count_values(int32_t object_id, uint32_t tag, int32_t& count) {
  TagObj* attribute = nullptr;
  const VX_STATUS status = look_up(object_id, tag, attribute);
  return status == kOk ? value_count(*attribute, count) : status;
}
int32_t counted_values(int32_t object_id, uint32_t tag) {
  int32_t count = 0;
  return count_values(object_id, tag, count) == kOk ? count : 0;
}

int32_t verb_present(int32_t object_id, uint32_t tag, const Clause&) {
  return answer(held_values(object_id, tag) > 0);
}
int32_t verb_absent(int32_t object_id, uint32_t tag, const Clause&) {
  return answer(held_values(object_id, tag) <= 0);
}
int32_t verb_plural(int32_t object_id, uint32_t tag, const Clause&) {
  return answer(held_values(object_id, tag) > 1);
}
int32_t verb_counted(int32_t object_id, uint32_t tag, const Clause&) {
  return answer(counted_values(object_id, tag) > 0);
}
int32_t verb_uncounted(int32_t object_id, uint32_t tag, const Clause&) {
  return answer(counted_values(object_id, tag) <= 0);
}
int32_t verb_multivalued(int32_t object_id, uint32_t tag, const Clause&) {
  return answer(counted_values(object_id, tag) > 1);
}

int32_t verb_null(int32_t object_id, uint32_t tag, const Clause&) {
  int32_t count = 0;
  const VX_STATUS status = count_values(object_id, tag, count);
  return answer(status == VX_NULL_VALUE || status == VX_EMPTY_VALUE);
}

int32_t verb_optional(int32_t object_id, uint32_t tag, const Clause&) {
  const TagObj* attribute = look_up(object_id, tag);
  if (attribute == nullptr) return kConditionHolds;
  return answer(attribute->Template != nullptr && attribute->Template->AttributeType == kType3);
}

// --- Texts ---

// A value that doesn't fit counts as one that can't be read. UIDs, species and query levels get more room.
constexpr int32_t kTextSize = 20;
constexpr int32_t kLongTextSize = 50;
constexpr uint32_t kLongTexts[] = {0x00020010, 0x00080016, 0x00080052, 0x00081150, 0x00102201};

int32_t text_size(uint32_t tag) {
  const bool is_long = std::find(std::begin(kLongTexts), std::end(kLongTexts), tag) != std::end(kLongTexts);
  return is_long ? kLongTextSize : kTextSize;
}

bool matches(const Clause& clause, std::string_view value) {
  return any_argument(clause, [value](std::string_view text) {
    if (text.ends_with('$')) return value == text.substr(0, text.size() - 1);
    return value.starts_with(text);
  });
}

// Goes through the texts of an attribute, first to last.
class Texts {
 public:
  Texts(int32_t object_id, uint32_t tag)
      : size_(text_size(tag)), found_(look_up(object_id, tag, attribute_)) {}
  // The next one into text(); the first call takes the first.
  VX_STATUS next() {
    if (found_ != kOk) return found_;
    return get_text(*attribute_, std::exchange(first_, false), size_, text_, true);
  }
  const char* text() const { return text_; }

 private:
  const int32_t size_;
  TagObj* attribute_ = nullptr;
  const VX_STATUS found_;
  bool first_ = true;
  char text_[kLongTextSize];
};

int32_t any_value_matches(int32_t object_id, uint32_t tag, const Clause& clause) {
  Texts texts(object_id, tag);
  while (texts.next() == kOk) {
    if (matches(clause, texts.text())) return kConditionHolds;
  }
  return kConditionFails;
}

int32_t verb_is(int32_t object_id, uint32_t tag, const Clause& clause) {
  if (clause.value_number == 0) return any_value_matches(object_id, tag, clause);
  Texts texts(object_id, tag);
  VX_STATUS status = texts.next();
  const auto goes_on = [&status] {  // behind a value that can't be read there may be others
    return status == kOk || status == VX_NULL_VALUE || status == VX_BUFFER_TOO_SMALL;
  };
  for (int32_t number = 1; number < clause.value_number && goes_on(); ++number) {
    status = texts.next();
  }
  return status == kOk ? answer(matches(clause, texts.text())) : kConditionUnknown;
}

int32_t verb_not(int32_t object_id, uint32_t tag, const Clause& clause) {
  const int32_t is = verb_is(object_id, tag, clause);
  return is == kConditionUnknown ? is : answer(is == kConditionFails);
}

// --- Numbers and tags ---

template <class Number>
VX_STATUS read_number(TagObj* attribute, bool first, Number& value) {
  constexpr VX_DATA_TYPE kType = std::is_signed_v<Number> ? VX_INT_TYPE : VX_ULONGINT_TYPE;
  return attribute != nullptr ? get_number(*attribute, first, kType, &value) : VX_INVALID_TAG;
}

template <class Test>
int32_t compare_number(int32_t object_id, uint32_t tag, const Clause& clause, Test test) {
  int32_t value = 0;
  if (read_number(look_up(object_id, tag), true, value) != kOk) return kConditionUnknown;
  return answer(any_argument(
      clause, [value, test](std::string_view text) { return test(value, to_number<int32_t>(text, 10)); }));
}

int32_t verb_equal(int32_t object_id, uint32_t tag, const Clause& clause) {
  return compare_number(object_id, tag, clause, [](int32_t value, int32_t other) { return value == other; });
}
int32_t verb_greater(int32_t object_id, uint32_t tag, const Clause& clause) {
  return compare_number(object_id, tag, clause, [](int32_t value, int32_t other) { return value > other; });
}
int32_t verb_unequal(int32_t object_id, uint32_t tag, const Clause& clause) {
  return compare_number(object_id, tag, clause, [](int32_t value, int32_t other) { return value != other; });
}

int32_t verb_uneven(int32_t object_id, uint32_t tag, const Clause&) {
  int32_t first = 0;
  int32_t second = 0;
  TagObj* attribute = look_up(object_id, tag);
  if (read_number(attribute, true, first) != kOk || read_number(attribute, false, second) != kOk) {
    return kConditionUnknown;
  }
  return answer(first != 1 || second != 1);
}

int32_t verb_points(int32_t object_id, uint32_t tag, const Clause& clause) {
  uint32_t value = 0;
  if (read_number(look_up(object_id, tag), true, value) != kOk) return kConditionUnknown;
  return answer(any_argument(
      clause, [value](std::string_view text) { return value == to_number<uint32_t>(text, 16); }));
}

template <class Test>
int32_t any_tag_value(int32_t object_id, uint32_t tag, Test test) {
  uint32_t value = 0;
  TagObj* attribute = look_up(object_id, tag);
  VX_STATUS status = read_number(attribute, true, value);
  if (status != kOk) return kConditionUnknown;
  while (status == kOk) {
    if (test(value)) return kConditionHolds;
    status = read_number(attribute, false, value);
  }
  return kConditionFails;
}

int32_t verb_lists(int32_t object_id, uint32_t tag, const Clause& clause) {
  const uint32_t wanted = to_number<uint32_t>(clause.arguments, 16);
  return any_tag_value(object_id, tag, [wanted](uint32_t value) { return value == wanted; });
}
int32_t verb_private(int32_t object_id, uint32_t tag, const Clause&) {
  return any_tag_value(object_id, tag, [](uint32_t value) { return is_private(value); });
}

constexpr struct {
  std::string_view name;
  Verb verb;
} kVerbs[] = {
    {"is", verb_is},           {"present", verb_present},     {"absent", verb_absent},
    {"counted", verb_counted}, {"uncounted", verb_uncounted}, {"not", verb_not},
    {"=", verb_equal},         {"<>", verb_unequal},          {">", verb_greater},
    {"points", verb_points},   {"lists", verb_lists},         {"multivalued", verb_multivalued},
    {"plural", verb_plural},   {"null", verb_null},           {"optional", verb_optional},
    {"uneven", verb_uneven},   {"private", verb_private},
};

// --- Rules ---

std::string_view trim(std::string_view text) {
  while (text.starts_with(' ')) text.remove_prefix(1);
  while (text.ends_with(' ')) text.remove_suffix(1);
  return text;
}

Clause parse_clause(std::string_view text) {
  Clause clause;
  char separator = '\0';
  std::string_view rest = trim(text);
  clause.tags = take_part(rest, " ", separator);
  if (clause.tags.ends_with('!')) {
    clause.open = true;
    clause.tags.remove_suffix(1);
  }
  if (clause.tags.ends_with('?')) {
    clause.lenient = true;
    clause.tags.remove_suffix(1);
  }
  if (const std::size_t at = clause.tags.find(':'); at != std::string_view::npos) {
    clause.value_number = to_number<int32_t>(clause.tags.substr(at + 1), 10);
    clause.tags = clause.tags.substr(0, at);
  }
  const std::string_view verb = take_part(rest, " ", separator);
  clause.arguments = rest;
  for (const auto& row : kVerbs) {
    if (row.name == verb) clause.verb = row.verb;
  }
  return clause;
}

constexpr int32_t kNoObject = -1;  // holds nothing

// The items of a sequence, the first one first.
const ValueObj* first_value(int32_t object_id, uint32_t sequence) {
  const TagObj* attribute = object_id == kNoObject ? nullptr : look_up(object_id, sequence);
  return attribute != nullptr && attribute->VR == VX_VR_SQ ? attribute->FirstValue : nullptr;
}
int32_t item_of(const ValueObj* value) {
  const auto* item = value != nullptr ? static_cast<const MsgObj*>(value->Data) : nullptr;
  return item != nullptr ? item->ID : kNoObject;
}

// Cuts what leads to an object around this one off a tag. False where the scope does not reach there.
bool find_holder(std::string_view& tag, const Scope* scope, int32_t& object_id) {
  if (tag.starts_with('~')) {
    tag.remove_prefix(1);
    while (scope->outer != nullptr) scope = scope->outer;
    const MsgObj* object = find_object(scope->object_id);
    if (object == nullptr || object->ObjectKind == Kind::Item || object->ObjectKind == Kind::SrItem)
      return false;
  }
  for (; tag.starts_with('^'); tag.remove_prefix(1)) {
    scope = scope->outer;
    if (scope == nullptr) return false;
  }
  object_id = scope->object_id;
  return true;
}

// Follows "SEQUENCE>" into its first item and "SEQUENCE*>" into each, until one of them fulfils the verb.
int32_t evaluate_path(const Clause& clause, std::string_view path, int32_t object_id, uint32_t own_tag) {
  const std::size_t at = path.find('>');
  if (at == std::string_view::npos) {
    return clause.verb(object_id, path == "own" ? own_tag : to_number<uint32_t>(path, 16), clause);
  }
  const std::string_view rest = path.substr(at + 1);
  const bool each = path[at - 1] == '*';
  const ValueObj* value = first_value(object_id, to_number<uint32_t>(path.substr(0, at), 16));
  int32_t result = evaluate_path(clause, rest, item_of(value), own_tag);
  while (each && result != kConditionHolds && value != nullptr && (value = value->Next) != nullptr) {
    const int32_t next = evaluate_path(clause, rest, item_of(value), own_tag);
    if (next != kConditionFails) result = next;
  }
  return result;
}

int32_t evaluate_tag(const Clause& clause, std::string_view text, const Scope& scope, uint32_t own_tag) {
  int32_t object_id = scope.object_id;
  return find_holder(text, &scope, object_id) ? evaluate_path(clause, text, object_id, own_tag)
                                              : kConditionUnknown;
}

// Of several tags all, or one, must fulfil the verb; a value that can't be read ends the search.
int32_t evaluate_tags(const Clause& clause, const Scope& scope, uint32_t own_tag) {
  std::string_view rest = clause.tags;
  char separator = '\0';
  int32_t deciding = kConditionHolds;
  do {
    const std::string_view text = take_part(rest, ",/", separator);
    int32_t result = evaluate_tag(clause, text, scope, own_tag);
    if (result == kConditionUnknown && clause.lenient) result = kConditionFails;
    if (separator != '\0') deciding = separator == '/' ? kConditionHolds : kConditionFails;
    if (separator == '\0' || result == deciding || result == kConditionUnknown) return result;
  } while (true);
}

int32_t evaluate_clause(const Clause& clause, const Scope& scope, uint32_t own_tag) {
  if (clause.verb == nullptr) return kConditionUnknown;
  const int32_t result = evaluate_tags(clause, scope, own_tag);
  return clause.open && result == kConditionFails ? kConditionUnknown : result;
}

int32_t evaluate_clauses(std::string_view rule, const Scope& scope, uint32_t own_tag) {
  char join = '\0';
  int32_t result = evaluate_clause(parse_clause(take_part(rule, "&|", join)), scope, own_tag);
  while (join != '\0' && result != kConditionUnknown) {
    const bool decided = result == (join == '&' ? kConditionFails : kConditionHolds);
    const std::string_view clause = take_part(rule, "&|", join);
    if (!decided) result = evaluate_clause(parse_clause(clause), scope, own_tag);
  }
  return result;
}

// Binary search in the text itself: what is behind the name, or nothing.
std::optional<std::string_view> find_row(std::string_view table, std::string_view name) {
  std::size_t low = 0;
  std::size_t high = table.size();
  while (low < high) {
    const std::size_t middle = low + (high - low) / 2;
    const std::size_t before = middle == 0 ? std::string_view::npos : table.rfind('\n', middle - 1);
    const std::size_t start = before == std::string_view::npos ? 0 : before + 1;
    const std::size_t end = table.find('\n', middle);
    std::string_view rest = table.substr(start, end - start);
    char separator = '\0';
    const int order = name.compare(take_part(rest, ":", separator));
    if (order == 0) return rest;
    if (order < 0) {
      high = start;
    } else {
      low = end + 1;
    }
  }
  return std::nullopt;
}

}  // namespace

int32_t evaluate_condition(std::string_view rule, const Scope& scope, uint32_t tag) {
  if (rule.empty()) return kConditionUnknown;
  // Behind "-> " stand three digits, at the end.
  constexpr std::size_t kAnswers = 6;
  std::string_view clauses = rule;
  const bool translated = rule.size() > kAnswers && rule.substr(rule.size() - kAnswers, 3) == "-> ";
  if (translated) clauses.remove_suffix(kAnswers);
  const int32_t result = evaluate_clauses(clauses, scope, tag);
  return translated ? rule[rule.size() - 3 + static_cast<std::size_t>(result)] - '0' : result;
}

bool find_condition(std::string_view name, std::string_view& rule) {
  rule = {};
  if (const auto row = find_row(kConditionRules, name)) {
    rule = *row;
    return true;
  }
  return find_row(kUnjudgedConditions, name).has_value();
}

}  // namespace vx
