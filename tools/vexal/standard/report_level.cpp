#include "report_level.h"

#include <algorithm>
#include <tuple>

namespace vexal {

Fit fit(const ContentCode& code, const ContentChoice& choice) {
  switch (choice.kind) {
    case ContentChoice::kCode:
      return code.there && code.number == choice.number ? kExact : kUnfit;
    case ContentChoice::kGroup: {
      const ContentGroup* group = ReportTemplates::get().group(choice.number);
      if (!code.there) return kUnfit;
      if (group == nullptr) return kLoose;
      const bool member = std::binary_search(group->codes.begin(), group->codes.end(), code.number);
      return member ? kMember : group->closed && !code.retired ? kUnfit : kLoose;
    }
    case ContentChoice::kNothing:
      return code.there ? kLoose : kMember;
    default:
      return kLoose;
  }
}

ContentMatch match_slot(const ContentNode& node, const Slot& slot) {
  return {fit(node.concept_name, resolve(slot.row->concept_name, *slot.arguments)),
          (slot.row->types & node.type) != 0 || (node.reference && node.type == 0),
          slot.relationships == 0 || (slot.relationships & node.relationship) != 0};
}

void ContentLevel::assign(const Choose& choose) {
  std::vector<std::size_t> best;
  for (std::size_t i = 0; i < parent_.count; ++i) {
    const ContentNode& node = nodes_[parent_.first + i];
    find_candidates(node, best);
    if (best.empty()) continue;
    chosen_[i] = best.size() == 1 ? best.front() : choose(parent_.first + i, best);
    ++count_[chosen_[i]];
    if (match_slot(node, rows_.slots[chosen_[i]]).name >= kMember) named_[chosen_[i]] = true;
  }
}

// A value that there is nothing to say of fits any row.
Fit ContentLevel::value_fit(const ContentNode& node, const Slot& slot) {
  return node.value.there ? fit(node.value, resolve(slot.row->value, *slot.arguments)) : kLoose;
}

// The rows that fit best and have room; without one that fits, those of the same concept name.
void ContentLevel::find_candidates(const ContentNode& node, std::vector<std::size_t>& best) const {
  best.clear();
  auto most = std::make_tuple(0, kUnfit, kUnfit, false);
  for (std::size_t i = 0; i < rows_.slots.size(); ++i) {
    const ContentMatch found = match_slot(node, rows_.slots[i]);
    if (!found.whole() && found.name != kExact) continue;
    const int right = (found.type ? 1 : 0) + (found.relationship ? 1 : 0);
    const auto rank =
        std::make_tuple(right, found.name, value_fit(node, rows_.slots[i]), count_[i] < rows_.slots[i].most);
    if (rank < most || right == 0) continue;
    if (rank > most) best.clear();
    most = rank;
    best.push_back(i);
  }
}

bool ContentLevel::demands(std::size_t slot) const {
  const Slot& asked = rows_.slots[slot];
  for (int at = asked.inclusion; at >= 0; at = inclusion(at).above) {
    const TemplateRow& row = *inclusion(at).row;
    if (row.need == TemplateRow::kMandatory || is_used(at)) continue;
    if (row.need != TemplateRow::kConditional || holds(row.condition, inclusion(at).above) != kTrue)
      return false;
  }
  if (asked.row->need == TemplateRow::kMandatory) return true;
  return asked.row->need == TemplateRow::kConditional &&
         holds(asked.row->condition, asked.inclusion) == kTrue;
}

bool ContentLevel::forbids(std::size_t slot) const {
  const Slot& asked = rows_.slots[slot];
  return asked.row->condition.exclusive && holds(asked.row->condition, asked.inclusion) == kFalse;
}

bool ContentLevel::may_be_untold(std::size_t slot) const {
  for (std::size_t i = 0; i < parent_.count; ++i) {
    const ContentNode& node = nodes_[parent_.first + i];
    if (node.concept_name.retired && chosen_[i] == kNone && match_slot(node, rows_.slots[slot]).type)
      return true;
  }
  return false;
}

bool ContentLevel::is_used(int wanted) const {
  for (std::size_t i = 0; i < rows_.slots.size(); ++i) {
    int at = rows_.slots[i].inclusion;
    while (at > wanted) at = inclusion(at).above;
    if (at == wanted && named_[i]) return true;
  }
  return false;
}

ContentLevel::Truth ContentLevel::holds(const ContentCondition& condition, int inclusion) const {
  const Truth decisive = condition.one_is_enough ? kTrue : kFalse;
  bool untold = condition.terms.empty();
  for (const ContentTerm& term : condition.terms) {
    const Truth truth = holds(term, inclusion);
    if (truth == decisive) return truth;
    if (truth == kUntold) untold = true;
  }
  return untold ? kUntold : condition.one_is_enough ? kFalse : kTrue;
}

ContentLevel::Truth ContentLevel::holds(const ContentTerm& term, int inclusion) const {
  if (term.label == "name") {
    if (parent_.concept_name.retired) return kUntold;
    return term.absent == (fit(parent_.concept_name, term.value) < kMember) ? kTrue : kFalse;
  }
  bool known = false;
  Truth truth = kFalse;
  for (std::size_t i = 0; i < rows_.slots.size(); ++i) {
    if (!is_labelled(i, term.label, inclusion)) continue;
    known = true;
    if (count_[i] == 0 || truth == kTrue) continue;
    truth = term.value.kind == ContentChoice::kAny ? kTrue : has_value(i, term.value);
  }
  if (!known || truth == kUntold) return kUntold;
  return term.absent == (truth == kFalse) ? kTrue : kFalse;
}

// The row itself, or what an inclusion of that label has.
bool ContentLevel::is_labelled(std::size_t slot, std::string_view label, int wanted) const {
  const Slot& one = rows_.slots[slot];
  if (one.inclusion == wanted) return one.row->label == label;
  for (int at = one.inclusion; at > wanted; at = inclusion(at).above) {
    if (inclusion(at).above == wanted) return inclusion(at).row->label == label;
  }
  return false;
}

ContentLevel::Truth ContentLevel::has_value(std::size_t slot, const ContentChoice& wanted) const {
  Truth truth = kFalse;
  for (std::size_t i = 0; i < parent_.count; ++i) {
    if (chosen_[i] != slot) continue;
    const ContentNode& node = nodes_[parent_.first + i];
    if (fit(node.value, wanted) >= kMember) return kTrue;
    if (node.value.retired || node.reference) truth = kUntold;
  }
  return truth;
}

}  // namespace vexal
