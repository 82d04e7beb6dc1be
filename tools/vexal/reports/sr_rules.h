// What the standard asks of the content of structured reports (PS3.3 sections A.35, C.17.3.2 and C.18).
#pragma once

#include <string>
#include <vector>

#include "sr_document.h"

namespace vexal {

struct SrClass;

class SrRules {
 public:
  explicit SrRules(const std::string& sop_class);
  // Of the last node of a path that leads there from the root.
  std::vector<std::string> faults_of(const std::vector<SrNode>& path) const;
  // False: its relationships are in no table.
  bool knows_class() const { return class_ != nullptr; }

 private:
  const SrClass* class_;
};

}  // namespace vexal
