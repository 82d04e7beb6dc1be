#include "overlays.h"

#include <algorithm>

#include "base/attributes.h"
#include "base/object_values.h"

namespace vexal {

bool Overlay::read(int32_t id, uint32_t group, const ImageDescription& image, uint32_t number,
                   const Bytes* frame) {
  image_ = image;
  rows_ = number_of(id, group | 0x0010);
  columns_ = number_of(id, group | 0x0011);
  if (rows_ == 0 || columns_ == 0 || rows_ > 65535 || columns_ > 65535) return false;
  const std::vector<int32_t> origin = integers_of(id, group | 0x0050);
  top_ = origin.empty() ? 0 : int64_t{origin[0]} - 1;
  left_ = origin.size() < 2 ? 0 : int64_t{origin[1]} - 1;
  const uint32_t frames = number_of(id, group | 0x0015, 1);
  const uint32_t first = std::max(number_of(id, group | 0x0051, 1), 1U) - 1;
  const bool planes = has_attribute(id, group | 0x0015) && frames != 0;
  if (planes && (number < first || number - first >= frames)) return false;
  skip_ = planes ? uint64_t{number - first} * rows_ * columns_ : 0;
  plane_ = bytes_of(id, group | 0x3000);
  frame_ = nullptr;
  if (!plane_.empty()) return true;
  bit_ = number_of(id, group | 0x0102);
  frame_ = frame;
  return frame != nullptr && !image.real && image.allocated >= 8 && bit_ < image.allocated &&
         image.samples == 1 && number_of(id, group | 0x0100) == image.allocated;
}

bool Overlay::marked(uint32_t x, uint32_t y, int64_t row, int64_t column) const {
  if (frame_ != nullptr) {
    const auto pixel = static_cast<std::size_t>(row) * image_.columns + static_cast<std::size_t>(column);
    const std::size_t at = pixel * (image_.allocated / 8) + bit_ / 8;
    return ((static_cast<uint8_t>(frame_->data()[at]) >> (bit_ % 8)) & 1U) != 0;
  }
  const uint64_t at = skip_ + uint64_t{y} * columns_ + x;
  return at / 8 < plane_.size() && ((static_cast<uint8_t>(plane_[at / 8]) >> (at % 8)) & 1U) != 0;
}

}  // namespace vexal
