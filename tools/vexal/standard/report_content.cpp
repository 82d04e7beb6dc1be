#include "report_content.h"

#include <algorithm>

#include "base/tags.h"
#include "report_level.h"

namespace vexal {
namespace {

std::string slot_text(const Slot& slot) {
  const ContentChoice name = resolve(slot.row->concept_name, *slot.arguments);
  std::string text = report_relationships(slot.relationships);
  text += (text.empty() ? "" : " ") + report_value_types(slot.row->types);
  if (name.kind == ContentChoice::kCode || name.kind == ContentChoice::kGroup)
    text += " " + std::string(name.text);
  return text;
}

std::string title_of(int number) {
  const ContentTemplate* of = ReportTemplates::get().find(number);
  return "TID " + std::to_string(number) + (of == nullptr ? "" : " " + std::string(of->name));
}

std::string times(std::size_t count) {
  return count == 1 ? "once" : std::to_string(count) + " times";
}

class ContentChecker {
 public:
  explicit ContentChecker(int32_t root) : nodes_(read_report(root)) {}

  std::vector<ContentFinding> run() {
    start();
    while (!open_.empty()) {
      const Open next = open_.back();
      open_.pop_back();
      check_below(next.node, *next.rows, next.owner);
    }
    return std::move(findings_);
  }

 private:
  // An item whose content is to be held against rows.
  struct Open {
    std::size_t node;
    const Expansion* rows;
    int owner;  // the template
  };

  void add(std::size_t node, uint32_t tag, int32_t value, VX_STATUS status, int severity,
           const std::string& reason) {
    findings_.push_back(
        {{tag, nodes_[node].id, value, status}, severity, content_place(nodes_, node) + ": " + reason});
  }

  // ---- The root ----

  void start() {
    const ContentNode& root = nodes_.front();
    if (root.type == 0 || (root.count == 0 && root.template_id == 0 && !root.concept_name.there)) return;
    if (root.template_id != 0) {
      const ContentTemplate* named = ReportTemplates::get().find(root.template_id);
      if (named == nullptr || named->top.size() != 1)
        return add(0, tags::kContentTemplateSequence, 0, VX_UNABLE_TO_CHECK_CONDITION, 2,
                   "the rows of TID " + std::to_string(root.template_id) + " are not known");
      return open_template(0, *named);
    }
    std::vector<const ContentTemplate*> fitting;
    Fit best = kMember;
    for (const auto& [number, one] : ReportTemplates::get().all()) {
      if (!one.root) continue;
      const Fit found = fit(root.concept_name, one.rows[one.top.front()].concept_name);
      if (found > best) fitting.clear();
      if (found >= best) fitting.push_back(&one);
      best = std::max(best, found);
    }
    if (fitting.empty())
      return add(0, tags::kConceptNameCodeSequence, 0, VX_UNABLE_TO_CHECK_CONDITION, 2,
                 "the report names no template, and its concept name tells of none that is known");
    std::vector<const Expansion*> choices;
    for (const ContentTemplate* one : fitting)
      choices.push_back(&expander_.below(one->rows[one->top.front()], Expander::no_arguments()));
    open_template(0, *fitting[least_misfits(0, choices)]);
  }

  // Content held against a template that stands for itself.
  void open_template(std::size_t node, const ContentTemplate& of) {
    const TemplateRow& row = of.rows[of.top.front()];
    const Slot slot{&row, &Expander::no_arguments(), -1, 0, 1};
    const ContentMatch found = match_slot(nodes_[node], slot);
    if (found.name != kUnfit && found.type) return accept(node, slot);
    if (nodes_[node].concept_name.retired) return;
    add(node, tags::kConceptNameCodeSequence, 0, VX_NOT_ONE_OF_ENUMERATED_VALUES, 0,
        title_of(of.number) + " is for " + slot_text(slot));
  }

  // ---- Items below one ----

