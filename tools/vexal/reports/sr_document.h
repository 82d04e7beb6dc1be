// A structured report as a list of nodes, for the forms in which vexal sr shows it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "files/files.h"

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
  std::size_t place = 0;      // in the order of reading
  std::size_t parent = 0;     // the parent's place
  std::string location;
  std::string other_type;  // the value type that is not known
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
  std::string target;        // location of the node that a reference leads to
  int32_t target_type = -1;  // its type
};

// "TEXT", "TCOORD", ...; "" for a reference and for what is not known.
const char* sr_type_name(int32_t type);
const char* sr_relationship_name(int32_t relationship);
int32_t sr_relationship(std::string_view name);  // -1: none
// The number of what a node of the type has in `graphic`, -1 if there is none.
int32_t sr_term(int32_t type, std::string_view graphic);
// The value for people: "12 mm", "Liver", "POLYLINE 1,2 3,4".
std::string sr_value_text(const SrNode& node);
// All values, parted by backslashes.
std::string sr_texts_of(int32_t object, uint32_t tag);
// Where the one text of a type stands, 0 if it has none; where the times of a TCOORD do.
uint32_t sr_text_tag(int32_t type);
uint32_t sr_times_tag(int32_t type);
// The content of an item of a tree, or of its root.
SrNode sr_read_node(int32_t id);

// An open report, its text in UTF-8.
class SrDocument {
 public:
  SrDocument() = default;
  ~SrDocument();
  SrDocument(const SrDocument&) = delete;
  SrDocument& operator=(const SrDocument&) = delete;

  // False after a line on standard error.
  bool open(const std::string& path);
  int32_t id() const { return file_.id(); }
  const std::string& path() const { return file_.path(); }
  // Text that is none in its character set, reported: found when the report was opened, or on a walk.
  bool has_lost_text() const { return lost_text_; }
  // (0008,0005) as it is in the file, its values parted by backslashes.
  const std::string& charset() const { return charset_; }
  // Called for each node in the order of reading, each before those below it. The path leads from the root to
  // the node, its last.
  void walk(const std::function<void(const std::vector<SrNode>& path)>& visit) const;
  std::vector<SrNode> nodes() const;  // all of them at once, in the order of reading

 private:
  DicomFile file_;
  bool is_tree_ = false;
  void judge_text(const SrNode& node) const;
  mutable bool lost_text_ = false;
  std::string charset_;
};

// What a node holds as the members of a JSON object, apart from where it stands and what is not told by
// members.
std::string sr_members(const SrNode& node);
// The report as JSON, which build_report reads. False after lines on standard error: JSON can not tell all of
// it.
bool show_json(const SrDocument& document);

// A report from the JSON that vexal sr show --json writes. The exit code.
int build_report(const std::string& input, const std::string& output);

}  // namespace vexal
