#include "fusion.h"

#include <algorithm>
#include <cmath>

#include "base/attributes.h"
#include "base/object_values.h"
#include "base/session.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/values.h"
#include "layers.h"
#include "rendering/colour.h"
#include "rendering/state_items.h"

namespace vexal {
namespace {

// Between the four pixels around a place; beyond the middles of the outermost there is nothing to mix.
double between(const Picture& shades, const Vector& place) {
  const auto* values = reinterpret_cast<const uint16_t*>(shades.bytes.data());
  const double x = std::clamp(place.x, 0.0, shades.width - 1.0);
  const double y = std::clamp(place.y, 0.0, shades.height - 1.0);
  const auto column = static_cast<std::size_t>(x);
  const auto row = static_cast<std::size_t>(y);
  const std::size_t right = column + 1 < shades.width ? 1 : 0;
  const std::size_t below = row + 1 < shades.height ? shades.width : 0;
  const uint16_t* from = values + row * shades.width + column;
  const double across = x - static_cast<double>(column);
  const double upper = from[0] + (from[right] - from[0]) * across;
  const double lower = from[below] + (from[below + right] - from[below]) * across;
  return upper + (lower - upper) * (y - static_cast<double>(row));
}

bool parallel(const ImagePlane& a, const ImagePlane& b) {
  return dot(a.normal, b.normal) > 0.9999;
}

}  // namespace

std::array<uint8_t, 3> palette_colour(const Palette& palette, double shade) {
  std::array<uint8_t, 3> colour;
  for (std::size_t c = 0; c < 3; ++c) {
    const LookupTable& table = palette.colours[c];
    const double step = static_cast<double>(table.entries.size() - 1) / UINT16_MAX;
    colour[c] = table.byte(table.first + std::lround(shade * step));
  }
  return colour;
}

std::string Fusion::open(int32_t state, const PixelImage& ground, const std::vector<std::string>& others) {
  for (const int32_t item : sequence_items(state, tags::kBlendingSequence)) {
    const std::string position = text_of(item, tags::kBlendingPosition);
    if (position == "UNDERLYING") underlying_ = item;
    if (position == "SUPERIMPOSED") superimposed_ = item;
  }
  if (underlying_ < 0 || superimposed_ < 0) return "it does not tell what lies over what";
  opacity_ = real_of(state, tags::kRelativeOpacity).value_or(-1);
  if (!(opacity_ >= 0 && opacity_ <= 1)) return "its Relative Opacity is none from 0 to 1";
  if (!palette_.read(state, false)) return "its palette is missing or broken";
  bool named = false;
  const std::string instance = text_of(ground.file().id(), tags::kSOPInstanceUID);
  frames_named(superimposed_, instance, 1, named);
  if (named) return "it lays the image over others: name one of these, and the image with --with";
  if (others.empty()) return "it lays other images over this one: name them with --with";
  ground_ = std::make_unique<Planes>(ground.file().id(), ground.description().frames);
  for (const std::string& path : others) {
    const CurrentFile current(path);
    if (std::string problem = add(path); !problem.empty()) return path + ": " + problem;
  }
  share_out();
  return "";
}

std::string Fusion::add(const std::string& path) {
  auto image = std::make_unique<PixelImage>();
  if (std::string problem = image->open(path); !problem.empty()) return problem;
  const ImageDescription& d = image->description();
  const int32_t id = image->file().id();
  if (d.samples != 1 || !d.photometric.starts_with("MONOCHROME")) return "it is no image in grey";
  bool named = false;
  const std::vector<uint32_t> frames =
      frames_named(superimposed_, text_of(id, tags::kSOPInstanceUID), d.frames, named);
  if (frames.empty()) return "the presentation state does not lay it over others";
  const Planes planes(id, d.frames);
  const std::string& own = planes.frame_of_reference();
  if (own.empty() || own != ground_->frame_of_reference())
    return "its frame of reference is not that of the image below";
  for (const uint32_t frame : frames) {
    Slab slab{images_.size(), frame, {}, 0, 0};
    if (std::string problem = planes.read(frame, slab.plane); !problem.empty()) return problem;
    slabs_.push_back(slab);
  }
  images_.push_back(std::move(image));
  return "";
}

// Up to the middle between it and its neighbours of the same direction; outwards, half of what a slice has.
void Fusion::share_out() {
  constexpr double kSame = 1e-3;  // mm
  const Vector normal = slabs_[0].plane.normal;
  const auto depth = [&](const Slab& slab) { return dot(slab.plane.origin, normal); };
  std::vector<double> depths;
  for (const Slab& slab : slabs_) {
    if (parallel(slab.plane, slabs_[0].plane)) depths.push_back(depth(slab));
  }
  std::sort(depths.begin(), depths.end());
  for (Slab& slab : slabs_) {
    slab.high = slab.plane.half_slice();
    slab.low = -slab.high;
    if (!parallel(slab.plane, slabs_[0].plane)) continue;
    const auto above = std::upper_bound(depths.begin(), depths.end(), depth(slab) + kSame);
    const auto below = std::lower_bound(depths.begin(), depths.end(), depth(slab) - kSame);
    if (above != depths.end()) slab.high = (*above - depth(slab)) / 2;
    if (below != depths.begin()) slab.low = (*(below - 1) - depth(slab)) / 2;
  }
}

std::string Fusion::shades_of(const Slab& slab, Picture& shades) {
  PixelImage& image = *images_[slab.image];
  const int32_t id = image.file().id();
  GreySources sources;
  sources.image = id;
  sources.modality = sources.rescale = superimposed_;
  sources.voi = sources.voi_table = item_about(superimposed_, tags::kSoftcopyVOILUTSequence,
                                               {text_of(id, tags::kSOPInstanceUID), slab.frame});
  sources.by_range = false;
  RenderOptions options;
  options.bits = 16;
  Bytes bytes;
  const CurrentFile current(image.file().path());
  const std::string problem = image.show(slab.frame, sources, options, bytes, shades);
  if (problem.empty()) return "";
  return image.file().path() + ": frame " + std::to_string(slab.frame + 1) + ": " + problem;
}

std::string Fusion::draw(uint32_t frame, Picture& picture, bool& met) {
  ImagePlane plane;
  if (std::string problem = ground_->read(frame, plane); !problem.empty())
    return "of the image below " + problem;
  to_colour(picture);
  met = false;
  std::string problem;
  for (const Slab& slab : slabs_) {
    const ImageDescription& d = images_[slab.image]->description();
    Picture shades;
    constexpr double kHair = 1e-6;  // so that rounding takes nothing from the borders
    const Box box{{-0.5 - kHair, -0.5 - kHair, slab.low},
                  {d.columns - 0.5 + kHair, d.rows - 0.5 + kHair, slab.high}};
    for_each_inside(Mapping(plane, slab.plane), picture.width, picture.height, box,
                    [&](uint32_t column, uint32_t row, const Vector& place) {
                      if (!problem.empty()) return;
                      if (shades.bytes.empty()) problem = shades_of(slab, shades);
                      if (!problem.empty()) return;
                      met = true;
                      blend(picture, std::size_t{row} * picture.width + column,
                            palette_colour(palette_, between(shades, place)), opacity_);
                    });
    if (!problem.empty()) return problem;
  }
  return "";
}

}  // namespace vexal
