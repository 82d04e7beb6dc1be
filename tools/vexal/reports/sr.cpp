// vexal sr: structured reports shown, checked, turned into tables and made.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <string_view>

#include "base/commands.h"
#include "base/printable.h"
#include "base/session.h"
#include "base/tags.h"
#include "base/values.h"
#include "sr_document.h"
#include "sr_rules.h"
#include "standard/report_templates.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--json", nullptr, "show: as JSON, the form that build reads"},
    {"--html", nullptr, "show: as a page"},
    {"--csv", nullptr, "show: one line a node"},
    {"--codes", nullptr, "show: codes behind what they mean"},
};

// --- Text ---

// On one line, and nothing that would steer a terminal.
std::string flat(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r' || c == '\t'; }, ' ');
  const bool plain = std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7F; });
  return plain ? text : shown(text);
}

std::string with_code(const SrCode& code, bool codes) {
  const std::string& text = code.meaning.empty() ? code.value : code.meaning;
  return codes && !code.empty() ? text + " (" + code.value + ", " + code.scheme + ")" : text;
}

void show_text(const SrDocument& document, bool codes) {
  std::string out;
  document.walk([&](const std::vector<SrNode>& path) {
    const SrNode& node = path.back();
    out.append(static_cast<std::size_t>(node.depth) * 2, ' ');
    if (node.depth != 0) out += std::string(sr_relationship_name(node.relationship)) + " ";
    out += node.type < 0 ? "?" + flat(node.other_type) : sr_type_name(node.type);
    if (!node.concept_name.empty()) out += " " + flat(with_code(node.concept_name, codes));
    std::string value = node.type == SRH_CODE ? with_code(node.code, codes) : sr_value_text(node);
    if (node.type == SRH_CONTAINER && !node.template_id.empty()) value = "TID " + node.template_id;
    if (!value.empty()) out += (node.type == SRH_REFERENCE ? "" : ": ") + flat(value);
    out += '\n';
    if (out.size() > 65536) {
      std::fwrite(out.data(), 1, out.size(), stdout);
      out.clear();
    }
  });
  std::fwrite(out.data(), 1, out.size(), stdout);
}

// --- HTML ---

std::string escaped(std::string_view text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '&':
        out += "&amp;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\n':
        out += "<br>";
        break;
      case '\r':
        break;
      default:
        out += c;
    }
  }
  return out;
}

void show_html(const SrDocument& document) {
  const std::vector<SrNode> nodes = document.nodes();
  const std::string title = escaped(nodes.front().concept_name.meaning);
  std::printf(
      "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>%s</title>\n"
      "<style>body{font-family:sans-serif;max-width:60em;margin:auto}ul{list-style:none}"
      "b{font-weight:600}small{color:#666}</style></head><body>\n<h1>%s</h1>\n",
      title.c_str(), title.c_str());
  constexpr struct {
    const char* label;
    uint32_t tag;
  } kHead[] = {{"Patient", tags::kPatientName},
               {"Patient ID", tags::kPatientID},
               {"Born", tags::kPatientBirthDate},
               {"Study", tags::kStudyDescription},
               {"Date", tags::kContentDate},
               {"Completion", tags::kCompletionFlag},
               {"Verification", tags::kVerificationFlag}};
  std::printf("<table>\n");
  for (const auto& row : kHead) {
    const std::string text = escaped(text_of(document.id(), row.tag));
    if (!text.empty()) std::printf("<tr><th>%s</th><td>%s</td></tr>\n", row.label, text.c_str());
  }
  std::printf("</table>\n");
  int depth = 0;
  for (std::size_t i = 1; i < nodes.size(); ++i) {
    const SrNode& node = nodes[i];
    for (; depth < node.depth; ++depth) std::printf("<ul>\n");
    for (; depth > node.depth; --depth) std::printf("</ul>\n");
    const std::string name = escaped(with_code(node.concept_name, false));
    std::string value = escaped(sr_value_text(node));
    if (node.type == SRH_REFERENCE && !node.target.empty()) {
      value = "<a href=\"#n" + node.target + "\">" + node.target + "</a>";
    }
    std::printf("<li id=\"n%s\"><small>%s</small> <b>%s</b>%s %s</li>\n", node.location.c_str(),
                sr_relationship_name(node.relationship), name.c_str(),
                value.empty() || name.empty() ? "" : ":", value.c_str());
  }
  for (; depth > 0; --depth) std::printf("</ul>\n");
  std::printf("</body></html>\n");
}

