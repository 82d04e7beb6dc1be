// Colours of one device as colours of another.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vexal {

// Pixels of red, green and blue, as the ICC profile means them, become those of sRGB. An error text, empty on
// success; the pixels then stay as they are.
std::string to_srgb(const std::string& profile, uint8_t* pixels, std::size_t count);

}  // namespace vexal
