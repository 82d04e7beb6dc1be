// vexal template: what a service or an item demands, as a table.
#include <algorithm>
#include <array>
#include <cstdio>

#include "base/commands.h"
#include "base/json.h"
#include "base/names.h"
#include "condition_words.h"
#include "profile.h"
#include "rules.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--depth", "N", "levels of sequences below the first that are shown (default: 0)"},
    {"--json", nullptr, "one JSON object"},
};

constexpr std::size_t kMaxColumn = 64;

struct Row {
  uint32_t tag;
  std::string path;
  const RuleObj* rule;
};

struct Asked {
  std::string name;      // of the service or item
  uint16_t command = 0;  // 0: an item
  std::string uid;
  Rules rules;
};

// An item type is shown once on the way down, since items may hold themselves.
void collect(Rules rules, const std::string& front, long depth, std::vector<std::string>& way,
             std::vector<Row>& rows) {
  for (const RuleObj& rule : rules) {
    const std::string path = front + tag_name(rule.Tag);
    rows.push_back({rule.Tag, path, &rule});
    const char* name = depth != 0 ? item_type(rule) : nullptr;
    const Rules below = name != nullptr ? rules_of(name, 0) : Rules();
    if (below.empty() || std::find(way.begin(), way.end(), name) != way.end()) continue;
    way.emplace_back(name);
    collect(below, path + ".", depth - 1, way, rows);
    way.pop_back();
  }
}

void print_table(const Asked& asked, const std::vector<Row>& rows) {
  std::string out = asked.name;
  if (asked.command != 0) out += " " + std::string(vxdata::command_name(asked.command));
  if (!asked.uid.empty()) out += " " + asked.uid;
  out += "\n";
  constexpr std::size_t kColumns = 7;
  std::vector<std::array<std::string, kColumns>> table{
      {"tag", "type", "VR", "VM", "attribute", "condition", "values"}};
  for (const Row& row : rows) {
    table.push_back({format_tag(row.tag), std::string(type_letters(*row.rule)), vr_letters(row.rule->VR),
                     multiplicity_text(row.tag), row.path,
                     row.rule->Condition != nullptr ? row.rule->Condition : condition_words(*row.rule),
                     values_text(*row.rule, 0)});
  }
  std::size_t widths[kColumns] = {};
  for (const auto& cells : table) {
    for (std::size_t i = 0; i < kColumns; ++i) {
      if (cells[i].size() <= kMaxColumn) widths[i] = std::max(widths[i], cells[i].size());
    }
  }
  for (const auto& cells : table) {
    std::string line;
    for (std::size_t i = 0; i < kColumns; ++i) {
      line += cells[i];
      if (i + 1 < kColumns) line.append(2 + widths[i] - std::min(widths[i], cells[i].size()), ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out += line + "\n";
  }
  std::fwrite(out.data(), 1, out.size(), stdout);
}

void print_json(const Asked& asked, const std::vector<Row>& rows) {
  std::string out = asked.command != 0 ? "{\"service\":" : "{\"item\":";
  append_json(out, asked.name);
  if (asked.command != 0) {
    out += ",\"command\":\"" + std::string(vxdata::command_name(asked.command)) + "\"";
  }
  if (!asked.uid.empty()) out += ",\"uid\":\"" + asked.uid + "\"";
  out += ",\"attributes\":[";
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const Row& row = rows[i];
    out += std::string(i == 0 ? "" : ",") + "{\"tag\":\"" + tag_key(row.tag) + "\",\"path\":";
    append_json(out, row.path);
    out += ",\"vr\":\"" + std::string(vr_letters(row.rule->VR)) + "\",\"vm\":\"" +
           multiplicity_text(row.tag) + "\"";
    append_rule_json(out, *row.rule);
    out += '}';
  }
  out += "]}\n";
  std::fwrite(out.data(), 1, out.size(), stdout);
}

std::string list_commands(const std::vector<uint16_t>& commands) {
  std::string text;
  for (const uint16_t command : commands) {
    text += (text.empty() ? "" : ", ") + std::string(vxdata::command_name(command));
  }
  return text;
}

// A service by its name or UID, or an item; the exit status, after a line on standard error.
int look_up(const Args& args, Asked& asked) {
  asked.name = args.paths[0];
  char text[128] = "";
  if (VX_Get_VexalKit_Service(asked.name.c_str(), text, sizeof text) == VX_NORMAL_COMPLETION)
    asked.name = text;
  if (args.paths.size() == 1) {
    VX_STATUS status = VX_NORMAL_COMPLETION;
    asked.rules = rules_of(asked.name.c_str(), 0, &status);
    if (status == VX_MSGFILE_ERROR) return kUsage;
    if (!asked.rules.empty()) return kSuccess;
  }
  char uid[128] = "";
  const bool service =
      VX_Get_UID_From_VexalKit_Service(asked.name.c_str(), uid, sizeof uid) == VX_NORMAL_COMPLETION;
  asked.uid = uid;
  std::vector<uint16_t> commands;
  if (rule_commands(asked.name.c_str(), commands) == VX_MSGFILE_ERROR) return kUsage;
  if (!service && commands.empty()) {
    std::string line = "no service or item is called " + args.paths[0];
    const std::vector<std::string> near = similar_names(args.paths[0], 8);
    for (std::size_t i = 0; i < near.size(); ++i) line += (i == 0 ? "; near: " : ", ") + near[i];
    complain("%s", line.c_str());
    return kFindings;
  }
  asked.command = args.paths.size() > 1 ? vxdata::command_value(args.paths[1]) : usual_command(commands);
  if (asked.command != 0) asked.rules = rules_of(asked.name.c_str(), asked.command);
  if (!asked.rules.empty()) return kSuccess;
  if (commands.empty()) {
    complain("nothing is known of what messages of %s hold", asked.name.c_str());
  } else {
    complain("%s has no rules for %s; it has: %s", asked.name.c_str(), args.paths[1].c_str(),
             list_commands(commands).c_str());
  }
  return kFindings;
}

int run(const Args& args) {
  if (args.paths.empty() || args.paths.size() > 2) {
    complain("template needs a service or item, and at most a command; --help tells more");
    return kUsage;
  }
  long depth = 0;
  if (!args.number("--depth", 0, 64, depth)) return kUsage;
  Asked asked;
  const int exit = look_up(args, asked);
  if (exit != kSuccess) return exit;
  std::vector<Row> rows;
  std::vector<std::string> way{asked.name};
  collect(asked.rules, "", depth, way, rows);
  args.has("--json") ? print_json(asked, rows) : print_table(asked, rows);
  return kSuccess;
}

}  // namespace

const Command kTemplate = {
    "template",
    "[OPTION...] SERVICE [COMMAND]",
    "show what a service or an item of a sequence demands",
    "SERVICE is a service by its name or UID, or an item. COMMAND is C_STORE_RQ where the service has one,\n"
    "else its first request. A line is an attribute: tag, type, VR, VM, keyword path, condition, values.\n"
    "\"A | B\" are enumerated values, \"A | B | ...\" defined terms, \"2: A\" values for the second place; "
    "a\n"
    "sequence shows the items that it takes. LOSSY_COMPRESSION_PERFORMED as a condition asks for a value "
    "where\n"
    "the attribute is there, and no more. Exit status 1 if there is no such service, item or command.",
    kOptions,
    run};

}  // namespace vexal
