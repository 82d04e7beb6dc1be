// vexal validate: what in a file breaks the rules of its SOP class.
#include <algorithm>
#include <cstdio>
#include <map>
#include <mutex>

#include "commands.h"
#include "files.h"
#include "json.h"
#include "names.h"
#include "parallel.h"
#include "printable.h"
#include "rules.h"
#include "session.h"
#include "standard.h"
#include "tag_path.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--level", "LEVEL", "what to show: errors, warnings (default: with the errors) or all"},
    {"--attribute", "PATH", "only what concerns this attribute and what is below it (may be repeated)"},
    {"--service", "NAME", "go by the rules of this service, whatever the SOP class"},
    {"--command", "NAME", "of the service (default: C_STORE_RQ, else the request that fits best)"},
    {"--json", nullptr, "one JSON object a file, one line each, and one for the summary"},
    {"--threads", "N", "files read at once (default: the processors)"},
};

constexpr std::size_t kShown = 64;  // bytes of a value
constexpr int kLevels = 3;
constexpr const char* kSingular[] = {"error", "warning", "remark"};
constexpr const char* kPlural[] = {"errors", "warnings", "remarks"};

struct ValidateSettings {
  ValidationLevel level = VX_Errors_And_Warnings;
  bool json = false;
  Standard standard;  // what the user names of it
  std::vector<std::vector<PathStep>> paths;
};

struct Found {
  ValErrObj what;
  int severity;  // 0 errors, 1 warnings, 2 remarks
};

bool same(const ValErrObj& a, const ValErrObj& b) {
  return a.Tag == b.Tag && a.MsgItemID == b.MsgItemID && a.ValueNumber == b.ValueNumber &&
         a.Status == b.Status;
}

VX_STATUS run_validation(int32_t id, ValidationLevel level, std::vector<ValErrObj>& findings) {
  ValErrObj* finding = nullptr;
  const VX_STATUS status = VX_Validate_Message(id, &finding, level);
  while (finding != nullptr) {
    findings.push_back(*finding);
    VX_Get_Next_Validate_Error(id, &finding);
  }
  return status;
}

// What identifies instances may hold a list of UIDs (PS3.4 section C.2.2.2.2) where the dictionary knows one.
bool is_uid_list(const ValErrObj& finding, uint16_t command) {
  VX_VR vr = 0;
  return finding.Status == VX_TOO_MANY_VALUES &&
         (command == C_FIND_RQ || command == C_MOVE_RQ || command == C_GET_RQ) &&
         VX_Get_Attribute_Info(finding.MsgItemID, finding.Tag, &vr, nullptr) == VX_NORMAL_COMPLETION &&
         vr == VX_VR_UI;
}

// A finding does not tell how serious it is; the level that first records it does. What a lower level records
// comes in the same order at a higher one.
VX_STATUS validate_levels(int32_t id, const ValidateSettings& settings, uint16_t command,
                          std::vector<Found>& found) {
  const MutedWarnings muted;  // what they tell comes as findings
  for (ValidationLevel level = VX_Errors_Only; level <= settings.level; ++level) {
    std::vector<ValErrObj> findings;
    const VX_STATUS status = run_validation(id, level, findings);
    if (status != VX_MESSAGE_VALIDATES && status != VX_DOES_NOT_VALIDATE) return status;
    std::vector<Found> merged;
    merged.reserve(findings.size());
    auto known = found.begin();
    for (const ValErrObj& finding : findings) {
      const bool before = known != found.end() && same(known->what, finding);
      merged.push_back({finding, before ? (known++)->severity : level - VX_Errors_Only});
    }
    found = std::move(merged);
  }
  std::erase_if(found, [command](const Found& one) { return is_uid_list(one.what, command); });
  return VX_NORMAL_COMPLETION;
}

// Where the items of an object are, by their IDs.
class Tree {
 public:
  explicit Tree(int32_t root) : root_(root) {}
  void set_standard(const Standard& standard) { standard_ = standard; }

  // Null where no rule is known.
  const Rule* rule(int32_t object, uint32_t tag) {
    const Rules* known = rules(object);
    return known != nullptr ? find_rule(*known, tag) : nullptr;
  }

  // "SequenceOfItems[0].Attribute".
  std::string path(int32_t object, uint32_t tag) {
    std::string text = tag_keyword(tag).empty() ? format_tag(tag) : std::string(tag_keyword(tag));
    for (const Home* home = find(object); home != nullptr; home = find(home->object)) {
      text = path_step(*home) + "." + text;
    }
    return text;
  }

  bool lies_under(int32_t object, uint32_t tag, const std::vector<Place>& places) {
    for (;;) {
      for (const Place& place : places) {
        if (place.object == object && place.tag == tag) return true;
      }
      const Home* home = find(object);
      if (home == nullptr) return false;
      object = home->object;
      tag = home->tag;
    }
  }

