// The content items of a report, in one list.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vexal {

// A code as the tables of templates number it.
struct ContentCode {
  int number = -1;       // -1: in no table
  bool there = false;    // a code was given
  bool retired = false;  // in no table, and perhaps one that has another code there
};

struct ContentNode {
  int32_t id = 0;
  std::size_t parent = 0;
  std::size_t first = 0;  // of its children, which stand side by side
  std::size_t count = 0;
  uint32_t relationship = 0;  // a bit, 0: not known
  uint32_t type = 0;          // a bit, 0: not known; of a reference, the target's
  bool reference = false;
  int template_id = 0;  // 0: names none of PS3.16
  ContentCode concept_name;
  ContentCode value;  // of CODE, and the unit of NUM
};

// Breadth first, the root in front.
std::vector<ContentNode> read_report(int32_t root);
// "1.2.1".
std::string content_place(const std::vector<ContentNode>& nodes, std::size_t node);
// "Finding Site (363698007, SCT)", as the item has it; "" if it has none.
std::string content_code_text(int32_t item, uint32_t sequence);

}  // namespace vexal
