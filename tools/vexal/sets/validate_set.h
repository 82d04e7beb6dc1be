// vexal validate --set: files as one set, whose objects are compared with each other.
#pragma once

#include <string>
#include <vector>

#include "base/session.h"
#include "vexalkit.h"

namespace vexal {

// The exit code; findings go to standard output, what can not be read to standard error.
int validate_set(const std::vector<std::string>& files, ValidationLevel level, bool json, unsigned threads);

}  // namespace vexal
