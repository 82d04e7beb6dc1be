// Images that a blending presentation state lays over another one (PS3.3 sections A.33.4 and C.11.14).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "drawing/picture.h"
#include "rendering/geometry.h"
#include "rendering/lookup_table.h"
#include "rendering/pixel_image.h"

namespace vexal {

// Shades of 16 bits as colours of a palette, from its first to its last.
std::array<uint8_t, 3> palette_colour(const Palette& palette, double shade);

class Fusion {
 public:
  // By the state, over an image of it, with the other images that are at hand. An error text, empty on
  // success.
  std::string open(int32_t state, const PixelImage& ground, const std::vector<std::string>& others);
  // Whose attributes are those of the image below.
  int32_t underlying() const { return underlying_; }
  // Over the picture of a frame (from 0) in 8 bits, which comes to be in colour; true in `met` if there was
  // something to lay over it. An error text, empty on success.
  std::string draw(uint32_t frame, Picture& picture, bool& met);

 private:
  // A frame above, and from where to where along its normal it is the nearest.
  struct Slab {
    std::size_t image;
    uint32_t frame;
    ImagePlane plane;
    double low;
    double high;
  };
  std::string add(const std::string& path);
  void share_out();
  std::string shades_of(const Slab& slab, Picture& shades);

  int32_t underlying_ = -1;
  int32_t superimposed_ = -1;
  double opacity_ = 1;
  Palette palette_;
  std::unique_ptr<Planes> ground_;
  std::vector<std::unique_ptr<PixelImage>> images_;
  std::vector<Slab> slabs_;
};

}  // namespace vexal
