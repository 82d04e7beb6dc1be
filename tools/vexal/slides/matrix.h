// The total pixel matrix of a slide as a picture, or a region of it: put together band by band, so that no
// more of it is held than a few rows of tiles, on all cores.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "drawing/icc.h"
#include "matrix_layer.h"
#include "rendering/grey.h"
#include "slide.h"

namespace vexal {

// What of the matrix is to be seen.
struct MatrixView {
  uint32_t x = 0;  // of the region, from 0
  uint32_t y = 0;
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t scale = 1;  // so many pixels each way become one, their average
  uint32_t path = 0;   // optical path and focal plane, from 0
  uint32_t plane = 0;
  unsigned threads = 1;
  RenderOptions render;
};

class MatrixPainter {
 public:
  // Sums of that many squared pixels fit 32 bits.
  static constexpr uint32_t kMostScale = 4096;
  // Takes the next rows of the picture. An error text, empty on success.
  using Taker = std::function<std::string(const uint8_t* bytes, uint32_t rows)>;

  // The slide and the layers outlive it.
  MatrixPainter(Slide& slide, const MatrixView& view, MatrixLayers layers = {});
  // Finds out how pixels become colours. An error text, empty on success.
  std::string open();
  uint32_t width() const { return (view_.width + view_.scale - 1) / view_.scale; }
  uint32_t height() const { return (view_.height + view_.scale - 1) / view_.scale; }
  uint32_t samples() const { return samples_; }
  // All rows from the top. An error text of the taker or of a layer, empty on success.
  std::string paint(const Taker& take);
  // Frames that could not be shown: how many, and of the first ones their file and what is wrong. The
  // background stands there.
  std::size_t failed() const { return failed_.size(); }
  const std::vector<std::string>& failures() const { return failures_; }
  // Why colours were taken as they stand; empty if they were not.
  const std::string& profile_fault() const { return profile_fault_; }

 private:
  void choose_sizes();
  std::string compose(Strip& strip);
  std::string draw(const Tile& tile, Strip& strip, Bytes& bytes, Picture& picture);
  std::string shade(PixelImage& image, const Bytes& bytes, Picture& picture);
  void put(const Tile& tile, const Picture& picture, Strip& strip) const;
  void add(const Strip& strip);
  std::string give_averages(uint32_t first, uint32_t end, const Taker& take);
  void fail(const Tile& tile, const std::string& problem);

  Slide& slide_;
  const MatrixView view_;
  MatrixLayers layers_;
  std::vector<Tile> tiles_;  // that the region shows
  bool overlapping_ = false;
  uint32_t samples_ = 3;
  uint32_t band_rows_ = 1;      // of tiles' pixels at a time
  uint32_t strip_columns_ = 1;  // likewise
  bool is_grey_ = false;
  GreyScale grey_;
  ToSrgb transform_;
  std::vector<uint32_t> sums_;  // of pixels, for rows of the picture from first_sum_ on
  uint32_t first_sum_ = 0;
  std::mutex mutex_;
  std::set<std::pair<uint32_t, uint32_t>> failed_;  // parts and frames
  std::vector<std::string> failures_;
  std::string profile_fault_;
};

}  // namespace vexal
