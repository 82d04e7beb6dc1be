// The offset tables of an encapsulated image, basic and extended (PS3.5 section A.4, PS3.3 section
// C.7.6.3.1.8).
#pragma once

#include <string>

#include "rendering/pixel_image.h"

namespace vexal {

// What is wrong with the table that the image has, empty if nothing is.
std::string table_fault(const PixelImage& image);
// The same as a sentence without a point, `fault` being what table_fault() said.
std::string table_verdict(const PixelImage& image, const std::string& fault);
// Gives the object the table that its fragments tell, of the kind that it has. An error text, empty on
// success.
std::string repair_table(PixelImage& image);

}  // namespace vexal