 private:
  struct Home {
    int32_t object;
    uint32_t tag;
    std::size_t index;
  };

  static std::string path_step(const Home& home) {
    const std::string_view keyword = tag_keyword(home.tag);
    const std::string name = keyword.empty() ? format_tag(home.tag) : std::string(keyword);
    return name + "[" + std::to_string(home.index) + "]";
  }

  // Items go by the first type that their sequence takes.
  const Rules* rules(int32_t object) {
    const RuleBook& book = RuleBook::get();
    const Home* home = find(object);
    if (home == nullptr) return book.message(standard_.service, standard_.command);
    const Rule* sequence = rule(home->object, home->tag);
    return sequence != nullptr && !sequence->items.empty() ? book.item(sequence->items.front()) : nullptr;
  }

  const Home* find(int32_t object) {
    if (object == root_) return nullptr;
    if (homes_.empty()) add(root_);
    const auto it = homes_.find(object);
    return it != homes_.end() ? &it->second : nullptr;
  }

  void add(int32_t object) {
    std::vector<uint32_t> sequences;
    uint32_t tag = 0;
    VX_VR vr = 0;
    VX_STATUS status = VX_Get_First_Attribute(object, &tag, &vr, nullptr);
    for (; status == VX_NORMAL_COMPLETION; status = VX_Get_Next_Attribute(object, &tag, &vr, nullptr)) {
      if (vr == VX_VR_SQ) sequences.push_back(tag);
    }
    for (const uint32_t sequence : sequences) {
      const std::vector<int32_t> items = sequence_items(object, sequence);
      for (std::size_t i = 0; i < items.size(); ++i) {
        if (homes_.emplace(items[i], Home{object, sequence, i}).second) add(items[i]);
      }
    }
  }

  int32_t root_;
  Standard standard_;
  std::map<int32_t, Home> homes_;
};

// The text of a value; its start, if it is long.
std::string value_text(const ValErrObj& finding) {
  char text[kShown + 1] = "";
  VX_STATUS status = VX_Get_Value_To_String(finding.MsgItemID, finding.Tag, sizeof text, text);
  for (int32_t number = 1; number < finding.ValueNumber; ++number) {
    status = VX_Get_Next_Value_To_String(finding.MsgItemID, finding.Tag, sizeof text, text);
  }
  if (status == VX_BUFFER_TOO_SMALL) return std::string(text) + "...";
  return status == VX_NORMAL_COMPLETION ? text : "";
}

bool is_item_finding(const ValErrObj& finding) {
  VX_VR vr = 0;
  return VX_Get_Attribute_Info(finding.MsgItemID, finding.Tag, &vr, nullptr) == VX_NORMAL_COMPLETION &&
         vr == VX_VR_SQ;
}

