#include "matrix_layer.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <set>

#include "base/object_values.h"
#include "base/parallel.h"
#include "base/session.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/values.h"
#include "rendering/pixel_shape.h"

namespace vexal {
namespace {

constexpr double kHair = 1e-6;  // so that a grid that is off by a rounding error stays where it is

// The plane of a total pixel matrix in the slide's coordinate system (PS3.3 section C.8.12.2.1.1).
std::string read_matrix_plane(const Slide& slide, ImagePlane& plane) {
  const PixelImage& image = slide.part(0);
  const int32_t id = image.file().id();
  const int32_t origin = item_of(id, tags::kTotalPixelMatrixOriginSequence);
  const auto x = real_of(origin, tags::kXOffsetInSlideCoordinateSystem);
  const auto y = real_of(origin, tags::kYOffsetInSlideCoordinateSystem);
  const std::vector<double> n = reals_of(id, tags::kImageOrientationSlide);
  const PixelShape shape = pixel_shape(id, image.groups(), 0);
  if (!x || !y || n.size() != 6 || !shape.in_mm) return "nothing tells where it lies on the slide";
  plane.origin = {*x, *y, 0};
  plane.along_row = {n[0], n[1], n[2]};
  plane.along_column = {n[3], n[4], n[5]};
  plane.normal = cross(plane.along_row, plane.along_column);
  plane.column_spacing = shape.across;
  plane.row_spacing = shape.down;
  constexpr double kSkew = 0.01;
  const bool right = std::abs(dot(plane.along_row, plane.along_row) - 1) < kSkew &&
                     std::abs(dot(plane.along_column, plane.along_column) - 1) < kSkew &&
                     std::abs(dot(plane.along_row, plane.along_column)) < kSkew;
  return right && is_near(plane.origin) ? "" : "its place on the slide is none";
}

// Levels of a pyramid that begin at one place have their corners there, not the middles of their first
// pixels.
void use_corners(ImagePlane& a, ImagePlane& b) {
  const Vector apart = a.origin - b.origin;
  const double least = std::min({a.column_spacing, a.row_spacing, b.column_spacing, b.row_spacing});
  if (std::sqrt(dot(apart, apart)) > least / 100) return;
  for (ImagePlane* plane : {&a, &b}) plane->origin = plane->at(0.5, 0.5);
}

bool refers_to(int32_t object, const std::string& instance) {
  Sources sources(instance);
  for (const int32_t series : sequence_items(object, tags::kReferencedSeriesSequence))
    sources.list(sequence_items(series, tags::kReferencedInstanceSequence));
  sources.list(sequence_items(object, tags::kSourceImageSequence));
  return sources.known();
}

}  // namespace

std::string MatrixLayer::open(const std::string& path, const Slide& ground, LayerChoices& choices,
                              unsigned threads) {
  path_ = path;
  opacity_ = choices.opacity;
  threads_ = threads;
  if (std::string problem = slide_.open({path}); !problem.empty()) return problem;
  PixelImage& image = slide_.part(0);
  if (!image.decoder_fault().empty()) return image.decoder_fault();
  for (const std::string& finding : slide_.findings()) faults_.add(finding);
  if (std::string problem = segments_.open(image, choices.segments, faults_); !problem.empty())
    return problem;
  const MatrixForm& form = slide_.form();
  if (form.planes > 1)
    faults_.add("of its " + std::to_string(form.planes) + " focal planes only the first is shown");
  for (uint32_t channel = 0; channel < form.paths.size(); ++channel) {
    std::set<std::pair<int32_t, int32_t>> places;
    for (const Tile& tile : slide_.tiles(channel, 0))
      overlapping_ = overlapping_ || tile.x % int64_t{form.tile_columns} != 0 ||
                     tile.y % int64_t{form.tile_rows} != 0 || !places.emplace(tile.x, tile.y).second;
  }
  return find_place(ground);
}

// By the places of both on the slide; without them, pixel on pixel if it was made from just this matrix.
std::string MatrixLayer::find_place(const Slide& ground) {
  const int32_t id = slide_.part(0).file().id();
  const int32_t below = ground.part(0).file().id();
  const std::string own = text_of(id, tags::kFrameOfReferenceUID);
  const bool one_slide = !own.empty() && own == text_of(below, tags::kFrameOfReferenceUID);
  const bool same_size =
      slide_.form().columns == ground.form().columns && slide_.form().rows == ground.form().rows;
  ImagePlane here;
  ImagePlane there;
  std::string problem = read_matrix_plane(slide_, here);
  if (problem.empty()) problem = read_matrix_plane(ground, there);
  if (one_slide && problem.empty()) {
    use_corners(here, there);
    from_ground_ = Mapping(there, here);
    to_ground_ = Mapping(here, there);
    return "";
  }
  if (same_size && refers_to(id, text_of(below, tags::kSOPInstanceUID))) return "";
  return one_slide ? problem : "its frame of reference is not that of the slide";
}

MatrixLayer::Span MatrixLayer::span_of(const Tile& tile, const Strip& strip) const {
  const MatrixForm& form = slide_.form();
  Vector low{HUGE_VAL, HUGE_VAL, 0};
  Vector high{-HUGE_VAL, -HUGE_VAL, 0};
  for (const double x : {tile.x - 0.5, tile.x - 0.5 + form.tile_columns}) {
    for (const double y : {tile.y - 0.5, tile.y - 0.5 + form.tile_rows}) {
      const Vector corner = to_ground_.start + to_ground_.per_column * x + to_ground_.per_row * y;
      low = {std::min(low.x, corner.x), std::min(low.y, corner.y), 0};
      high = {std::max(high.x, corner.x), std::max(high.y, corner.y), 0};
    }
  }
  const auto whole = [](double value, int64_t least, int64_t most) {
    return static_cast<int64_t>(std::clamp(value, static_cast<double>(least), static_cast<double>(most)));
  };
  const int64_t right = strip.x + strip.width;
  const int64_t bottom = strip.y + strip.height;
  return {whole(std::floor(low.x), strip.x, right), whole(std::floor(low.y), strip.y, bottom),
          whole(std::ceil(high.x) + 1, strip.x, right), whole(std::ceil(high.y) + 1, strip.y, bottom)};
}

std::vector<const Tile*> MatrixLayer::tiles_in(const Strip& strip, uint32_t channel) const {
  std::vector<const Tile*> tiles;
  for (const Tile& tile : slide_.tiles(channel, 0)) {
    const Span span = span_of(tile, strip);
    if (span.left < span.right && span.top < span.bottom) tiles.push_back(&tile);
  }
  return tiles;
}

// What a frame has of its segment, or of all labels, in the pixels of the strip: the nearest pixel's.
std::string MatrixLayer::cover(const Tile& tile, const Strip& strip) try {
  PixelImage& image = slide_.part(0);
  const ImageDescription& d = image.description();
  const MatrixForm& form = slide_.form();
  const double columns = std::min<double>(d.columns, static_cast<double>(form.columns) - tile.x);
  const double rows = std::min<double>(d.rows, static_cast<double>(form.rows) - tile.y);
  const Span span = span_of(tile, strip);
  Bytes bytes;
  const CurrentFile current(path_);
  if (std::string problem = image.frame(tile.frame, bytes); !problem.empty())
    return "frame " + std::to_string(tile.frame + 1) + ": " + problem;
  const StoredSamples samples(d, bytes.data());
  for (int64_t y = span.top; y < span.bottom; ++y) {
    const Vector start = from_ground_.start + from_ground_.per_row * static_cast<double>(y);
    for (int64_t x = span.left; x < span.right; ++x) {
      const Vector place = start + from_ground_.per_column * static_cast<double>(x);
      const double column = place.x - tile.x + 0.5 + kHair;
      const double row = place.y - tile.y + 0.5 + kHair;
      if (!(column >= 0 && row >= 0 && column < columns && row < rows)) continue;
      const uint32_t value =
          samples.bits(static_cast<std::size_t>(row) * d.columns + static_cast<std::size_t>(column));
      const auto pixel = static_cast<std::size_t>((y - strip.y) * strip.width + x - strip.x);
      if (segments_.label_map()) {
        share_[pixel] = 255;
        label_[pixel] = static_cast<uint16_t>(value);
      } else if (value != 0) {
        share_[pixel] = std::max(share_[pixel], segments_.share(value));
      }
    }
  }
  return "";
} catch (const std::bad_alloc&) {
  return "there is not enough memory";
}

// True if there was something to see.
bool MatrixLayer::blend_rows(uint32_t number, Strip& strip, std::size_t first, std::size_t end) {
  bool drawn = false;
  uint32_t last = kSegmentNumbers;
  Segment look;
  for (std::size_t i = first * strip.width; i < end * strip.width; ++i) {
    if (share_[i] == 0) continue;
    const uint32_t own = segments_.label_map() ? label_[i] : number;
    if (own != last) look = segments_.at(own);
    last = own;
    if (!look.shown) continue;
    drawn = true;
    blend(strip.pixels.data() + 3 * i, look.colour, opacity_ * share_[i] / 255);
  }
  return drawn;
}

void MatrixLayer::blend_in(uint32_t number, Strip& strip) {
  constexpr std::size_t kRows = 16;
  std::atomic<bool> drawn{false};
  struct None {};
  // A label may be one that is not described, and is noted then.
  on_threads<None>(
      segments_.label_map() ? 1 : threads_, (strip.height + kRows - 1) / kRows, [&](None&, std::size_t i) {
        if (blend_rows(number, strip, i * kRows, std::min<std::size_t>((i + 1) * kRows, strip.height)))
          drawn = true;
      });
  drawn_ = drawn_ || drawn;
}

std::string MatrixLayer::draw(Strip& strip) {
  const std::size_t pixels = std::size_t{strip.width} * strip.height;
  const MatrixForm& form = slide_.form();
  for (uint32_t channel = 0; channel < form.paths.size(); ++channel) {
    const uint32_t number =
        segments_.label_map() ? 0
                              : static_cast<uint32_t>(std::strtoul(form.paths[channel].c_str(), nullptr, 10));
    if (!segments_.label_map() && !segments_.at(number).shown) continue;
    const std::vector<const Tile*> tiles = tiles_in(strip, channel);
    if (tiles.empty()) continue;
    share_.assign(pixels, 0);
    if (segments_.label_map()) label_.resize(pixels);
    std::mutex mutex;
    std::string problem;
    struct None {};
    on_threads<None>(overlapping_ ? 1 : threads_, tiles.size(), [&](None&, std::size_t i) {
      const std::string own = cover(*tiles[i], strip);
      if (own.empty()) return;
      const std::lock_guard lock(mutex);
      if (problem.empty()) problem = own;
    });
    if (!problem.empty()) return path_ + ": " + problem;
    blend_in(number, strip);
  }
  return "";
}

int MatrixLayer::judge(int result) const {
  faults_.tell(path_);
  const std::string finding = slide_.part(0).finding();
  if (!finding.empty()) report(path_, finding);
  if (!drawn_) report(path_, "nothing of it lies in what is shown");
  return faults_.any() || !finding.empty() ? std::max(result, static_cast<int>(kFindings)) : result;
}

}  // namespace vexal