  void check_below(std::size_t parent, const Expansion& rows, int owner) {
    ContentLevel level(nodes_, parent, rows);
    level.assign(
        [&](std::size_t node, const std::vector<std::size_t>& slots) { return choose(node, rows, slots); });
    // Asked once for each row: an answer may cost a look at all items.
    std::vector<bool> demanded(rows.slots.size());
    std::vector<bool> forbidden(rows.slots.size());
    for (std::size_t i = 0; i < rows.slots.size(); ++i) {
      demanded[i] = level.demands(i);
      forbidden[i] = level.forbids(i);
      if (demanded[i]) check_row(parent, rows.slots[i], level, i);
    }
    std::vector<std::size_t> seen(rows.slots.size());
    for (std::size_t i = 0; i < nodes_[parent].count; ++i) {
      const std::size_t node = nodes_[parent].first + i;
      const std::size_t at = level.chosen(i);
      if (at == ContentLevel::kNone) {
        outside(node, rows, owner);
        continue;
      }
      const Slot& slot = rows.slots[at];
      if (++seen[at] == std::size_t{slot.most} + 1)
        add(node, tags::kConceptNameCodeSequence, 0, VX_TOO_MANY_VALUES, 0,
            title_of(slot.row->owner) + " has room for " + slot_text(slot) + " " + times(slot.most) +
                ", not " + times(level.count(at)));
      if (forbidden[at])
        add(node, tags::kConceptNameCodeSequence, 0, VX_VALUE_NOT_ALLOWED, 0,
            title_of(slot.row->owner) + " has no room for " + slot_text(slot) +
                " beside the other items here");
      check_form(node, slot, demanded[at]);
      accept(node, slot);
    }
  }

  void check_row(std::size_t parent, const Slot& slot, const ContentLevel& level, std::size_t at) {
    const std::size_t count = level.count(at);
    if (count >= slot.row->least || level.may_be_untold(at)) return;
    const std::string wanted = title_of(slot.row->owner) + " asks for " + slot_text(slot);
    if (count == 0) return add(parent, tags::kContentSequence, 0, VX_REQUIRED_VALUE_MISSING, 0, wanted);
    add(parent, tags::kContentSequence, 0, VX_TOO_FEW_VALUES, 0,
        wanted + " " + times(slot.row->least) + ", not " + times(count));
  }

  // An item that no row is for.
  void outside(std::size_t node, const Expansion& rows, int owner) {
    const ContentNode& one = nodes_[node];
    if (const ContentTemplate* own = ReportTemplates::get().find(one.template_id);
        own != nullptr && own->top.size() == 1)
      return open_template(node, *own);
    if (!rows.whole || one.concept_name.retired || (one.reference && one.type == 0)) return;
    const bool closed = rows.closed;
    add(node, tags::kConceptNameCodeSequence, 0, closed ? VX_VALUE_NOT_ALLOWED : VX_NON_SERVICE_ATTRIBUTE,
        closed ? 0 : 2,
        title_of(owner) + " has no row for it" + (closed ? ", and no room for other content" : ""));
  }

  // Relationship and type of an item that has the concept name of a row. Of another type it may be content
  // beside the template, unless that asks for the row.
  void check_form(std::size_t node, const Slot& slot, bool demanded) {
    const ContentMatch found = match_slot(nodes_[node], slot);
    if (!found.relationship)
      add(node, tags::kRelationshipType, 1, VX_NOT_ONE_OF_ENUMERATED_VALUES, 0,
          title_of(slot.row->owner) + " has it as " + slot_text(slot));
    if (!found.type)
      add(node, nodes_[node].reference ? tags::kReferencedContentItemIdentifier : tags::kValueType, 1,
          demanded ? VX_NOT_ONE_OF_ENUMERATED_VALUES : VX_NOT_ONE_OF_DEFINED_TERMS, demanded ? 0 : 1,
          title_of(slot.row->owner) + " has it as " + slot_text(slot));
  }

