#include "findings.h"

#include "base/json.h"
#include "base/names.h"
#include "base/printable.h"
#include "condition_words.h"

namespace vexal {

// Items go by the first type that their sequence takes.
const RuleObj* ItemTree::rule(int32_t object, uint32_t tag) {
  const Home* home = find(object);
  if (home == nullptr) return find_rule(standard_.service.c_str(), standard_.command, tag);
  const RuleObj* sequence = rule(home->object, home->tag);
  const char* type = sequence != nullptr ? item_type(*sequence) : nullptr;
  return type != nullptr ? find_rule(type, 0, tag) : nullptr;
}

std::string ItemTree::path(int32_t object, uint32_t tag) {
  std::string text = tag_name(tag);
  for (const Home* home = find(object); home != nullptr; home = find(home->object)) {
    text = path_step(*home) + "." + text;
  }
  return text;
}

bool ItemTree::lies_under(int32_t object, uint32_t tag, const std::vector<Place>& places) {
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

std::string ItemTree::path_step(const Home& home) {
  return tag_name(home.tag) + "[" + std::to_string(home.index) + "]";
}

const ItemTree::Home* ItemTree::find(int32_t object) {
  if (object == root_) return nullptr;
  if (homes_.empty()) add(root_);
  const auto it = homes_.find(object);
  return it != homes_.end() ? &it->second : nullptr;
}

void ItemTree::add(int32_t object) {
  for (const uint32_t sequence : sequences_of(object)) {
    const std::vector<int32_t> items = sequence_items(object, sequence);
    for (std::size_t i = 0; i < items.size(); ++i) {
      if (homes_.emplace(items[i], Home{object, sequence, i}).second) add(items[i]);
    }
  }
}

namespace {

constexpr std::size_t kShown = 64;  // bytes of a value

// Reads the texts of values. Findings come in the order of the values, so that the next one is mostly read on
// from the last.
class ValueReader {
 public:
  // The start of it, if it is long.
  std::string text(const ValErrObj& finding) {
    const bool on = object_ == finding.MsgItemID && tag_ == finding.Tag && number_ < finding.ValueNumber;
    char text[kShown + 1] = "";
    VX_STATUS status = VX_NORMAL_COMPLETION;
    if (!on) {
      status = VX_Get_Value_To_String(finding.MsgItemID, finding.Tag, sizeof text, text);
      number_ = 1;
    }
    for (; number_ < finding.ValueNumber; ++number_)
      status = VX_Get_Next_Value_To_String(finding.MsgItemID, finding.Tag, sizeof text, text);
    object_ = finding.MsgItemID;
    tag_ = finding.Tag;
    if (status == VX_BUFFER_TOO_SMALL) return std::string(text) + "...";
    return status == VX_NORMAL_COMPLETION ? text : "";
  }

 private:
  int32_t object_ = -1;
  uint32_t tag_ = 0;
  int32_t number_ = 0;
};

bool is_item_finding(const ValErrObj& finding) {
  VX_VR vr = 0;
  return VX_Get_Attribute_Info(finding.MsgItemID, finding.Tag, &vr, nullptr) == VX_NORMAL_COMPLETION &&
         vr == VX_VR_SQ;
}

// Long lists are cut: template shows them whole.
std::string shorten(std::string text) {
  constexpr std::size_t kLimit = 160;
  if (text.size() <= kLimit) return text;
  return text.substr(0, text.rfind(" | ", kLimit)) + " | ...";
}

// "type 1C of Patient (C.7-1), required if ...".
std::string type_text(const RuleObj& rule, const char* link) {
  std::string text = "type " + std::string(type_letters(rule));
  const std::string module = rule.Module != nullptr ? rule.Module : "";
  if (const std::size_t space = module.find(' '); space != std::string::npos) {
    const bool table = module.find('.') < space || module.find('-') < space;  // as the standard has it
    text += " of " + (table ? module.substr(space + 1) + " (" + module.substr(0, space) + ")" : module);
  }
  const std::string words = condition_words(rule);
  return words.empty() ? text : text + ", " + link + words;
}

// The VR that the value was checked by.
std::string checked_vr(const ValErrObj& finding) {
  VX_VR vr = 0;
  if (VX_Get_Attribute_Info(finding.MsgItemID, finding.Tag, &vr, nullptr) == VX_NORMAL_COMPLETION)
    return vr_letters(vr);
  return std::string(standard_vr(finding.Tag));
}

// What the standard asks for where the finding is; empty if there is nothing to tell.
std::string wanted_text(const Found& found, const RuleObj* rule) {
  const ValErrObj& finding = found.what;
  if (!found.reason.empty()) return found.reason;
  if (is_carried_as_un(finding))
    return "VR " + std::string(standard_vr(finding.Tag)) + ", which is carried as UN and loses nothing";
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
      return rule != nullptr ? type_text(*rule, "required if ") : "";
    case VX_VALUE_NOT_ALLOWED:
      return rule != nullptr ? type_text(*rule, "only if ") : "";
    default: {
      const std::string vr = checked_vr(finding);
      return vr.empty() ? "" : "VR " + vr;
    }
  }
}

// A finding as it is printed, with how many of its like there are.
struct Line {
  std::string head;  // tag, path, value
  std::string text;  // status and what is wanted
  std::size_t count = 1;
};

// "A[12].B" as "A[].B": what the same finding in other items has in common.
std::string without_numbers(const std::string& path) {
  std::string text;
  bool inside = false;
  for (const char c : path) {
    if (!inside || c == ']') text += c;
    inside = c == '[' || (inside && c != ']');
  }
  return text;
}

std::string finding_head(ItemTree& tree, const Found& one, ValueReader& values) {
  const ValErrObj& what = one.what;
  std::string head = format_tag(what.Tag) + " " + tree.path(what.MsgItemID, what.Tag);
  if (what.ValueNumber > 0 && is_item_finding(what)) {
    head += " item " + std::to_string(what.ValueNumber - 1);
  } else if (what.ValueNumber > 0) {
    if (what.ValueNumber > 1) head += " value " + std::to_string(what.ValueNumber);
    head += " \"" + shown(values.text(what)) + "\"";
  }
  return head;
}

void append_wanted(std::string& out, const Found& found, const RuleObj* rule) {
  const ValErrObj& finding = found.what;
  const std::string text = wanted_text(found, rule);
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

}  // namespace

bool is_carried_as_un(const ValErrObj& finding) {
  const std::string_view vr = standard_vr(finding.Tag);
  return finding.Status == VX_INVALID_VR_CODE && (vr == "OV" || vr == "SV" || vr == "UV");
}

void append_text(std::string& out, ItemTree& tree, const std::vector<Found>& found, ValidationLevel level) {
  ValueReader values;
  for (int severity = 0; severity < level; ++severity) {
    std::vector<Line> lines;
    std::map<std::string, std::size_t> known;
    for (const Found& one : found) {
      if (one.severity != severity) continue;
      const ValErrObj& what = one.what;
      const std::string wanted = wanted_text(one, tree.rule(what.MsgItemID, what.Tag));
      const std::string text =
          std::string(VX_Error_Message(what.Status)) + (wanted.empty() ? "" : " [" + wanted + "]");
      const std::string key =
          format_tag(what.Tag) + without_numbers(tree.path(what.MsgItemID, what.Tag)) + "\n" + text;
      const auto [at, fresh] = known.emplace(key, lines.size());
      if (fresh) {
        lines.push_back({finding_head(tree, one, values), text});
      } else {
        ++lines[at->second].count;
      }
    }
    if (!lines.empty()) out += "  " + std::string(kPlural[severity]) + "\n";
    for (const Line& line : lines) {
      out += "    " + line.head + ": " + line.text;
      if (line.count > 1) out += " (the first of " + std::to_string(line.count) + ")";
      out += '\n';
    }
  }
}

void append_json_findings(std::string& out, ItemTree& tree, const std::vector<Found>& found,
                          ValidationLevel level) {
  ValueReader values;
  bool first = true;
  for (int severity = 0; severity < level; ++severity) {
    for (const Found& one : found) {
      if (one.severity != severity) continue;
      const ValErrObj& what = one.what;
      out += first ? "{\"severity\":\"" : ",{\"severity\":\"";
      first = false;
      out += kSingular[severity];
      out += "\",\"tag\":\"" + tag_key(what.Tag) + "\",\"path\":";
      append_json(out, tree.path(what.MsgItemID, what.Tag));
      if (what.ValueNumber > 0) {
        const bool item = is_item_finding(what);
        out += item ? ",\"item\":" : ",\"valueNumber\":";
        out += std::to_string(item ? what.ValueNumber - 1 : what.ValueNumber);
        if (!item) {
          out += ",\"value\":";
          append_json(out, values.text(what));
        }
      }
      out += ",\"status\":" + std::to_string(what.Status) + ",\"rule\":";
      append_json(out, std::string_view(VX_Error_Message(what.Status)));
      append_wanted(out, one, tree.rule(what.MsgItemID, what.Tag));
      out += '}';
    }
  }
}

}  // namespace vexal
