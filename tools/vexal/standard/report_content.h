// The content of a report against the templates and context groups of PS3.16.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vexalkit.h"

namespace vexal {

struct ContentFinding {
  ValErrObj what;
  int severity;        // 0 errors, 1 warnings, 2 remarks
  std::string reason;  // in words, with the place of the content item: "1.2.1: ..."
};

// By the template that the root names, or by its concept name where it names none. Nothing for an object
// without content. The time is that of a walk through the items, times the rows that a template has for one
// place.
std::vector<ContentFinding> check_report_content(int32_t root);

}  // namespace vexal
