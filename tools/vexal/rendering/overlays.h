// Overlay planes (PS3.3 section C.9.2).
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

#include "files/files.h"
#include "image_description.h"

namespace vexal {

inline constexpr uint32_t kFirstOverlay = 0x60000000U;
inline constexpr uint32_t kLastOverlay = 0x601E0000U;
inline constexpr uint32_t kNextOverlay = 0x00020000U;

// One plane over one frame of an image.
class Overlay {
 public:
  // False where the object has no such plane, or none for this frame. `group` is one of the numbers above;
  // without `frame` bytes, a plane in the pixels' own bits is not looked for.
  bool read(int32_t id, uint32_t group, const ImageDescription& image, uint32_t number, const Bytes* frame);

  // Calls visit(column, row) for each pixel of the image that the plane marks.
  template <typename Visit>
  void each(Visit visit) const {
    const int64_t bottom = std::min<int64_t>(top_ + rows_, image_.rows);
    const int64_t right = std::min<int64_t>(left_ + columns_, image_.columns);
    for (int64_t row = std::max<int64_t>(top_, 0); row < bottom; ++row) {
      for (int64_t column = std::max<int64_t>(left_, 0); column < right; ++column) {
        if (marked(static_cast<uint32_t>(column - left_), static_cast<uint32_t>(row - top_), row, column))
          visit(static_cast<uint32_t>(column), static_cast<uint32_t>(row));
      }
    }
  }

 private:
  bool marked(uint32_t x, uint32_t y, int64_t row, int64_t column) const;

  ImageDescription image_;
  uint32_t rows_ = 0;
  uint32_t columns_ = 0;
  int64_t top_ = 0;
  int64_t left_ = 0;
  uint32_t bit_ = 0;
  uint64_t skip_ = 0;  // bits of earlier frames
  std::string plane_;
  const Bytes* frame_ = nullptr;  // that holds the plane in free bits
};

}  // namespace vexal
