// What is found wrong in an object, and how it is told.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "base/severity.h"
#include "base/tag_path.h"
#include "rules.h"
#include "standard.h"
#include "vexalkit.h"

namespace vexal {

struct Found {
  ValErrObj what;
  int severity;        // 0 errors, 1 warnings, 2 remarks
  std::string reason;  // of what the program has found beside the library: in words
};

// Where the items of an object are, by their IDs.
class ItemTree {
 public:
  explicit ItemTree(int32_t root) : root_(root) {}
  void set_standard(const Standard& standard) { standard_ = standard; }

  // Null where no rule is known.
  const RuleObj* rule(int32_t object, uint32_t tag);
  // "SequenceOfItems[0].Attribute".
  std::string path(int32_t object, uint32_t tag);
  bool lies_under(int32_t object, uint32_t tag, const std::vector<Place>& places);

 private:
  struct Home {
    int32_t object;
    uint32_t tag;
    std::size_t index;
  };
  static std::string path_step(const Home& home);
  const Home* find(int32_t object);
  void add(int32_t object);

  int32_t root_;
  Standard standard_;
  std::map<int32_t, Home> homes_;
};

// What stays UN in the library, though the standard has a VR for it.
bool is_carried_as_un(const ValErrObj& finding);

// Those of the severities below `level`. Equal findings make one line, that of the first.
void append_text(std::string& out, ItemTree& tree, const std::vector<Found>& found, ValidationLevel level);
// As the members of a list.
void append_json_findings(std::string& out, ItemTree& tree, const std::vector<Found>& found,
                          ValidationLevel level);

}  // namespace vexal
