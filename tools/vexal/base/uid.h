// New UIDs, and what they are made from.
#pragma once

#include <cstddef>
#include <string>

namespace vexal {

// From the system; throws where that has none.
std::string random_bytes(std::size_t count);
// 16 letters and digits that nothing else is named with.
std::string random_name();
// Under 2.25, from 128 random bits (PS3.5 section B.2).
std::string new_uid();

}  // namespace vexal
