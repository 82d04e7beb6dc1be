// What a derived image says of its origin.
#pragma once

#include <cstdint>

namespace vexal {

// Adds to a lossy copy what it was made from, and how (PS3.3 section C.7.6.1.1.3; context groups 7202 and
// 7203). The object still has the SOP Instance UID of its source. False if the library refuses.
bool add_derivation(int32_t object, bool from_compressed);

}  // namespace vexal
