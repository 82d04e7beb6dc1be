// The rows of a template that hold for the items below one item, with the templates that they include.
#pragma once

#include <map>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "report_templates.h"

namespace vexal {

// What the parameters of a template stand for, ascending by name.
using Arguments = std::vector<std::pair<std::string_view, ContentChoice>>;

// A template that is included, in one place.
struct Inclusion {
  int above = -1;  // the inclusion that it stands in
  const TemplateRow* row = nullptr;
};

// A row that items are held against.
struct Slot {
  const TemplateRow* row = nullptr;
  const Arguments* arguments = nullptr;
  int inclusion = -1;
  uint32_t relationships = 0;
  uint32_t most = 0;
};

struct Expansion {
  std::vector<Slot> slots;
  std::vector<Inclusion> inclusions;
  bool whole = true;    // false: a template that is in no table is included
  bool closed = false;  // no other items may be there
};

// What a choice stands for.
ContentChoice resolve(const ContentChoice& choice, const Arguments& arguments);

class Expander {
 public:
  static const Arguments& no_arguments();
  // What holds below an item of a row.
  const Expansion& below(const TemplateRow& row, const Arguments& arguments);
  // What holds for the root of a template.
  const Expansion& top(const ContentTemplate& of);

 private:
  const Expansion& find(const ContentTemplate& of, const std::vector<uint32_t>& rows,
                        const Arguments& arguments);
  void add(Expansion& into, const ContentTemplate& of, const std::vector<uint32_t>& rows,
           const Arguments& arguments, int inclusion, uint32_t relationships, int depth);
  void include(Expansion& into, const TemplateRow& row, const Arguments& arguments, int inclusion,
               uint32_t relationships, int depth);
  const Arguments& keep(Arguments arguments);

  std::set<Arguments> arguments_;  // each once
  std::map<std::pair<const void*, const Arguments*>, Expansion> known_;
};

}  // namespace vexal
