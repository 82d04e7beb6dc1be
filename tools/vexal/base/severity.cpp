#include "severity.h"

namespace vexal {

std::string counted(std::size_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string counted(const std::size_t (&counts)[kLevels], ValidationLevel level) {
  std::string text;
  for (int i = 0; i < level; ++i) {
    if (i != 0) text += ", ";
    text += counted(counts[i], kSingular[i], kPlural[i]);
  }
  return text;
}

}  // namespace vexal
