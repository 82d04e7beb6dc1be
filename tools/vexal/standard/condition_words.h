// A condition of a rule in words.
#pragma once

#include <string>

namespace vexal {

// "Image Type (0008,0008) is ORIGINAL or MIXED". `condition`: the name of a predicate, or a rule in
// parentheses. Empty for one that says nothing but that null is wrong.
std::string condition_words(const std::string& condition);

}  // namespace vexal
