// What must agree between objects that belong together: patient, study, series, frame of reference, and
// references from one to another. PS3.3 sections A.1.2, C.7.1 to C.7.5, 10.3.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "files/files.h"
#include "vexalkit.h"

namespace vexal {

enum class Entity { kPatient, kStudy, kSeries, kEquipment, kFrame, kGeometry };
inline constexpr std::size_t kEntityCount = 6;

// What another object is said to be.
struct SetReference {
  std::string sop_class, instance;
  std::string study, series;  // "" where the reference names none
  bool operator<(const SetReference& other) const {
    return std::tie(instance, sop_class, study, series) <
           std::tie(other.instance, other.sop_class, other.study, other.series);
  }
};

// The little of an object that is kept.
struct SetObject {
  std::string sop_class, instance, study, series, frame;
  std::string keys[kEntityCount];   // of the entities that it belongs to, "" for none
  std::vector<std::string> values;  // of the attributes that entities have, "" where there is none
  VX_TRANSFER_SYNTAX syntax = 0;
  std::map<SetReference, std::string> references;  // with the path to the first of its like
};
SetObject read_set_object(const DicomFile& file);

struct SetFinding {
  std::size_t file;  // the number of the first file that it is in
  int severity;      // 0 errors, 1 warnings, 2 remarks
  uint32_t tag;
  const char* rule;
  std::string path;   // of the attribute; "" at the top
  std::string value;  // "" where none is to be shown
  std::string reason;
  std::size_t files = 1;  // that it is in
};

// Objects in any order; what is found does not depend on it.
class ObjectSet {
 public:
  void add(std::size_t file, SetObject object);
  // All that is wrong, by file. `paths`: the files by their numbers.
  std::vector<SetFinding> findings(const std::vector<std::string>& paths) const;
  std::size_t count(Entity entity) const { return entities_[static_cast<std::size_t>(entity)].size(); }

 private:
  struct Value {
    std::string text;
    std::size_t first;  // the lowest number of a file
    std::size_t files;
  };
  struct Attribute {
    std::vector<Value> values;  // different ones, ascending
    std::size_t lacking = 0;    // files without one
    std::size_t first_lacking = 0;
  };
  using Attributes = std::vector<Attribute>;  // those of an entity, in the order of the table
  struct Instance {
    std::string sop_class, study, series, frame;
    std::vector<std::pair<std::size_t, VX_TRANSFER_SYNTAX>> files;  // the lowest number first
  };
  struct Use {
    std::size_t file;
    std::string path;
    std::size_t files;
  };

  static void note(Attribute& attribute, std::size_t file, std::string& text);
  void compare(Entity entity, const std::string& key, const Attributes& attributes,
               const std::vector<std::string>& paths, std::vector<SetFinding>& found) const;
  void check_twins(const std::vector<std::string>& paths, std::vector<SetFinding>& found) const;
  void check_reference(const SetReference& reference, const Use& use, const std::vector<std::string>& paths,
                       std::vector<SetFinding>& found) const;
  void check_levels(std::vector<SetFinding>& found) const;

  std::unordered_map<std::string, Attributes> entities_[kEntityCount];
  std::unordered_map<std::string, Instance> instances_;
  std::map<SetReference, Use> references_;
};

}  // namespace vexal
