// How grave findings are, and how many there are of each kind.
#pragma once

#include <cstddef>
#include <string>

#include "vexalkit.h"

namespace vexal {

inline constexpr int kLevels = 3;
inline constexpr const char* kSingular[] = {"error", "warning", "remark"};
inline constexpr const char* kPlural[] = {"errors", "warnings", "remarks"};

// "1 error", "2 errors".
std::string counted(std::size_t count, const char* one, const char* many);
// "2 errors, 1 warning".
std::string counted(const std::size_t (&counts)[kLevels], ValidationLevel level);

}  // namespace vexal
