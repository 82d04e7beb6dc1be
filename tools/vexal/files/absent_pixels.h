// Transfer syntaxes under which no file holds pixel data.
#pragma once

#include <string>

#include "vexalkit.h"

namespace vexal {

// JPIP: the object has an address in the place of Pixel Data (PS3.5 annex A).
bool is_referenced(VX_TRANSFER_SYNTAX syntax);
// Why the pixels of an object can not be had; empty where its transfer syntax is none of these.
std::string absence_of_pixels(int32_t object, VX_TRANSFER_SYNTAX syntax);
// Why an object can not go from one transfer syntax to the other for these reasons; empty if it can.
std::string fault_of_absence(int32_t object, VX_TRANSFER_SYNTAX from, VX_TRANSFER_SYNTAX to);

}  // namespace vexal
