// Pictures in other sizes, turned and cut.
#pragma once

#include "picture.h"

namespace vexal {

// In another size: enlarged along straight lines from pixel to pixel, made smaller by averaging.
Picture scaled(const Picture& from, uint32_t width, uint32_t height);

// With the pixels square: the side whose pixels lie farther apart grows, by `down` to `across` in their
// spacing. Where that is not known, or beyond reason, nothing happens.
void make_square(Picture& picture, double across, double down);

}  // namespace vexal
