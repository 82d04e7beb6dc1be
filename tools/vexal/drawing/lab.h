// Colours by lightness and two differences, as the standard recommends them.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace vexal {

// A value of PCS-CIELab, three numbers scaled to 16 bits (PS3.3 section C.10.7.1.1), whose white is D50, in
// sRGB.
std::array<uint8_t, 3> from_lab(const std::vector<double>& scaled);

}  // namespace vexal