// --- CSV and tables ---

std::string quoted(const std::string& text) {
  if (text.find_first_of("\",\n\r") == std::string::npos) return text;
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + '"';
}

void show_csv(const SrDocument& document) {
  std::printf(
      "location,relationship,type,concept code,concept scheme,concept,value,unit,value code,value scheme\n");
  document.walk([](const std::vector<SrNode>& path) {
    const SrNode& node = path.back();
    const std::string cells[] = {node.location,
                                 sr_relationship_name(node.relationship),
                                 sr_type_name(node.type),
                                 node.concept_name.value,
                                 node.concept_name.scheme,
                                 node.concept_name.meaning,
                                 node.type == SRH_NUM ? node.value : sr_value_text(node),
                                 node.unit.value,
                                 node.code.value,
                                 node.code.scheme};
    std::string line;
    for (const std::string& cell : cells) line += (&cell == cells ? "" : ",") + quoted(cell);
    std::printf("%s\n", line.c_str());
  });
}

bool is_concept(const SrNode& node, std::string_view code) {
  return node.concept_name.value == code;
}

// What TID 1411, 1501 and their like say of a group of measurements.
struct Group {
  std::string tracking;
  std::string tracking_uid;
  std::string finding;
  std::string site;
  std::string image;
};

// The group's own context; a measurement's own site and image count before it.
void note_context(const SrNode& node, Group& group) {
  if (is_concept(node, "112039")) group.tracking = node.value;
  if (is_concept(node, "112040")) group.tracking_uid = node.value;
  if (is_concept(node, "121071") && node.type == SRH_CODE) group.finding = node.code.meaning;
  if (is_concept(node, "363698007") || is_concept(node, "G-C0E3")) group.site = node.code.meaning;
  if (node.type == SRH_IMAGE && group.image.empty()) group.image = sr_value_text(node);
}

int table(const Args&, const std::string& path) {
  SrDocument document;
  if (!document.open(path)) return kUsage;
  const std::vector<SrNode> nodes = document.nodes();
  // Context by the node that it stands below: a container's, or that of a number or a region in it.
  std::map<std::size_t, Group> contexts;
  for (std::size_t i = 1; i < nodes.size(); ++i) {
    std::size_t holder = nodes[i].parent;
    note_context(nodes[i], contexts[holder]);
    // An image below a region belongs to what the region stands below, too.
    if (nodes[i].type == SRH_IMAGE && nodes[holder].type == SRH_SCOORD) {
      note_context(nodes[i], contexts[nodes[holder].parent]);
    }
  }
  std::printf(
      "group\ttracking identifier\ttracking UID\tfinding\tfinding site\tconcept code\tconcept "
      "scheme\tconcept\tvalue\t"
      "unit\tqualifier\timage\n");
  for (std::size_t i = 1; i < nodes.size(); ++i) {
    const SrNode& node = nodes[i];
    if (node.type != SRH_NUM) continue;
    Group own;
    std::size_t container = node.parent;
    while (container != 0 && nodes[container].type != SRH_CONTAINER) container = nodes[container].parent;
    if (const auto found = contexts.find(i); found != contexts.end()) own = found->second;
    if (const auto found = contexts.find(container); found != contexts.end()) {
      const Group& group = found->second;
      for (std::string Group::*field :
           {&Group::tracking, &Group::tracking_uid, &Group::finding, &Group::site, &Group::image}) {
        if ((own.*field).empty()) own.*field = group.*field;
      }
    }
    const std::string cells[] = {nodes[container].location,
                                 own.tracking,
                                 own.tracking_uid,
                                 own.finding,
                                 own.site,
                                 node.concept_name.value,
                                 node.concept_name.scheme,
                                 node.concept_name.meaning,
                                 node.value,
                                 node.unit.value,
                                 node.qualifier.meaning,
                                 own.image};
    std::string line;
    for (const std::string& cell : cells) line += (&cell == cells ? "" : "\t") + flat(cell);
    std::printf("%s\n", line.c_str());
  }
  return document.has_lost_text() ? kFindings : kSuccess;
}

