// check: proves the tables against each other, beyond what compiling them needs.

#include <algorithm>
#include <cctype>
#include <set>
#include <unordered_set>

#include "bytes.h"
#include "commands.h"
#include "conditions.h"
#include "message_file.h"
#include "tables.h"

namespace vxdata {
namespace {

constexpr uint32_t kImageType = 0x00080008;
constexpr uint32_t kQueryLevel = 0x00080052;
constexpr uint16_t kResponse = 0x8000;
constexpr uint16_t kFindRequest = 0x0020;
constexpr int kImageTypeJudged = 3;  // later values of Image Type are never compared

std::vector<std::string> quoted_strings(std::string_view text) {
  std::vector<std::string> strings;
  for (size_t at = text.find('"'); at != std::string_view::npos; at = text.find('"', at)) {
    const size_t end = text.find('"', at + 1);
    if (end == std::string_view::npos) break;
    strings.emplace_back(text.substr(at + 1, end - at - 1));
    at = end + 1;
  }
  return strings;
}

class Checker {
 public:
  Checker(Tables& tables, Problems& problems) : tables_(tables), problems_(problems) {}

  void run(const std::string& conditions_files, const std::string& names_file) {
    if (!conditions_files.empty()) conditions_ = read_conditions(split(conditions_files, ','));
    for (const Block& block : tables_.templates.blocks()) {
      for (const auto& row : block.rows) {
        check_row(row);
        if (block.kind != BlockKind::kMessage) check_reason(row);
      }
      // Items are opened by name too, whether a sequence lists them or not.
      if (block.kind == BlockKind::kMessage || block.kind == BlockKind::kItem) reach(block);
    }
    for (const Block& block : tables_.templates.blocks()) {
      if (block.kind == BlockKind::kMessage || block.kind == BlockKind::kItem) check_body(block);
      if (block.kind != BlockKind::kExtension && reached_.find(&block) == reached_.end())
        warn(block.place, block.name + " is reached from no message");
    }
    if (!names_file.empty()) check_names(names_file);
  }

 private:
  void fault(const Place& place, const std::string& text) { problems_.error(*place.file, place.line, text); }
  void warn(const Place& place, const std::string& text) { problems_.warning(*place.file, place.line, text); }

  // A condition or a reason; what a message holds beside its modules stands in PS3.4, which rarely tells.
  void check_reason(const std::variant<Attribute, Reference>& row) {
    const auto* attribute = std::get_if<Attribute>(&row);
    if (attribute == nullptr) return;
    const bool open = is_conditional(attribute->type) && attribute->condition.empty();
    if (open == attribute->untold.empty())
      fault(attribute->place, open ? "a conditional type has a condition, or with ! why none can be told"
                                   : "why there is no condition, where there is one or none is wanted");
  }

  void check_row(const std::variant<Attribute, Reference>& row) {
    if (const auto* reference = std::get_if<Reference>(&row)) {
      check_condition(reference->condition, reference->place);
      return;
    }
    const auto& attribute = std::get<Attribute>(row);
    check_condition(attribute.condition, attribute.place);
    check_values(attribute);
    const DictionaryEntry* known = tables_.dictionary.find(attribute.tag, attribute.creator);
    if (known == nullptr) return;  // compiling reports it unless the line says the VR
    if (attribute.keyword != known->keyword) {
      fault(attribute.place, "the dictionary calls " + tag_text(attribute.tag) + " " + known->keyword);
    }
    if (attribute.vr && *attribute.vr != known->vr) {
      fault(attribute.place, "the dictionary gives VR " + std::string(vr_letters(known->vr)));
    }
  }

  void check_condition(const std::string& name, const Place& place) {
    if (name.empty()) return;
    if (is_rule(name)) return check_rule(name, place);
    const bool plain = std::all_of(name.begin(), name.end(), [](unsigned char c) {
      return std::isalnum(c) != 0 || c == '_' || c == ' ' || c == '-';
    });
    if (!plain) fault(place, "not the name of a condition: " + name);
    if (!conditions_.empty() && conditions_.find(name) == conditions_.end()) {
      fault(place, "no predicate of the name " + name);
    }
    for (const uint32_t tag : condition_tags(name)) {
      if (tables_.dictionary.find(tag) == nullptr)
        fault(place, name + " reads an unknown attribute " + tag_text(tag));
    }
  }

