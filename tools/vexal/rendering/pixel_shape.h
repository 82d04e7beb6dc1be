// How large pixels are, and how long compared with their width.
#pragma once

#include <cstdint>

#include "functional_groups.h"

namespace vexal {

struct PixelShape {
  double across = 1;  // from pixel to pixel in a row
  double down = 1;    // and from row to row
  bool in_mm = false;
};

// Of a frame (from 0) of an image: by its spacing in the patient, at the detector or on paper, else by its
// Pixel Aspect Ratio (PS3.3 sections 10.7 and C.7.6.3.1.7); square where nothing tells.
PixelShape pixel_shape(int32_t id, const FunctionalGroups& groups, uint32_t frame);

// By a pair of values: from row to row, then from column to column. False where there is none.
bool read_shape(int32_t id, uint32_t tag, PixelShape& shape);

}  // namespace vexal
