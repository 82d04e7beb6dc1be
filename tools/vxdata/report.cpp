// report: what the templates hold, in numbers, and where nothing is known.

#include <array>
#include <iostream>
#include <map>
#include <set>

#include "commands.h"
#include "conditions.h"
#include "tables.h"

namespace vxdata {

namespace {

struct Totals {
  size_t attributes = 0;
  size_t conditional = 0;
  size_t unconditioned = 0;
  size_t allowed = 0;
  size_t with_values = 0;
  int messages = 0;
  int without_data = 0;
  int unknown = 0;
  int items = 0;
  int empty_items = 0;
};

void count(const Body& body, Totals& totals) {
  for (const auto& [tag, attribute] : body) {
    ++totals.attributes;
    if (!attribute.values.empty()) ++totals.with_values;
    if (!is_conditional(attribute.type)) continue;
    ++totals.conditional;
    if (attribute.condition.empty()) ++totals.unconditioned;
    if (attribute.condition == kMayBePresent) ++totals.allowed;
  }
}

void print_unknown(const std::string& name, const Block& block) {
  for (const auto& reason : block.unknown) std::cout << name << ": " << reason << '\n';
}

void count_messages(Tables& tables, Problems& problems, Totals& totals) {
  for (const Service& service : tables.profile.services()) {
    for (const uint16_t command : service.commands) {
      const Block* block = tables.message(service.name, command);
      const std::string name = service.name + " " + std::string(command_name(command));
      if (block != nullptr) print_unknown(name, *block);
      if (block != nullptr && !block->rows.empty()) {
        count(tables.templates.expand(*block, problems), totals);
        ++totals.messages;
      } else if (has_no_contents(command) || (block != nullptr && block->unknown.empty())) {
        ++totals.without_data;
      } else {
        if (block == nullptr) std::cout << name << ": no contents\n";
        ++totals.unknown;
      }
    }
  }
}

void count_items(Tables& tables, Problems& problems, Totals& totals) {
  for (const Item& item : tables.profile.items()) {
    const Block* block = tables.templates.find(item.name);
    if (block != nullptr) print_unknown("item " + item.name, *block);
    if (block == nullptr) std::cout << "item " << item.name << ": no contents\n";
    if (block != nullptr && !block->rows.empty()) {
      count(tables.templates.expand(*block, problems), totals);
      ++totals.items;
    } else if (block != nullptr && block->unknown.empty()) {
      ++totals.empty_items;
    }
  }
}

// --- Conditions of the storage classes ---

constexpr uint16_t kStoreRequest = 0x0001;
constexpr const char* kDirectoryUid = "1.2.840.10008.1.3.10";

// What is known of the condition of a place; kLowered is no conditional type in the standard.
enum Knowledge { kJudged, kReason, kOpen, kLowered, kKnowledgeCount };
constexpr const char* kKnowledgeNames[] = {"judged", "reason", "open", "lowered"};
using Counts = std::array<size_t, kKnowledgeCount>;

void print_counts(const Counts& counts) {
  const size_t all = counts[kJudged] + counts[kReason] + counts[kOpen];
  const auto percent = [&](Knowledge of) {
    return format("%.1f %%",
                  all == 0 ? 0.0 : 100.0 * static_cast<double>(counts[of]) / static_cast<double>(all));
  };
  std::cout << all << " of type 1C or 2C, " << counts[kJudged] << " judged (" << percent(kJudged) << "), "
            << counts[kReason] << " with a reason why not (" << percent(kReason) << "), " << counts[kOpen]
            << " open (" << percent(kOpen) << "); " << counts[kLowered] << " of optional modules\n";
}

class ConditionReport {
 public:
  ConditionReport(Tables& tables, Problems& problems, const std::string& conditions, std::string list)
      : tables_(tables), problems_(problems), list_(std::move(list)) {
    if (!list_.empty() && list_ != "classes" && list_ != "places")
      throw WrongUsage{"--list wants classes or places"};
    if (!conditions.empty()) conditions_ = read_conditions(split(conditions, ','));
  }

  void run() {
    Counts total{};
    for (const Service& service : tables_.profile.services()) {
      const Block* block = tables_.message(service.name, kStoreRequest);
      if (block == nullptr || service.uid == kDirectoryUid) continue;
      Counts counts{};
      std::set<const Block*> seen;
      count(*block, counts, seen);
      if (list_ == "classes") std::cout << service.name << ": ";
      if (list_ == "classes") print_counts(counts);
      for (size_t i = 0; i < counts.size(); ++i) total[i] += counts[i];
    }
    for (const auto& [text, times] : places_) std::cout << times << '\t' << text << '\n';
    std::cout << "storage classes, each item type once a class: ";
    print_counts(total);
  }

 private:
  // The block and all items below it that were not met yet.
  void count(const Block& block, Counts& counts, std::set<const Block*>& seen) {
    if (!seen.insert(&block).second) return;
    for (const auto& [tag, attribute] : tables_.templates.expand(block, problems_)) {
      if (is_conditional(attribute.type)) {
        const Knowledge knowledge = judge(attribute);
        ++counts[knowledge];
        if (list_ == "places" && knowledge != kJudged) note(attribute, knowledge);
      }
      for (const auto& name : attribute.items) {
        if (const Block* item = tables_.templates.find(name)) count(*item, counts, seen);
      }
    }
  }

  Knowledge judge(const Attribute& attribute) const {
    if (attribute.lowered) return kLowered;
    const std::string& condition = attribute.condition;
    if (condition.empty() && !attribute.untold.empty()) return kReason;
    if (is_rule(condition)) return kJudged;
    const auto known = conditions_.find(condition);
    // What asks for nothing but the attribute's own value demands nothing.
    const bool judged = known != conditions_.end() && known->second.judged && !known->second.own;
    return judged ? kJudged : attribute.untold.empty() ? kOpen : kReason;
  }

  void note(const Attribute& attribute, Knowledge knowledge) {
    const Place& place = attribute.place;
    ++places_[format("%s\t%s:%d\t", kKnowledgeNames[knowledge], place.file->c_str(), place.line) +
              tag_text(attribute.tag) + "\t" + attribute.keyword + "\t" +
              (attribute.untold.empty() ? attribute.condition : attribute.untold)];
  }

  Tables& tables_;
  Problems& problems_;
  std::string list_;
  Conditions conditions_;
  std::map<std::string, size_t> places_;
};

}  // namespace

int run_report(int argc, char** argv) {
  const Arguments arguments(argc, argv, {"--services", "--dict", "--conditions", "--list"});
  Problems problems;
  Tables tables(arguments, problems);
  if (problems.errors() != 0) return 1;
  Totals totals;
  count_messages(tables, problems, totals);
  count_items(tables, problems, totals);
  for (const Block& block : tables.templates.blocks()) {
    if (block.kind == BlockKind::kIod) print_unknown(block.title.empty() ? block.name : block.title, block);
  }
  std::cout << tables.dictionary.entries().size() << " dictionary entries\n"
            << totals.messages << " messages with contents, " << totals.without_data
            << " without a data set, " << totals.unknown << " not known\n"
            << totals.items << " of " << tables.profile.items().size() << " items with contents, "
            << totals.empty_items << " by nature without\n"
            << totals.attributes << " places of attributes, " << totals.with_values
            << " with lists of values\n"
            << totals.conditional << " conditional, " << totals.unconditioned
            << " of them without a predicate, " << totals.allowed
            << " may be there whatever the condition is\n";
  ConditionReport(tables, problems, arguments.option("--conditions"), arguments.option("--list")).run();
  return problems.errors() == 0 ? 0 : 1;
}

}  // namespace vxdata