  // What an item of a row holds; what is below it comes later.
  void accept(std::size_t node, const Slot& slot) {
    const ContentNode& one = nodes_[node];
    if (one.reference) return;
    check_choice(node, slot, one.concept_name, slot.row->concept_name, tags::kConceptNameCodeSequence);
    if ((one.type & slot.row->types) == 0) return;
    if (one.type == report_value_type("CODE"))
      check_choice(node, slot, one.value, slot.row->value, tags::kConceptCodeSequence);
    if (one.type == report_value_type("NUM"))
      check_choice(node, slot, one.value, slot.row->value, tags::kMeasurementUnitsCodeSequence);
    const Expansion& below = expander_.below(*slot.row, *slot.arguments);
    if (one.count != 0 || !below.slots.empty()) open_.push_back({node, &below, slot.row->owner});
  }

  void check_choice(std::size_t node, const Slot& slot, const ContentCode& code, const ContentChoice& choice,
                    uint32_t tag) {
    const ContentChoice wanted = resolve(choice, *slot.arguments);
    const bool judged = wanted.kind == ContentChoice::kCode || wanted.kind == ContentChoice::kGroup;
    if (!judged || !code.there || code.retired || fit(code, wanted) >= kMember) return;
    const bool group = wanted.kind == ContentChoice::kGroup;
    const ContentGroup* const known = group ? ReportTemplates::get().group(wanted.number) : nullptr;
    if (group && known == nullptr) return;
    const bool closed = !group || known->closed;
    add(node, tag, 0, closed ? VX_NOT_ONE_OF_ENUMERATED_VALUES : VX_NOT_ONE_OF_DEFINED_TERMS, closed ? 0 : 1,
        title_of(slot.row->owner) + " has " + (group ? "a code of " : "") + std::string(wanted.text) +
            (group && !closed ? ", which may be extended" : ""));
  }

  // ---- Rows that fit the same ----

  std::size_t choose(std::size_t node, const Expansion& rows, const std::vector<std::size_t>& slots) {
    std::vector<const Expansion*> choices;
    for (const std::size_t at : slots) {
      const TemplateRow& row = *rows.slots[at].row;
      if (row.level == 0 && row.owner == nodes_[node].template_id) return at;
      choices.push_back(&expander_.below(row, *rows.slots[at].arguments));
    }
    return slots[least_misfits(node, choices)];
  }

  // The rows with the fewest items that they are not for, and the fewest that they ask for in vain.
  std::size_t least_misfits(std::size_t node, const std::vector<const Expansion*>& choices) const {
    std::size_t best = 0;
    std::size_t fewest = SIZE_MAX;
    for (std::size_t i = 0; i < choices.size() && choices.size() > 1; ++i) {
      const std::size_t count = misfits(node, *choices[i]);
      if (count < fewest) best = i;
      fewest = std::min(fewest, count);
    }
    return best;
  }

  // An item that has no row at all counts twice.
  std::size_t misfits(std::size_t node, const Expansion& rows) const {
    ContentLevel level(nodes_, node, rows);
    level.assign([](std::size_t, const std::vector<std::size_t>& slots) { return slots.front(); });
    std::size_t count = 0;
    for (std::size_t i = 0; i < nodes_[node].count; ++i) {
      const std::size_t at = level.chosen(i);
      count += at == ContentLevel::kNone                                   ? 2U
               : is_misfit(nodes_[nodes_[node].first + i], rows.slots[at]) ? 1U
                                                                           : 0U;
    }
    for (std::size_t i = 0; i < rows.slots.size(); ++i)
      count += level.count(i) == 0 && level.demands(i) ? 1U : 0U;
    return count;
  }
  static bool is_misfit(const ContentNode& node, const Slot& slot) {
    const ContentChoice value = resolve(slot.row->value, *slot.arguments);
    return !match_slot(node, slot).whole() ||
           (value.kind == ContentChoice::kCode && fit(node.value, value) == kUnfit);
  }

  std::vector<ContentNode> nodes_;
  Expander expander_;
  std::vector<Open> open_;
  std::vector<ContentFinding> findings_;
};

}  // namespace

std::vector<ContentFinding> check_report_content(int32_t root) {
  return ContentChecker(root).run();
}

}  // namespace vexal