std::string counted(std::size_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

// "2 errors, 1 warning".
std::string counted(const std::size_t (&counts)[kLevels], ValidationLevel level) {
  std::string text;
  for (int i = 0; i < level; ++i) {
    if (i != 0) text += ", ";
    text += counted(counts[i], kSingular[i], kPlural[i]);
  }
  return text;
}

// Long lists are cut: template shows them whole.
std::string shorten(std::string text) {
  constexpr std::size_t kLimit = 160;
  if (text.size() <= kLimit) return text;
  return text.substr(0, text.rfind(" | ", kLimit)) + " | ...";
}

std::string type_text(const Rule& rule, const char* link) {
  std::string text = "type " + std::string(vxdata::type_text(rule.type));
  return rule.condition.empty() ? text : text + link + rule.condition;
}

// What stays UN in the library, though the standard has a VR for it.
bool is_carried_as_un(const ValErrObj& finding) {
  const std::string_view vr = standard_vr(finding.Tag);
  return finding.Status == VX_INVALID_VR_CODE && (vr == "OV" || vr == "SV" || vr == "UV");
}

// What the standard asks for where the finding is; empty if there is nothing to tell.
std::string wanted_text(const ValErrObj& finding, const Rule* rule) {
  const std::string vr(standard_vr(finding.Tag));
  if (is_carried_as_un(finding)) return "VR " + vr + ", which is carried as UN and loses nothing";
  switch (finding.Status) {
    case VX_NON_SERVICE_ATTRIBUTE:
      return "";
    case VX_TOO_FEW_VALUES:
    case VX_TOO_MANY_VALUES:
      return "VM " + multiplicity_text(finding.Tag);
    case VX_NOT_ONE_OF_ENUMERATED_VALUES:
    case VX_NOT_ONE_OF_DEFINED_TERMS:
      return rule != nullptr ? shorten(values_text(*rule, finding.ValueNumber)) : "";
    case VX_REQUIRED_ATTRIBUTE_MISSING:
    case VX_REQUIRED_VALUE_MISSING:
    case VX_VALUE_MAY_NOT_BE_NULL:
    case VX_NO_CONDITION_FUNCTION:
    case VX_UNABLE_TO_CHECK_CONDITION:
      return rule != nullptr ? type_text(*rule, " if ") : "";
    case VX_VALUE_NOT_ALLOWED:
      return rule != nullptr ? type_text(*rule, ", only if ") : "";
    default:
      return vr.empty() ? "" : "VR " + vr;
  }
}

void append_text(std::string& out, Tree& tree, const std::vector<Found>& found, ValidationLevel level) {
  for (int severity = 0; severity < level; ++severity) {
    bool first = true;
    for (const Found& one : found) {
      if (one.severity != severity) continue;
      if (first) out += "  " + std::string(kPlural[severity]) + "\n";
      first = false;
      const ValErrObj& what = one.what;
      out += "    " + format_tag(what.Tag) + " " + tree.path(what.MsgItemID, what.Tag);
      if (what.ValueNumber > 0 && is_item_finding(what)) {
        out += " item " + std::to_string(what.ValueNumber - 1);
      } else if (what.ValueNumber > 0) {
        if (what.ValueNumber > 1) out += " value " + std::to_string(what.ValueNumber);
        out += " \"" + shown(value_text(what)) + "\"";
      }
      out += ": " + std::string(VX_Error_Message(what.Status));
      const std::string wanted = wanted_text(what, tree.rule(what.MsgItemID, what.Tag));
      out += wanted.empty() ? "\n" : " [" + wanted + "]\n";
    }
  }
}

void append_wanted(std::string& out, const ValErrObj& finding, const Rule* rule) {
  const std::string text = wanted_text(finding, rule);
  if (!text.empty()) {
    out += ",\"wanted\":";
    append_json(out, text);
  }
  if (const std::string_view vr = standard_vr(finding.Tag); !vr.empty()) {
    out += ",\"vr\":";
    append_json(out, vr);
    out += ",\"vm\":\"" + multiplicity_text(finding.Tag) + "\"";
  }
  if (rule != nullptr) append_rule_json(out, *rule);
}

void append_json_findings(std::string& out, Tree& tree, const std::vector<Found>& found,
                          ValidationLevel level) {
  bool first = true;
  for (int severity = 0; severity < level; ++severity) {
    for (const Found& one : found) {
      if (one.severity != severity) continue;
      const ValErrObj& what = one.what;
      char tag[16];
      std::snprintf(tag, sizeof tag, "%08X", static_cast<unsigned>(what.Tag));
      out += first ? "{\"severity\":\"" : ",{\"severity\":\"";
      first = false;
      out += kSingular[severity];
      out += "\",\"tag\":\"" + std::string(tag) + "\",\"path\":";
      append_json(out, tree.path(what.MsgItemID, what.Tag));
      if (what.ValueNumber > 0) {
        const bool item = is_item_finding(what);
        out += item ? ",\"item\":" : ",\"valueNumber\":";
        out += std::to_string(item ? what.ValueNumber - 1 : what.ValueNumber);
        if (!item) {
          out += ",\"value\":";
          append_json(out, value_text(what));
        }
      }
      out += ",\"status\":" + std::to_string(what.Status) + ",\"rule\":";
      append_json(out, std::string_view(VX_Error_Message(what.Status)));
      append_wanted(out, what, tree.rule(what.MsgItemID, what.Tag));
      out += '}';
    }
  }
}

struct Totals {
  std::mutex mutex;
  std::size_t files = 0;
  std::size_t failed = 0;   // could not be read, or no service is known
  std::size_t invalid = 0;  // with errors
  std::size_t counts[kLevels] = {};
};

std::string examine(const DicomFile& file, const ValidateSettings& settings, Tree& tree,
                    std::vector<Found>& found, Standard& standard) {
  std::string problem = choose_standard(file.id(), settings.standard, standard);
  if (!problem.empty()) return problem;
  tree.set_standard(standard);
  const VX_STATUS status = validate_levels(file.id(), settings, standard.command, found);
  if (status != VX_NORMAL_COMPLETION) return standard.title() + ": " + VX_Error_Message(status);
  if (settings.paths.empty()) return "";
  std::vector<Place> places;
  for (const auto& path : settings.paths) resolve_path(file.id(), path, false, places);
  std::erase_if(found,
                [&](const Found& one) { return !tree.lies_under(one.what.MsgItemID, one.what.Tag, places); });
  return "";
}

FileResult fail(const std::string& path, const std::string& problem, Totals& totals) {
  report(path, problem);
  const std::lock_guard guard(totals.mutex);
  ++totals.failed;
  return {"", kUsage};
}

FileResult validate_file(const std::string& path, const ValidateSettings& settings, Totals& totals) {
  CurrentFile current(path);
  DicomFile file;
  if (file.open(path, {}) != VX_NORMAL_COMPLETION) return fail(path, file.problem(), totals);
  Tree tree(file.id());
  std::vector<Found> found;
  Standard standard;
  const std::string problem = examine(file, settings, tree, found, standard);
  if (!problem.empty()) return fail(path, shown(problem), totals);

  std::size_t counts[kLevels] = {};
  for (const Found& one : found) ++counts[one.severity];
  FileResult result;
  std::string& out = result.output;
  if (settings.json) {
    out += "{\"file\":";
    append_json(out, path);
    out += ",\"service\":";
    append_json(out, standard.service);
    out += ",\"command\":\"" + std::string(vxdata::command_name(standard.command)) + "\"";
    out += ",\"findings\":[";
    append_json_findings(out, tree, found, settings.level);
    out += "]}\n";
  } else {
    out += path + ": " + standard.title() + ": " + counted(counts, settings.level) + "\n";
    append_text(out, tree, found, settings.level);
  }
  result.exit = counts[0] != 0 ? kFindings : kSuccess;
  const std::lock_guard guard(totals.mutex);
  ++totals.files;
  totals.invalid += counts[0] != 0 ? 1 : 0;
  for (int i = 0; i < kLevels; ++i) totals.counts[i] += counts[i];
  return result;
}

void print_summary(const Totals& totals, const ValidateSettings& settings) {
  std::string out;
  if (settings.json) {
    out = "{\"summary\":{\"validated\":" + std::to_string(totals.files) +
          ",\"withErrors\":" + std::to_string(totals.invalid) +
          ",\"notValidated\":" + std::to_string(totals.failed);
    for (int i = 0; i < settings.level; ++i) {
      out += ",\"" + std::string(kPlural[i]) + "\":" + std::to_string(totals.counts[i]);
    }
    out += "}}\n";
  } else {
    out = counted(totals.files, "file", "files") + " validated, " + std::to_string(totals.invalid) +
          " with errors: " + counted(totals.counts, settings.level);
    if (totals.failed != 0) out += "; " + std::to_string(totals.failed) + " not validated";
    out += '\n';
  }
  std::fwrite(out.data(), 1, out.size(), stdout);
}

bool read_level(const Args& args, ValidationLevel& level) {
  constexpr std::string_view kNames[] = {"errors", "warnings", "all"};
  const std::string text = args.get("--level", "warnings");
  for (int i = 0; i < kLevels; ++i) {
    if (text == kNames[i]) level = VX_Errors_Only + i;
    if (text == kNames[i]) return true;
  }
  complain("--level %s: give errors, warnings or all", text.c_str());
  return false;
}

int run(const Args& args) {
  ValidateSettings settings;
  settings.json = args.has("--json");
  long threads = default_threads();
  if (!args.number("--threads", 1, 256, threads) || !read_level(args, settings.level)) return kUsage;
  settings.standard.service = args.get("--service");
  if (args.has("--command")) {
    settings.standard.command = vxdata::command_value(args.get("--command"));
    if (settings.standard.command == 0) {
      complain("--command %s: there is no such command", args.get("--command").c_str());
      return kUsage;
    }
  }
  for (const std::string& text : args.all("--attribute")) {
    std::vector<PathStep> path;
    const std::string error = parse_path(text, path);
    if (!error.empty()) {
      complain("--attribute %s: %s", text.c_str(), error.c_str());
      return kUsage;
    }
    settings.paths.push_back(std::move(path));
  }
  if (args.paths.empty()) {
    complain("validate needs a file or folder; --help tells more");
    return kUsage;
  }
  bool failed = false;
  const std::vector<std::string> files = expand_paths(args.paths, failed);
  Totals totals;
  const int worst = for_each_file(files, static_cast<unsigned>(threads), [&](const std::string& path) {
    return validate_file(path, settings, totals);
  });
  print_summary(totals, settings);
  return failed ? static_cast<int>(kUsage) : worst;
}

}  // namespace

const Command kValidate = {
    "validate",
    "[OPTION...] PATH...",
    "check files and folders against the rules of their SOP class",
    "The SOP class UID of a file chooses the rules; an identifier of a query goes by its level. Findings "
    "come\n"
    "grouped by severity: tag, path, value, rule, and in brackets what the standard asks for. Exit status: "
    "1\n"
    "if there are errors; 2 if a file can not be read or its SOP class has no service.",
    kOptions,
    run};

}  // namespace vexal
