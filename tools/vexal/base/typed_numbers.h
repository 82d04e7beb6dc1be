// Numbers and tags from text into the VRs that hold them in binary: whole, in range, or not at all.
#pragma once

#include <cstdint>
#include <string>

#include "vexalkit.h"

namespace vexal {

// The letters of an attribute's VR in its object: of the three without a code (OV, SV, UV) too, where the
// file or the standard says so. "" if the attribute is not there and no dictionary knows it.
std::string letters_of(int32_t object, uint32_t tag);
// True for SV and UV, whose values lie in an attribute of VX_VR_UN, 8 bytes each in little endian.
bool is_wide_integer(const std::string& letters);

// Sets a value of US, SS, UL, SL, UV, SV or AT, or adds it behind those that are there. False if the VR is
// none of them. VX_VALUE_OUT_OF_RANGE, VX_INVALID_VALUE_FOR_VR: nothing has changed.
bool set_number(int32_t object, uint32_t tag, const std::string& text, bool first, VX_STATUS& status);
// What such a VR takes, for a message: "a whole number from 0 to 65535". "" for other VRs.
std::string range_of(const std::string& letters);

}  // namespace vexal
