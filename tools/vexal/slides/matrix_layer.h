// Segmentations over a slide's total pixel matrix.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "pictures/segments.h"
#include "slide.h"

namespace vexal {

// A part of a matrix, all of its pixels.
struct Strip {
  int64_t x, y;
  uint32_t width, height;
  std::vector<uint8_t> pixels;
};

class MatrixLayer {
 public:
  // Over the matrix of a slide. An error text, empty on success. The choices outlive the layer.
  std::string open(const std::string& path, const Slide& ground, LayerChoices& choices, unsigned threads);
  // Over a strip in colour. An error text, empty on success.
  std::string draw(Strip& strip);
  // Tells what of it is not as it should be; what that is worth.
  int judge(int result) const;

 private:
  std::string find_place(const Slide& ground);
  std::vector<const Tile*> tiles_in(const Strip& strip, uint32_t channel) const;
  std::string cover(const Tile& tile, const Strip& strip);
  void blend_in(uint32_t number, Strip& strip);
  bool blend_rows(uint32_t number, Strip& strip, std::size_t first, std::size_t end);
  // The other matrix's pixels that a tile covers, as a box of whole pixels in the strip.
  struct Span {
    int64_t left, top, right, bottom;  // right and bottom are outside
  };
  Span span_of(const Tile& tile, const Strip& strip) const;

  std::string path_;
  Slide slide_;
  Segments segments_;
  Faults faults_;
  double opacity_ = 0.5;
  unsigned threads_ = 1;
  Mapping from_ground_;
  Mapping to_ground_;
  bool overlapping_ = false;
  bool drawn_ = false;
  // Of the strip's pixels: how much of a segment is in them, from 0 to 255, and of which label.
  std::vector<uint8_t> share_;
  std::vector<uint16_t> label_;
};

// All that lie over a matrix, the first lowest.
using MatrixLayers = std::span<const std::unique_ptr<MatrixLayer>>;

}  // namespace vexal
