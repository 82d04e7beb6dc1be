#include "matrix.h"

#include <algorithm>
#include <cstring>
#include <thread>

#include "base/object_values.h"
#include "base/parallel.h"
#include "base/session.h"
#include "base/tags.h"
#include "rendering/colour.h"

namespace vexal {
namespace {

// Pixels in the making; a tile that is larger alone takes what it needs.
constexpr uint64_t kMostBytes = 16 << 20;
// And at the least, so that small tiles are not looked through too often.
constexpr uint64_t kLeastBytes = 1 << 20;
// A matrix of more pixels is shown where its tiles are this part of it at the least.
constexpr uint64_t kManyPixels = uint64_t{1} << 32;
constexpr uint64_t kLeastFilled = 64;
constexpr uint32_t kMostColumns = 1 << 22;  // of the picture, a row of which is held as a whole
constexpr std::size_t kMostFailures = 20;

}  // namespace

MatrixPainter::MatrixPainter(Slide& slide, const MatrixView& view, MatrixLayers layers)
    : slide_(slide), view_(view), layers_(layers) {
  const MatrixForm& form = slide.form();
  std::vector<std::pair<int32_t, int32_t>> places;
  for (const Tile& tile : slide.tiles(view.path, view.plane)) {
    if (tile.x >= int64_t{view.x} + view.width || tile.x + int64_t{form.tile_columns} <= int64_t{view.x})
      continue;
    if (tile.y >= int64_t{view.y} + view.height || tile.y + int64_t{form.tile_rows} <= int64_t{view.y})
      continue;
    overlapping_ =
        overlapping_ || tile.x % int64_t{form.tile_columns} != 0 || tile.y % int64_t{form.tile_rows} != 0;
    if (!form.full) places.emplace_back(tile.x, tile.y);
    tiles_.push_back(tile);
  }
  std::sort(places.begin(), places.end());
  overlapping_ = overlapping_ || std::adjacent_find(places.begin(), places.end()) != places.end();
}

std::string MatrixPainter::open() {
  const MatrixForm& form = slide_.form();
  const uint64_t pixels = uint64_t{view_.width} * view_.height;
  if (pixels > kManyPixels &&
      pixels / kLeastFilled > uint64_t{form.tile_columns} * form.tile_rows * tiles_.size())
    return "its matrix of " + std::to_string(form.columns) + " x " + std::to_string(form.rows) +
           " pixels is nearly empty: give a --region";
  if (width() > kMostColumns)
    return "a picture of " + std::to_string(width()) + " columns is too wide: give a --region or a --scale";
  PixelImage& image = slide_.part(0);
  const ImageDescription& d = image.description();
  if (d.samples == 1 && d.photometric.starts_with("MONOCHROME")) {
    GreySources sources = image.sources(0);
    sources.by_range = false;  // one for all tiles
    is_grey_ = true;
    samples_ = layers_.empty() ? 1 : 3;
    if (std::string problem = grey_.read(d, sources, view_.render); !problem.empty()) return problem;
  } else if (view_.render.icc) {
    const std::string profile = bytes_of(profile_holder(image.file().id(), view_.path), tags::kICCProfile);
    if (!profile.empty()) profile_fault_ = transform_.open(profile);
  }
  for (uint32_t i = 0; i < slide_.parts(); ++i) {
    const PixelImage& part = slide_.part(i);
    if (!part.decoder_fault().empty()) return part.file().path() + ": " + part.decoder_fault();
  }
  choose_sizes();
  return "";
}

// As many whole tiles at once as keep all threads busy, where there is room for them.
void MatrixPainter::choose_sizes() {
  const MatrixForm& form = slide_.form();
  const uint64_t tile_bytes = uint64_t{form.tile_columns} * form.tile_rows * samples_;
  const uint64_t most = std::max(kMostBytes, 4 * tile_bytes);
  const uint64_t wanted = std::clamp(uint64_t{8} * view_.threads * tile_bytes, kLeastBytes, most);
  strip_columns_ = view_.width;
  if (view_.scale > 1) {  // a picture's row need not be whole then
    const uint64_t tiles = std::max<uint64_t>(most / tile_bytes, 1);
    strip_columns_ = static_cast<uint32_t>(std::min<uint64_t>(view_.width, tiles * form.tile_columns));
  }
  const uint64_t row_bytes = uint64_t{strip_columns_} * samples_;
  const uint64_t tile_rows = std::max<uint64_t>(wanted / (row_bytes * form.tile_rows), 1);
  uint64_t rows = tile_rows * form.tile_rows;
  if (rows * row_bytes > most) rows = std::max<uint64_t>(most / row_bytes, 1);
  band_rows_ = static_cast<uint32_t>(std::min<uint64_t>(rows, view_.height));
}

std::string MatrixPainter::paint(const Taker& take) {
  const MatrixForm& form = slide_.form();
  const int64_t bottom = int64_t{view_.y} + view_.height;
  const int64_t right = int64_t{view_.x} + view_.width;
  for (int64_t y = view_.y; y < bottom;) {
    // Bands and strips end where tiles do, if they reach so far.
    const auto cut = [](int64_t from, int64_t size, int64_t tile, int64_t end) {
      const int64_t aligned = (from + size) / tile * tile;
      return std::min(aligned > from ? aligned : from + size, end);
    };
    const int64_t y_end = cut(y, band_rows_, form.tile_rows, bottom);
    for (int64_t x = view_.x; x < right;) {
      const int64_t x_end = view_.scale == 1 ? right : cut(x, strip_columns_, form.tile_columns, right);
      Strip strip{x, y, static_cast<uint32_t>(x_end - x), static_cast<uint32_t>(y_end - y), {}};
      if (std::string problem = compose(strip); !problem.empty()) return problem;
      if (view_.scale == 1) {
        if (std::string problem = take(strip.pixels.data(), strip.height); !problem.empty()) return problem;
      } else {
        add(strip);
      }
      x = x_end;
    }
    if (view_.scale != 1) {
      const auto done = static_cast<uint32_t>((y_end - view_.y) / view_.scale);
      if (std::string problem = give_averages(first_sum_, y_end == bottom ? height() : done, take);
          !problem.empty())
        return problem;
    }
    y = y_end;
  }
  return "";
}

std::string MatrixPainter::compose(Strip& strip) {
  const MatrixForm& form = slide_.form();
  const std::array<uint8_t, 3> background = slide_.background();
  strip.pixels.resize(std::size_t{strip.width} * strip.height * samples_, background[0]);
  if (background[1] != background[0] || background[2] != background[0]) {
    for (std::size_t i = 0; samples_ == 3 && i < strip.pixels.size(); ++i)
      strip.pixels[i] = background[i % 3];
  }
  std::vector<const Tile*> tiles;
  for (const Tile& tile : tiles_) {
    if (tile.x < strip.x + strip.width && tile.x + int64_t{form.tile_columns} > strip.x &&
        tile.y < strip.y + strip.height && tile.y + int64_t{form.tile_rows} > strip.y)
      tiles.push_back(&tile);
  }
  struct Room {
    Bytes bytes;
    Picture picture;
  };
  // Of frames that cover each other the last one is seen.
  on_threads<Room>(overlapping_ ? 1 : view_.threads, tiles.size(), [&](Room& room, std::size_t i) {
    const CurrentFile current(slide_.part(tiles[i]->part).file().path());
    const std::string problem = draw(*tiles[i], strip, room.bytes, room.picture);
    if (!problem.empty()) fail(*tiles[i], problem);
  });
  for (const auto& layer : layers_) {
    if (std::string problem = layer->draw(strip); !problem.empty()) return problem;
  }
  return "";
}

std::string MatrixPainter::draw(const Tile& tile, Strip& strip, Bytes& bytes, Picture& picture) try {
  PixelImage& image = slide_.part(tile.part);
  if (std::string problem = image.frame(tile.frame, bytes); !problem.empty()) return problem;
  picture.width = image.description().columns;
  picture.height = image.description().rows;
  if (std::string problem = shade(image, bytes, picture); !problem.empty()) return problem;
  put(tile, picture, strip);
  return "";
} catch (const std::bad_alloc&) {
  return "there is not enough memory";
}

std::string MatrixPainter::shade(PixelImage& image, const Bytes& bytes, Picture& picture) {
  const ImageDescription& d = image.description();
  if (is_grey_) {
    grey_.apply(bytes, picture);
    if (samples_ == 3) to_colour(picture);
    return "";
  }
  if (d.samples == 1) {  // a palette is read from the object
    const std::lock_guard lock(mutex_);
    if (std::string problem = show_palette(image.file().id(), d, bytes, picture); !problem.empty())
      return problem;
  } else if (std::string problem = show_colour(d, image.is_planar(), bytes, picture); !problem.empty()) {
    return problem;
  }
  transform_.apply(picture.bytes.data(), picture.bytes.size() / 3);
  if (view_.render.invert) {
    for (uint8_t& byte : picture.bytes) byte = static_cast<uint8_t>(255 - byte);
  }
  return "";
}

// What the strip shows of it; beyond the edge of the matrix a tile holds nothing.
void MatrixPainter::put(const Tile& tile, const Picture& picture, Strip& strip) const {
  const int64_t left = std::max<int64_t>(tile.x, strip.x);
  const int64_t right = std::min(tile.x + int64_t{picture.width}, strip.x + strip.width);
  const int64_t top = std::max<int64_t>(tile.y, strip.y);
  const int64_t bottom = std::min(tile.y + int64_t{picture.height}, strip.y + strip.height);
  if (left >= right) return;
  for (int64_t y = top; y < bottom; ++y) {
    const auto from = static_cast<std::size_t>((y - tile.y) * picture.width + left - tile.x);
    const auto to = static_cast<std::size_t>((y - strip.y) * strip.width + left - strip.x);
    std::memcpy(strip.pixels.data() + to * samples_, picture.bytes.data() + from * samples_,
                static_cast<std::size_t>(right - left) * samples_);
  }
}

// To the sums of the picture's pixels.
void MatrixPainter::add(const Strip& strip) {
  const auto top = static_cast<uint32_t>(strip.y - view_.y);
  const auto left = static_cast<uint32_t>(strip.x - view_.x);
  const uint32_t first = top / view_.scale;
  const uint32_t end = (top + strip.height - 1) / view_.scale + 1;
  const std::size_t row_sums = std::size_t{width()} * samples_;
  sums_.resize(std::max(sums_.size(), row_sums * (end - first_sum_)));
  struct None {};
  on_threads<None>(view_.threads, end - first, [&](None&, std::size_t i) {
    const uint32_t row = first + static_cast<uint32_t>(i);
    uint32_t* sums = sums_.data() + row_sums * (row - first_sum_);
    const uint32_t y_end = std::min((row + 1) * view_.scale, top + strip.height);
    for (uint32_t y = std::max(row * view_.scale, top); y < y_end; ++y) {
      const uint8_t* from = strip.pixels.data() + std::size_t{y - top} * strip.width * samples_;
      uint32_t in_pixel = left % view_.scale;
      uint32_t* to = sums + std::size_t{left / view_.scale} * samples_;
      for (uint32_t x = 0; x < strip.width; ++x, from += samples_) {
        for (uint32_t c = 0; c < samples_; ++c) to[c] += from[c];
        if (++in_pixel == view_.scale) {
          in_pixel = 0;
          to += samples_;
        }
      }
    }
  });
}

// Rows of the picture whose sums are complete.
std::string MatrixPainter::give_averages(uint32_t first, uint32_t end, const Taker& take) {
  if (first >= end) return "";
  const std::size_t row_sums = std::size_t{width()} * samples_;
  std::vector<uint8_t> rows(row_sums * (end - first));
  for (uint32_t row = first; row < end; ++row) {
    const uint64_t high = std::min(view_.scale, view_.height - row * view_.scale);
    for (uint32_t x = 0; x < width(); ++x) {
      const uint64_t count = high * std::min(view_.scale, view_.width - x * view_.scale);
      const std::size_t at = row_sums * (row - first) + std::size_t{x} * samples_;
      for (uint32_t c = 0; c < samples_; ++c)
        rows[at + c] = static_cast<uint8_t>((sums_[at + c] + count / 2) / count);
    }
  }
  sums_.erase(sums_.begin(), sums_.begin() + static_cast<std::ptrdiff_t>(rows.size()));
  first_sum_ = end;
  return take(rows.data(), end - first);
}

void MatrixPainter::fail(const Tile& tile, const std::string& problem) {
  const std::lock_guard lock(mutex_);
  if (!failed_.emplace(tile.part, tile.frame).second || failures_.size() == kMostFailures) return;
  failures_.push_back(slide_.part(tile.part).file().path() + ": frame " + std::to_string(tile.frame + 1) +
                      ": " + problem);
}

}  // namespace vexal
