// A condition of a rule in words.
#pragma once

#include <string>

#include "vexalkit.h"

namespace vexal {

// "Image Type (0008,0008) is ORIGINAL or MIXED". Empty without a condition, and for one that says nothing but
// that null is wrong.
std::string condition_words(const RuleObj& rule);

}  // namespace vexal
