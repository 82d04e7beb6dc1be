// check: proves the tables against each other, beyond what compiling them needs.

#include <algorithm>
#include <cctype>
#include <set>
#include <unordered_set>

#include "bytes.h"
#include "commands.h"
#include "message_file.h"
#include "tables.h"

namespace vxdata {
namespace {

constexpr uint32_t kImageType = 0x00080008;
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

// Conditions on a text answer "can't tell" where the attribute is missing; those on presence, numbers or any
// of several values answer yes or no.
bool answers_without_attribute(std::string_view condition) {
  constexpr std::string_view kWords[] = {"PRESENT", "NULL",        "ZERO",   "EMPTY",
                                         "HAS_",    "MULTIVALUED", "INCLUDE"};
  return std::any_of(std::begin(kWords), std::end(kWords),
                     [&](std::string_view word) { return condition.find(word) != std::string_view::npos; });
}

class Checker {
 public:
  Checker(Tables& tables, Problems& problems) : tables_(tables), problems_(problems) {}

  void run(const std::string& conditions_file, const std::string& names_file) {
    if (!conditions_file.empty()) {
      for (auto& name : quoted_strings(read_file(conditions_file))) known_conditions_.insert(std::move(name));
    }
    for (const Block& block : tables_.templates.blocks()) {
      for (const auto& row : block.rows) check_row(row);
      // The library opens directory records by name; no sequence lists them.
      const bool record = block.kind == BlockKind::kItem && block.name.rfind("DIR_REC_", 0) == 0;
      if (block.kind == BlockKind::kMessage || record) reach(block);
    }
    for (const Block& block : tables_.templates.blocks()) {
      if (block.kind == BlockKind::kMessage || block.kind == BlockKind::kItem) check_body(block);
      if (reached_.find(&block) == reached_.end())
        warn(block.place, block.name + " is reached from no message");
    }
    if (!names_file.empty()) check_names(names_file);
  }

 private:
  void fault(const Place& place, const std::string& text) { problems_.error(*place.file, place.line, text); }
  void warn(const Place& place, const std::string& text) { problems_.warning(*place.file, place.line, text); }

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
    const bool plain = std::all_of(name.begin(), name.end(), [](unsigned char c) {
      return std::isalnum(c) != 0 || c == '_' || c == ' ' || c == '-';
    });
    if (!plain) fault(place, "not the name of a condition: " + name);
    if (!known_conditions_.empty() && known_conditions_.count(name) == 0) {
      fault(place, "no predicate of the name " + name);
    }
    for (const uint32_t tag : condition_tags(name)) {
      if (tables_.dictionary.find(tag) == nullptr)
        fault(place, name + " reads an unknown attribute " + tag_text(tag));
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

  // A condition on an attribute that its message or item cannot hold is decided once and for all, and as a
  // rule wrongly.
  void check_body(const Block& block) {
    const Body& body = tables_.templates.expand(block, problems_);
    encode_body(body, tables_.dictionary, problems_);
    for (const auto& [tag, attribute] : body) {
      if (!answers_without_attribute(attribute.condition)) continue;
      for (const uint32_t read : condition_tags(attribute.condition)) {
        if (body.find(read) != body.end()) continue;
        const auto key = std::make_pair(attribute.place.line, read);
        if (!reported_.insert(std::make_pair(*attribute.place.file, key)).second) continue;
        warn(attribute.place, tag_text(tag) + " has a condition on " + tag_text(read) + ", which " +
                                  block.name + " does not hold");
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
        if (next != nullptr) {
          reach(*next);
        } else if (bare_items_.insert(item).second) {
          warn(attribute.place, "item " + item + " has no contents");
        }
      }
    }
  }

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
  std::unordered_set<std::string> known_conditions_;
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
