// Nodes of a report from JSON.
#pragma once

#include <jansson.h>

#include <cstdint>
#include <string>
#include <vector>

namespace vexal {

// Fills the item or message of a node with what its object has, apart from the nodes below it and, of a
// reference, where it leads. The object keeps the form that sr_check_node asks for. What is wrong, empty if
// nothing is.
std::string sr_fill_node(int32_t id, const json_t* node);
// That the members which "more" repeats say the same; the node is part of a tree.
std::string sr_check_repeated(int32_t id, const json_t* node);

// An object that a node refers to, and where it belongs.
struct SrReferred {
  std::string location;
  std::string sop_class;
  std::string instance;
  std::string study;
  std::string series;
};
// Study by study into (0040,A375), which may be there. What is not told of a referred object that no evidence
// has, empty if all is, or nothing is asked for.
std::string sr_add_evidence(int32_t root, const std::vector<SrReferred>& objects, bool ask);

}  // namespace vexal