  void check_rule(const std::string& rule, const Place& place) {
    const Condition condition = read_rule(rule.substr(1, rule.size() - 2));
    if (rule.back() != ')' || !condition.fault.empty()) fault(place, "rule " + rule + ": " + condition.fault);
    for (const uint32_t tag : condition.tags) {
      if (tables_.dictionary.find(tag) == nullptr)
        fault(place, rule + " reads an unknown attribute " + tag_text(tag));
    }
  }

  void check_values(const Attribute& attribute) {
    const DictionaryEntry* known = tables_.dictionary.find(attribute.tag, attribute.creator);
    const std::string_view vr = known != nullptr ? vr_letters(known->vr) : "";
    int highest = 1;
    for (const ValueList& list : attribute.values) {
      highest = std::max(highest, list.number);
      for (const auto& value : list.values) {
        const bool code = std::all_of(value.begin(), value.end(), [](unsigned char c) {
          return std::isupper(c) != 0 || std::isdigit(c) != 0 || c == ' ' || c == '_';
        });
        if (vr == "CS" && (!code || value.size() > 16)) fault(attribute.place, "no code string: " + value);
      }
    }
    // Numbers are compared as text: "1.0" would not be "1".
    if (vr == "DS" && !attribute.values.empty()) fault(attribute.place, "a list of values of VR DS");
    const auto open = [](const ValueList& list) { return !list.enumerated; };
    if (!attribute.values.empty() && attribute.values.back().enumerated &&
        (attribute.tag == kImageType ||
         std::any_of(attribute.values.begin(), attribute.values.end(), open))) {
      fault(attribute.place,
            "the last list decides for all values, and some are open: it must be one of defined terms");
    }
    if (known != nullptr && highest > known->vm.high) {
      fault(attribute.place,
            format("value %d of an attribute of VM %s", highest, vm_text(known->vm).c_str()));
    }
    if (highest == 1 || known == nullptr) return;
    // A value without a list of its own would be judged by the last list of the attribute.
    const int limit = attribute.tag == kImageType ? kImageTypeJudged : std::max<int>(highest, known->vm.high);
    for (int number = 1; number <= limit && limit < 255; ++number) {
      const bool listed = std::any_of(attribute.values.begin(), attribute.values.end(),
                                      [&](const ValueList& list) { return list.number == number; });
      if (!listed) warn(attribute.place, format("value %d has no list", number));
    }
  }

  void check_body(const Block& block) {
    const Body& body = tables_.templates.expand(block, problems_);
    encode_body(body, tables_.dictionary, problems_);
    for (const uint16_t command : block.commands) check_demands(command, body);
    for (const auto& [tag, attribute] : body) {
      if (attribute.condition.empty()) continue;
      Condition condition;
      if (is_rule(attribute.condition)) {
        condition = read_rule(attribute.condition.substr(1, attribute.condition.size() - 2));
      } else if (const auto at = conditions_.find(attribute.condition); at != conditions_.end()) {
        condition = at->second;
      }
      if (!condition.judged) continue;
      check_tags_read(block.name, body, attribute, condition.tags);
      for (const Clause& clause : condition.clauses) check_clause(body, attribute, clause);
    }
  }

  // A response that tells of a failure has no data set, and keys of a query come as the user pleases.
  void check_demands(uint16_t command, const Body& body) {
    const bool response = (command & kResponse) != 0;
    for (const auto& [tag, attribute] : body) {
      if (is_conditional(attribute.type) || attribute.type == kType3) continue;
      if (response) fault(attribute.place, "a response demands " + tag_text(tag));
      if (command == kFindRequest && tag != kQueryLevel)
        fault(attribute.place, "a query demands " + tag_text(tag));
    }
  }

