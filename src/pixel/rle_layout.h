// How a frame lies in the segments of its RLE form.
#pragma once

#include <array>
#include <cstdint>

#include "pixel/image.h"

namespace vx {

inline constexpr uint32_t kRleHeaderBytes = 64;
inline constexpr uint32_t kMaxRleSegments = 15;

// Where the bytes of a segment lie in the frame.
struct RlePlane {
  uint32_t start;
  uint32_t stride;
};
struct RleLayout {
  uint32_t segments;
  uint32_t pixels;
  std::array<RlePlane, kMaxRleSegments> planes;
};

// False if the image needs more segments than the header has offsets, or shares samples between pixels.
bool make_layout(const ImageAttributes& image, RleLayout& layout);

}  // namespace vx
