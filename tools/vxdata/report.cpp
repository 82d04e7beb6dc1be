// report: what the templates hold, in numbers, and where nothing is known.

#include <iostream>

#include "commands.h"
#include "tables.h"

namespace vxdata {

int run_report(int argc, char** argv) {
  const Arguments arguments(argc, argv, {"--services", "--dict"});
  Problems problems;
  Tables tables(arguments, problems);
  if (problems.errors() != 0) return 1;
  size_t attributes = 0;
  size_t conditional = 0;
  size_t unconditioned = 0;
  size_t with_values = 0;
  const auto count = [&](const Body& body) {
    for (const auto& [tag, attribute] : body) {
      ++attributes;
      if (!attribute.values.empty()) ++with_values;
      if (!is_conditional(attribute.type)) continue;
      ++conditional;
      if (attribute.condition.empty()) ++unconditioned;
    }
  };
  int messages = 0;
  int bare = 0;
  for (const Service& service : tables.profile.services()) {
    std::string missing;
    for (const uint16_t command : service.commands) {
      const Block* block = tables.message(service.name, command);
      if (block != nullptr) {
        count(tables.templates.expand(*block, problems));
        ++messages;
      } else if (!has_no_contents(command)) {
        missing.append(" ").append(command_name(command));
        ++bare;
      }
    }
    if (!missing.empty()) std::cout << service.name << " without contents:" << missing << '\n';
  }
  int items = 0;
  for (const Item& item : tables.profile.items()) {
    const Block* block = tables.templates.find(item.name);
    if (block == nullptr) {
      std::cout << "item without contents: " << item.name << '\n';
    } else {
      count(tables.templates.expand(*block, problems));
      ++items;
    }
  }
  std::cout << tables.dictionary.entries().size() << " dictionary entries\n"
            << messages << " messages with contents, " << bare << " without\n"
            << items << " of " << tables.profile.items().size() << " items with contents\n"
            << attributes << " places of attributes, " << with_values << " with lists of values\n"
            << conditional << " conditional, " << unconditioned << " of them without a predicate\n";
  return problems.errors() == 0 ? 0 : 1;
}

}  // namespace vxdata
