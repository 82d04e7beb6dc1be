// vexal validate: what in a file breaks the rules of its SOP class.
#include <algorithm>
#include <cstdio>
#include <mutex>
#include <set>
#include <tuple>

#include "base/commands.h"
#include "base/json.h"
#include "base/names.h"
#include "base/parallel.h"
#include "base/printable.h"
#include "base/session.h"
#include "base/tag_path.h"
#include "cross_checks.h"
#include "files/files.h"
#include "files/ordered_reader.h"
#include "findings.h"
#include "profile.h"
#include "report_content.h"
#include "sets/validate_set.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--level", "LEVEL", "what to show: errors, warnings (default: with the errors) or all"},
    {"--attribute", "PATH", "only what concerns this attribute and what is below it (may be repeated)"},
    {"--service", "NAME", "go by the rules of this service, whatever the SOP class"},
    {"--command", "NAME", "of the service (default: C_STORE_RQ, else the request that fits best)"},
    {"--set", nullptr, "compare the objects of all files with each other, instead of each with its rules"},
    {"--json", nullptr, "one JSON object a file, one line each, and one for the summary"},
    {"--threads", "N", "files read at once (default: the processors)"},
};

struct ValidateSettings {
  ValidationLevel level = VX_Errors_And_Warnings;
  bool json = false;
  Standard standard;  // what the user names of it
  std::vector<std::vector<PathStep>> paths;
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
  // Warnings are asked for in any case: the lists of single values tell how grave they are.
  const ValidationLevel highest = std::max<ValidationLevel>(settings.level, VX_Errors_And_Warnings);
  for (ValidationLevel level = VX_Errors_Only; level <= highest; ++level) {
    std::vector<ValErrObj> findings;
    const VX_STATUS status = run_validation(id, level, findings);
    if (status != VX_MESSAGE_VALIDATES && status != VX_DOES_NOT_VALIDATE) return status;
    std::vector<Found> merged;
    merged.reserve(findings.size());
    auto known = found.begin();
    for (const ValErrObj& finding : findings) {
      const bool before = known != found.end() && same(known->what, finding);
      merged.push_back({finding, before ? (known++)->severity : level - VX_Errors_Only, ""});
    }
    found = std::move(merged);
  }
  std::erase_if(found, [command](const Found& one) { return is_uid_list(one.what, command); });
  return VX_NORMAL_COMPLETION;
}

struct Totals {
  std::mutex mutex;
  std::size_t files = 0;
  std::size_t failed = 0;   // could not be read, or no service is known
  std::size_t invalid = 0;  // with errors
  std::size_t counts[kLevels] = {};
};

// How grave a value outside its lists is, by the lists for its place among the values. False if there are
// none.
bool grade_listed(Found& found, const std::vector<ValueList>& lists) {
  const bool by_number = lists_by_number(lists);
  bool any = false;
  bool closed = true;
  for (const ValueList& list : lists) {
    if (by_number && list.number != found.what.ValueNumber) continue;
    any = true;
    closed = closed && list.enumerated;
  }
  found.severity = closed ? 0 : 1;
  found.what.Status = closed ? VX_NOT_ONE_OF_ENUMERATED_VALUES : VX_NOT_ONE_OF_DEFINED_TERMS;
  return any;
}

// The library takes the kind of an attribute's last list for all of its values, and UN for a fault.
void grade(ItemTree& tree, std::vector<Found>& found) {
  std::erase_if(found, [&](Found& one) {
    if (is_carried_as_un(one.what)) one.severity = 2;
    const VX_STATUS status = one.what.Status;
    if (status != VX_NOT_ONE_OF_ENUMERATED_VALUES && status != VX_NOT_ONE_OF_DEFINED_TERMS) return false;
    const RuleObj* rule = tree.rule(one.what.MsgItemID, one.what.Tag);
    const std::vector<ValueList> lists = rule != nullptr ? value_lists(*rule) : std::vector<ValueList>();
    return !lists.empty() && !grade_listed(one, lists);
  });
}

// Errors that no template tells of go behind the library's, unless that has found the same value wrong.
void add_cross_checks(const DicomFile& file, uint16_t command, std::vector<Found>& found) {
  const bool query =
      command == C_FIND_RQ || command == C_FIND_RSP || command == C_MOVE_RQ || command == C_GET_RQ;
  std::set<std::tuple<int32_t, uint32_t, int32_t, VX_STATUS>> known;
  for (const Found& one : found) {
    const ValErrObj& what = one.what;
    if (one.severity == 0) known.emplace(what.MsgItemID, what.Tag, what.ValueNumber, what.Status);
  }
  for (CrossFinding& cross : cross_check(file, query)) {
    const ValErrObj& what = cross.what;
    const auto is_known = [&](VX_STATUS status) {
      return known.contains({what.MsgItemID, what.Tag, what.ValueNumber, status});
    };
    if (what.ValueNumber == 0 || (!is_known(what.Status) && !is_known(VX_INVALID_VALUE_FOR_VR) &&
                                  !is_known(VX_INVALID_CHARS_IN_VALUE)))
      found.push_back({what, 0, std::move(cross.reason)});
  }
}

