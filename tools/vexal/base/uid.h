// New UIDs.
#pragma once

#include <string>

namespace vexal {

// Under 2.25, from 128 random bits (PS3.5 section B.2).
std::string new_uid();

}  // namespace vexal