  // A condition on an attribute that its message or item cannot hold is decided once and for all, and as a
  // rule wrongly.
  void check_tags_read(const std::string& name, const Body& body, const Attribute& attribute,
                       const std::vector<uint32_t>& tags) {
    for (const uint32_t read : tags) {
      if (body.find(read) != body.end()) continue;
      const auto place = std::make_pair(*attribute.place.file, std::make_pair(attribute.place.line, read));
      if (!reported_.insert(place).second) continue;
      fault(attribute.place, tag_text(attribute.tag) + " has a condition on " + tag_text(read) + ", which " +
                                 name + " does not hold");
    }
  }

  // Conditions on a text look at the first value where no other is named, and at the start of the value.
  void check_clause(const Body& body, const Attribute& attribute, const Clause& clause) {
    const DictionaryEntry* known = tables_.dictionary.find(clause.tag);
    if (known != nullptr && clause.value == 0 && known->vm.low == 1 && known->vm.high > 1) {
      fault(attribute.place,
            attribute.condition + " looks at the first of several values of " + tag_text(clause.tag));
    }
    const auto read = body.find(clause.tag);
    if (read == body.end()) return;
    for (const ValueList& list : read->second.values) {
      for (const auto& value : list.values) {
        for (const auto& literal : clause.literals) {
          const auto listed = [&](const std::string& text) {
            return std::find(list.values.begin(), list.values.end(), text) != list.values.end();
          };
          const bool taken =
              std::find(clause.literals.begin(), clause.literals.end(), value) != clause.literals.end();
          if (taken || value.rfind(literal, 0) != 0 || !listed(literal)) continue;
          fault(attribute.place, attribute.condition + " also holds for " + value);
        }
      }
    }
  }

  void reach(const Block& block) {
    if (!reached_.insert(&block).second) return;
    for (const auto& row : block.rows) {
      if (const auto* reference = std::get_if<Reference>(&row)) {
        if (const Block* next = tables_.templates.find(reference->name)) reach(*next);
        continue;
      }
      const auto& attribute = std::get<Attribute>(row);
      for (const auto& item : attribute.items) {
        const Block* next = tables_.templates.find(item);
        if (next != nullptr && !is_bare(*next)) {
          reach(*next);
        } else if (bare_items_.insert(item).second) {
          fault(attribute.place, "item " + item + " has no contents");
        }
      }
    }
  }

  static bool is_bare(const Block& block) { return block.rows.empty(); }

  void check_names(const std::string& path) {
    const std::string text = read_file(path);
    const size_t services = text.find("Services[");
    const size_t items = text.find("Items[");
    if (services == std::string::npos || items == std::string::npos)
      throw Unusable{path + ": no Services and Items"};
    const auto part = [&](size_t from) {
      return quoted_strings(std::string_view(text).substr(from, text.find('}', from) - from));
    };
    const auto check = [&](const std::vector<std::string>& names, auto&& known) {
      for (size_t i = 0; i < names.size(); ++i) {
        if (!known(names[i])) problems_.error(path, 0, names[i] + " is not in the services profile");
        if (i > 0 && collate(names[i - 1]) >= collate(names[i])) {
          problems_.error(path, 0, names[i] + " follows " + names[i - 1]);
        }
      }
    };
    check(part(services), [&](const auto& name) { return tables_.profile.service(name) != nullptr; });
    check(part(items), [&](const auto& name) { return tables_.profile.item(name) != nullptr; });
  }

  // The order of the exported tables: the underscore before everything else, case without weight.
  static std::string collate(std::string name) {
    for (char& c : name) c = c == '_' ? ' ' : static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return name;
  }

  Tables& tables_;
  Problems& problems_;
  Conditions conditions_;
  std::unordered_set<const Block*> reached_;
  std::unordered_set<std::string> bare_items_;
  std::set<std::pair<std::string, std::pair<int, uint32_t>>> reported_;
};

}  // namespace

int run_check(int argc, char** argv) {
  const Arguments arguments(argc, argv, {"--services", "--dict", "--names", "--conditions"});
  Problems problems;
  Tables tables(arguments, problems);
  Checker(tables, problems).run(arguments.option("--conditions"), arguments.option("--names"));
  std::fprintf(stderr, "%d errors, %d warnings\n", problems.errors(), problems.warnings());
  return problems.errors() == 0 ? 0 : 1;
}

}  // namespace vxdata