// The library passes over an item without attributes where the sequence need not have values; what its rules
// demand is missing all the same.
void add_empty_items(int32_t object, ItemTree& tree, const std::set<int32_t>& told,
                     std::vector<Found>& found) {
  for (const uint32_t sequence : sequences_of(object)) {
    for (const int32_t item : sequence_items(object, sequence)) {
      uint32_t first = 0;
      const bool empty = VX_Get_First_Attribute(item, &first, nullptr, nullptr) != VX_NORMAL_COMPLETION;
      std::vector<ValErrObj> missing;
      if (!empty) {
        add_empty_items(item, tree, told, found);
      } else if (const RuleObj* rule = told.contains(item) ? nullptr : tree.rule(object, sequence);
                 rule != nullptr && item_type(*rule) != nullptr) {
        run_validation(item, VX_Errors_Only, missing);
      }
      for (const ValErrObj& one : missing) found.push_back({one, 0, ""});
    }
  }
}

std::string examine(const DicomFile& file, const ValidateSettings& settings, ItemTree& tree,
                    std::vector<Found>& found, Standard& standard) {
  std::string problem = choose_standard(file.id(), settings.standard, standard);
  if (!problem.empty()) return problem;
  tree.set_standard(standard);
  const VX_STATUS status = validate_levels(file.id(), settings, standard.command, found);
  if (status != VX_NORMAL_COMPLETION) return standard.title() + ": " + VX_Error_Message(status);
  std::set<int32_t> told;
  for (const Found& one : found) told.insert(one.what.MsgItemID);
  if (standard.command == C_STORE_RQ) add_empty_items(file.id(), tree, told, found);
  grade(tree, found);
  add_cross_checks(file, standard.command, found);
  if (standard.command == C_STORE_RQ) {
    for (ContentFinding& one : check_report_content(file.id()))
      found.push_back({one.what, one.severity, std::move(one.reason)});
  }
  std::erase_if(found, [&](const Found& one) { return one.severity >= settings.level; });
  if (settings.paths.empty()) return "";
  std::vector<Place> places;
  for (const auto& path : settings.paths) resolve_path(file.id(), path, false, places);
  std::erase_if(found,
                [&](const Found& one) { return !tree.lies_under(one.what.MsgItemID, one.what.Tag, places); });
  return "";
}

// The first tag of `problem` is the one that comes too late.
Found order_finding(int32_t root, const std::string& problem) {
  uint32_t tag = 0;
  if (const std::size_t at = problem.find('('); at != std::string::npos)
    parse_tag(problem.substr(at, 11), tag);
  return {{tag, root, 0, VX_OUT_OF_ORDER_TAG}, 0, shown(problem)};
}

FileResult fail(const std::string& path, const std::string& problem, Totals& totals) {
  report(path, problem);
  const std::lock_guard guard(totals.mutex);
  ++totals.failed;
  return {"", kUsage};
}

FileResult validate_file(const std::string& path, const ValidateSettings& settings, Totals& totals) {
  static OrderedReader reader;
  CurrentFile current(path);
  DicomFile file;
  std::string out_of_order;
  if (reader.open(file, path, out_of_order) != VX_NORMAL_COMPLETION)
    return fail(path, file.problem(), totals);
  ItemTree tree(file.id());
  std::vector<Found> found;
  Standard standard;
  const std::string problem = examine(file, settings, tree, found, standard);
  if (!problem.empty()) return fail(path, shown(problem), totals);
  if (!out_of_order.empty()) found.insert(found.begin(), order_finding(file.id(), out_of_order));

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
    out += shown(path) + ": " + standard.title() + ": " + counted(counts, settings.level) + "\n";
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
  if (!read_paths(args, "--attribute", settings.paths)) return kUsage;
  for (const char* option : {"--attribute", "--service", "--command"}) {
    if (args.has("--set") && args.has(option)) {
      complain("--set goes without %s: objects are compared, not held against rules", option);
      return kUsage;
    }
  }
  if (args.paths.empty()) {
    complain("validate needs a file or folder; --help tells more");
    return kUsage;
  }
  bool failed = false;
  const std::vector<std::string> files = expand_paths(args.paths, failed);
  if (args.has("--set")) {
    const int worst = validate_set(files, settings.level, settings.json, static_cast<unsigned>(threads));
    return failed ? static_cast<int>(kUsage) : worst;
  }
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
