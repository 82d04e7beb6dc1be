#include "colour.h"

#include <algorithm>
#include <cmath>

#include "base/attributes.h"
#include "base/object_values.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/values.h"
#include "drawing/icc.h"

namespace vexal {
namespace {

uint8_t to_byte(double value) {
  return static_cast<uint8_t>(std::clamp(value, 0.0, 255.0) + 0.5);
}

// Luminance and colour differences become red, green and blue (PS3.3 section C.7.6.3.1.2).
void from_full(double* pixel) {
  const double y = pixel[0];
  const double cb = pixel[1] - 128.0;
  const double cr = pixel[2] - 128.0;
  pixel[0] = y + 1.402 * cr;
  pixel[1] = y - 0.344136 * cb - 0.714136 * cr;
  pixel[2] = y + 1.772 * cb;
}

// Luminance goes from 16 to 235 there, differences from 16 to 240.
void from_partial(double* pixel) {
  pixel[0] = (pixel[0] - 16) * (255.0 / 219);
  for (std::size_t c = 1; c < 3; ++c) pixel[c] = 128 + (pixel[c] - 128) * (255.0 / 224);
  from_full(pixel);
}

// The hue's whole range is once around.
void from_hsv(double* pixel) {
  const double hue = pixel[0] / 255 * 6;
  const double light = pixel[2];
  const double span = light * pixel[1] / 255;
  const auto part = [&](double offset) {
    const double k = std::fmod(offset + hue, 6);
    return light - span * std::clamp(std::min(k, 4 - k), 0.0, 1.0);
  };
  pixel[0] = part(5);
  pixel[1] = part(3);
  pixel[2] = part(1);
}

// Colours that are none of red, green and blue; the transformations of JPEG 2000 are undone by its decoder.
constexpr struct {
  const char* photometric;
  void (*to_rgb)(double* pixel);
  bool differences;  // whose middle is a power of two
} kSpaces[] = {{"YBR_FULL", from_full, true},
               {"YBR_FULL_422", from_full, true},
               {"YBR_PARTIAL_422", from_partial, true},
               {"YBR_PARTIAL_420", from_partial, true},
               {"HSV", from_hsv, false}};

}  // namespace

std::string show_palette(int32_t id, const ImageDescription& image, const Bytes& frame, Picture& picture) {
  Palette palette;
  if (!palette.read(id, image.is_signed)) return "its palette is missing or broken";
  picture.samples = 3;
  picture.bytes.resize(3 * image.pixels());
  const StoredSamples samples(image, frame.data());
  samples.each(image.pixels(), [&](std::size_t i, uint32_t bits) {
    for (std::size_t c = 0; c < 3; ++c)
      picture.bytes[3 * i + c] = palette.colours[c].byte(samples.whole(bits));
  });
  return "";
}

std::string show_colour(const ImageDescription& image, bool planar, const Bytes& frame, Picture& picture) {
  const std::size_t pixels = image.pixels();
  const SampleOrder order(image, planar, frame.size());
  if (frame.size() < order.end() * (image.allocated / 8)) return "the frame is too short";
  picture.samples = 3;
  picture.bytes.resize(3 * pixels);
  const auto* space = std::find_if(std::begin(kSpaces), std::end(kSpaces),
                                   [&](const auto& known) { return image.photometric == known.photometric; });
  const bool rgb =
      image.photometric == "RGB" || image.photometric == "YBR_RCT" || image.photometric == "YBR_ICT";
  if (!rgb && space == std::end(kSpaces))
    return "photometric interpretation " + image.photometric + " of 3 samples can not be shown";
  uint8_t* to = picture.bytes.data();
  if (rgb && order.plain() && image.allocated == 8 && image.stored == 8) {
    std::copy_n(reinterpret_cast<const uint8_t*>(frame.data()), 3 * pixels, to);
    return "";
  }
  const double top = std::ldexp(1, static_cast<int>(image.stored));
  const double scale = !rgb && space->differences ? 256 / top : 255 / (top - 1);
  const StoredSamples samples(image, frame.data());
  for (std::size_t i = 0; i < pixels; ++i, to += 3) {
    double pixel[3];
    for (std::size_t c = 0; c < 3; ++c) pixel[c] = samples.bits(order.at(i, c)) * scale;
    if (!rgb) space->to_rgb(pixel);
    for (std::size_t c = 0; c < 3; ++c) to[c] = to_byte(pixel[c]);
  }
  return "";
}

void to_colour(Picture& picture) {
  if (picture.samples == 3) return;
  const std::size_t width = picture.bits / 8;
  const std::size_t pixels = picture.bytes.size() / width;
  picture.bytes.resize(3 * picture.bytes.size());
  for (std::size_t i = pixels; i-- > 0;) {  // in place, from the end
    for (std::size_t c = 3; c-- > 0;) {
      for (std::size_t b = 0; b < width; ++b)
        picture.bytes[(3 * i + c) * width + b] = picture.bytes[i * width + b];
    }
  }
  picture.samples = 3;
}

void add_supplement(int32_t id, const ImageDescription& image, const Bytes& frame, Picture& picture) {
  const std::string kind = text_of(id, tags::kPixelPresentation);
  Palette palette;
  if ((kind != "COLOR" && kind != "MIXED") || image.real || picture.bits != 8 ||
      !palette.read(id, image.is_signed))
    return;
  const StoredSamples samples(image, frame.data());
  samples.each(image.pixels(), [&](std::size_t i, uint32_t bits) {
    const int64_t value = samples.whole(bits);
    if (value < palette.colours[0].first) return;
    to_colour(picture);  // at the first of them
    for (std::size_t c = 0; c < 3; ++c) picture.bytes[3 * i + c] = palette.colours[c].byte(value);
  });
}

int32_t profile_holder(int32_t image, uint32_t path) {
  return has_attribute(image, tags::kICCProfile) ? image : item_of(image, tags::kOpticalPathSequence, path);
}

uint32_t optical_path_of(int32_t image, const FunctionalGroups& groups, uint32_t frames, uint32_t frame) {
  const std::vector<int32_t> paths = sequence_items(image, tags::kOpticalPathSequence);
  if (paths.size() < 2) return 0;
  const int32_t item = groups.item(frame, tags::kOpticalPathIdentificationSequence);
  const std::string name = text_of(item, tags::kOpticalPathIdentifier);
  for (uint32_t i = 0; item >= 0 && i < paths.size(); ++i) {
    if (text_of(paths[i], tags::kOpticalPathIdentifier) == name) return i;
  }
  const auto of_path = static_cast<uint32_t>(frames / paths.size());
  return item < 0 && frames % paths.size() == 0 ? frame / of_path : 0;
}

std::string apply_profile(int32_t holder, Picture& picture) {
  const std::string profile = bytes_of(holder, tags::kICCProfile);
  if (profile.empty() || picture.samples != 3) return "";
  ToSrgb transform;
  const std::string problem = transform.open(profile);
  transform.apply(picture.bytes.data(), picture.bytes.size() / 3);
  return problem;
}

}  // namespace vexal
