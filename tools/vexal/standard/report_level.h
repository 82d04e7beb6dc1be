// The items below one item of a report, held against the rows that are for them.
#pragma once

#include <functional>
#include <string_view>
#include <vector>

#include "report_rows.h"
#include "report_tree.h"

namespace vexal {

// How well a code fits a choice.
enum Fit { kUnfit, kLoose, kMember, kExact };
Fit fit(const ContentCode& code, const ContentChoice& choice);

struct ContentMatch {
  Fit name = kUnfit;
  bool type = false;
  bool relationship = false;
  bool whole() const { return name != kUnfit && type && relationship; }
};
ContentMatch match_slot(const ContentNode& node, const Slot& slot);

class ContentLevel {
 public:
  static constexpr std::size_t kNone = SIZE_MAX;
  // Decides between rows that fit an item the same.
  using Choose = std::function<std::size_t(std::size_t node, const std::vector<std::size_t>& slots)>;

  ContentLevel(const std::vector<ContentNode>& nodes, std::size_t parent, const Expansion& rows)
      : nodes_(nodes),
        parent_(nodes[parent]),
        rows_(rows),
        chosen_(parent_.count, kNone),
        count_(rows.slots.size()),
        named_(rows.slots.size()) {}

  void assign(const Choose& choose);
  // The row that a child stands for.
  std::size_t chosen(std::size_t child) const { return chosen_[child]; }
  std::size_t count(std::size_t slot) const { return count_[slot]; }

  // Whether the standard demands the row here, or has no room for it, as far as can be told.
  bool demands(std::size_t slot) const;
  bool forbids(std::size_t slot) const;
  // A code of old may stand for the row.
  bool may_be_untold(std::size_t slot) const;

 private:
  enum Truth { kFalse, kTrue, kUntold };
  static Fit value_fit(const ContentNode& node, const Slot& slot);
  void find_candidates(const ContentNode& node, std::vector<std::size_t>& best) const;
  const Inclusion& inclusion(int at) const { return rows_.inclusions[static_cast<std::size_t>(at)]; }
  bool is_used(int inclusion) const;
  Truth holds(const ContentCondition& condition, int inclusion) const;
  Truth holds(const ContentTerm& term, int inclusion) const;
  bool is_labelled(std::size_t slot, std::string_view label, int inclusion) const;
  Truth has_value(std::size_t slot, const ContentChoice& wanted) const;

  const std::vector<ContentNode>& nodes_;
  const ContentNode& parent_;
  const Expansion& rows_;
  std::vector<std::size_t> chosen_;
  std::vector<std::size_t> count_;
  std::vector<bool> named_;  // an item stands for it by its concept name
};

}  // namespace vexal
