// report: what the templates hold, in numbers, and where nothing is known.

#include <iostream>

#include "commands.h"
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

}  // namespace

int run_report(int argc, char** argv) {
  const Arguments arguments(argc, argv, {"--services", "--dict"});
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
  return problems.errors() == 0 ? 0 : 1;
}

}  // namespace vxdata
