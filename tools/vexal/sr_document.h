// A structured report as a list of nodes, for the forms in which vexal sr shows it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "files.h"

namespace vexal {

struct SrCode {
  std::string value;
  std::string scheme;
  std::string meaning;
  bool empty() const { return value.empty() && meaning.empty(); }
};

// One node with its content; what its type does not have is empty.
struct SrNode {
  int32_t id = 0;
  int depth = 0;
  int32_t type = -1;          // SRH_NODE_TYPE; -1: not known
  int32_t relationship = -1;  // SRH_RELATIONSHIP
  std::size_t parent = 0;     // in the list
  std::string location;
  SrCode concept_name;
  std::string value;  // of the types with one text or number
  SrCode code;        // the value of CODE
  SrCode unit;
  SrCode qualifier;
  std::string graphic;            // graphic type, temporal range or continuity
  std::vector<std::string> data;  // coordinates, times, frames or channels
  std::string sop_class;
  std::string sop_instance;
  std::string frame_of_reference;
  std::string template_id;
  std::string target;  // location of the node that a reference leads to
};

// "TEXT", "TCOORD", ...; "" for a reference and for what is not known.
const char* sr_type_name(int32_t type);
const char* sr_relationship_name(int32_t relationship);
// The value for people: "12 mm", "Liver", "POLYLINE 1,2 3,4".
std::string sr_value_text(const SrNode& node);
std::string sr_text_of(int32_t object, uint32_t tag);

// An open report, in the order of reading: each node before those below it.
class SrDocument {
 public:
  SrDocument() = default;
  ~SrDocument();
  SrDocument(const SrDocument&) = delete;
  SrDocument& operator=(const SrDocument&) = delete;

  // False after a line on standard error.
  bool open(const std::string& path);
  int32_t id() const { return file_.id(); }
  const std::vector<SrNode>& nodes() const { return nodes_; }

 private:
  DicomFile file_;
  bool is_tree_ = false;
  std::vector<SrNode> nodes_;
};

// A report from the JSON that vexal sr show --json writes. The exit code.
int build_report(const std::string& input, const std::string& output);

}  // namespace vexal
