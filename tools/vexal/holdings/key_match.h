// Keys of queries against values, wherever those lie (PS3.4 section C.2.2.2).
#pragma once

#include <string>
#include <vector>

#include "vexalkit.h"

namespace vexal {

// The values between backslashes.
std::vector<std::string> values_of(const std::string& values);

// The values of one attribute against those of one key: list of UIDs, range, wildcards, as the key's VR has
// them; names without regard to case (PS3.4 section C.2.2.2).
bool matches_key(VX_VR vr, const std::string& value, const std::string& key);

}  // namespace vexal
