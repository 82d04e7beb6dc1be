// What templates can not say: representations against the dictionary, values against each other, references
// against what is there. PS3.5 sections 6.2, 9.1; PS3.3 sections C.7.6.3, C.11, C.12.1.1.2, C.17; PS3.10 7.1.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "files/files.h"
#include "vexalkit.h"

namespace vexal {

struct CrossFinding {
  ValErrObj what;
  std::string reason;  // in words, with what was expected and what was found
};

// All that is wrong in the object of a file. `query`: its values may be ranges and patterns.
std::vector<CrossFinding> cross_check(const DicomFile& file, bool query);

}  // namespace vexal