int check(const Args&, const std::string& path) {
  SrDocument document;
  if (!document.open(path)) return kUsage;
  std::size_t found = 0;
  std::size_t nodes = 0;
  SrRules rules(text_of(document.id(), tags::kSOPClassUID));
  document.walk([&](const std::vector<SrNode>& way) {
    const SrNode& node = way.back();
    for (const std::string& fault : rules.faults_of(way)) {
      const char* type = node.type < 0 ? node.other_type.c_str() : sr_type_name(node.type);
      say("%s: %s %s %s: %s", path.c_str(), node.location.c_str(), flat(type).c_str(),
          flat(node.concept_name.meaning).c_str(), fault.c_str());
      ++found;
    }
    ++nodes;
  });
  if (found == 0) say("%s: %zu nodes, nothing found", path.c_str(), nodes);
  return found == 0 ? kSuccess : kFindings;
}

int show(const Args& args, const std::string& path) {
  SrDocument document;
  if (!document.open(path)) return kUsage;
  bool whole = true;
  if (args.has("--json")) {
    whole = show_json(document);
  } else if (args.has("--html")) {
    show_html(document);
  } else if (args.has("--csv")) {
    show_csv(document);
  } else {
    show_text(document, args.has("--codes"));
  }
  return whole && !document.has_lost_text() ? kSuccess : kFindings;
}

int build(const Args& args, const std::string& path) {
  if (args.paths.size() == 3) return build_report(path, args.paths[2]);
  complain("sr build needs the JSON and the file to write");
  return kUsage;
}

// --- Templates ---

std::string choice_text(const ContentChoice& choice) {
  return choice.text.empty() ? "" : " " + std::string(choice.text);
}

std::string row_text(const TemplateRow& row) {
  constexpr const char* kNeeds[] = {"M", "MC", "U"};
  std::string text(static_cast<std::size_t>(row.level) * 2, ' ');
  const std::string relationship = report_relationships(row.relationships);
  text += std::string(row.label) + ": " + relationship + (relationship.empty() ? "" : " ");
  text += row.types == 0 ? "TID " + std::to_string(row.included)
                         : report_value_types(row.types) + choice_text(row.concept_name);
  text += ", " + std::to_string(row.least);
  if (row.most != row.least)
    text += row.most == TemplateRow::kUnbounded ? "-n" : "-" + std::to_string(row.most);
  text += std::string(" ") + kNeeds[row.need];
  if (!row.condition.text.empty()) text += ", if " + std::string(row.condition.text);
  if (row.types != 0 && !row.value.text.empty()) text += ":" + choice_text(row.value);
  for (const auto& [name, value] : row.arguments)
    text += "; " + std::string(name) + " =" + choice_text(value);
  return text;
}

int show_template(const Args&, const std::string& number) {
  const bool digits =
      !number.empty() && number.size() < 9 && number.find_first_not_of("0123456789") == std::string::npos;
  const ContentTemplate* of = digits ? ReportTemplates::get().find(std::stoi(number)) : nullptr;
  if (of == nullptr) {
    std::string known;
    for (const auto& [one, row] : ReportTemplates::get().all()) known += " " + std::to_string(one);
    complain("sr template %s: there is none of this number; known are%s", number.c_str(), known.c_str());
    return kUsage;
  }
  say("TID %d %s%s", of->number, std::string(of->name).c_str(), of->closed ? ", no other content" : "");
  for (const TemplateRow& row : of->rows) say("%s", row_text(row).c_str());
  return kSuccess;
}

struct Action {
  const char* name;
  int (*run)(const Args& args, const std::string& path);
};
constexpr Action kActions[] = {
    {"show", show}, {"build", build}, {"check", check}, {"table", table}, {"template", show_template}};

int run(const Args& args) {
  if (args.paths.size() < 2) {
    complain("sr needs an action and a file; --help tells more");
    return kUsage;
  }
  const CurrentFile current(args.paths[1]);
  for (const Action& action : kActions) {
    if (args.paths[0] == action.name) return action.run(args, args.paths[1]);
  }
  complain("sr %s: show, build, check, table or template", args.paths[0].c_str());
  return kUsage;
}

}  // namespace

const Command kSr = {
    "sr",
    "ACTION FILE [OUTPUT] [OPTION...]",
    "show, check, tabulate and make structured reports",
    "show     the tree of the report, as text, JSON, HTML or CSV\n"
    "check    what of the content breaks the rules of its value types and of the report's class\n"
    "table    the measurements as tab-separated values, one a line, with what their group says\n"
    "build    makes a report OUTPUT of JSON as show --json writes it; what is of another form is refused\n"
    "template the rows that validate judges the content by, of the template of PS3.16 of that number (in the "
    "place of "
    "FILE)\n"
    "References are shown, not followed.",
    kOptions,
    run};

}  // namespace vexal
