#include "report_rows.h"

#include <algorithm>

namespace vexal {
namespace {

constexpr int kMostInclusions = 16;  // one in another, in one place

}  // namespace

ContentChoice resolve(const ContentChoice& choice, const Arguments& arguments) {
  if (choice.kind != ContentChoice::kParameter) return choice;
  const auto at = std::find_if(arguments.begin(), arguments.end(),
                               [&](const auto& argument) { return argument.first == choice.text; });
  return at == arguments.end() ? ContentChoice{} : at->second;
}

const Arguments& Expander::no_arguments() {
  static const Arguments none;
  return none;
}

const Expansion& Expander::below(const TemplateRow& row, const Arguments& arguments) {
  return find(*ReportTemplates::get().find(row.owner), row.children, arguments);
}

const Expansion& Expander::top(const ContentTemplate& of) {
  return find(of, of.top, no_arguments());
}

const Expansion& Expander::find(const ContentTemplate& of, const std::vector<uint32_t>& rows,
                                const Arguments& arguments) {
  const auto [at, fresh] = known_.try_emplace({&rows, &arguments});
  if (fresh) {
    at->second.closed = of.closed;
    add(at->second, of, rows, arguments, -1, 0, 0);
  }
  return at->second;
}

void Expander::add(Expansion& into, const ContentTemplate& of, const std::vector<uint32_t>& rows,
                   const Arguments& arguments, int inclusion, uint32_t relationships, int depth) {
  for (const uint32_t index : rows) {
    const TemplateRow& row = of.rows[index];
    const uint32_t own = row.relationships != 0 ? row.relationships : relationships;
    if (row.types == 0) {
      include(into, row, arguments, inclusion, own, depth);
      continue;
    }
    uint32_t most = row.most;
    for (int at = inclusion; at >= 0; at = into.inclusions[static_cast<std::size_t>(at)].above) {
      if (into.inclusions[static_cast<std::size_t>(at)].row->most > 1) most = TemplateRow::kUnbounded;
    }
    into.slots.push_back({&row, &arguments, inclusion, own, most});
  }
}

void Expander::include(Expansion& into, const TemplateRow& row, const Arguments& arguments, int inclusion,
                       uint32_t relationships, int depth) {
  const ContentTemplate* of = ReportTemplates::get().find(row.included);
  if (of == nullptr || depth == kMostInclusions) {
    into.whole = false;
    return;
  }
  Arguments own;
  for (const auto& [name, choice] : row.arguments) own.emplace_back(name, resolve(choice, arguments));
  std::sort(own.begin(), own.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  const auto at = static_cast<int>(into.inclusions.size());
  into.inclusions.push_back({inclusion, &row});
  add(into, *of, of->top, keep(std::move(own)), at, relationships, depth + 1);
}

const Arguments& Expander::keep(Arguments arguments) {
  return *arguments_.insert(std::move(arguments)).first;
}

}  // namespace vexal
