// The segments of a segmentation (PS3.3 section C.8.20.2): which are asked for, their colours, and what
// stored values say of them.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "layers.h"
#include "rendering/lookup_table.h"
#include "rendering/pixel_image.h"

namespace vexal {

inline constexpr uint32_t kSegmentNumbers = 65536;

struct Segment {
  Colour colour{};
  bool shown = true;
};

class Segments {
 public:
  // An error text, empty on success. Faults and selection outlive it.
  std::string open(const PixelImage& image, Selection& wanted, Faults& faults);
  // Values are the numbers of segments then, else how much of a frame's segment there is.
  bool label_map() const { return label_map_; }
  // From 0 to 255.
  uint8_t share(uint32_t value) const {
    return value >= most_ ? 255 : static_cast<uint8_t>(255 * value / most_ + 0.5);
  }
  // One that is not described is a fault.
  const Segment& at(uint32_t number);
  uint32_t first() const { return segments_.begin()->first; }
  std::size_t count() const { return segments_.size(); }

 private:
  // What a segment without a recommended colour gets.
  Colour own_colour(uint32_t number) const;

  bool label_map_ = false;
  double most_ = 1;                 // the value of a fraction that is all
  std::optional<Palette> palette_;  // of labels
  std::map<uint32_t, Segment> segments_;
  Selection* wanted_ = nullptr;
  Faults* faults_ = nullptr;
};

}  // namespace vexal
