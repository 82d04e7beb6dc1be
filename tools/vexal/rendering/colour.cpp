#include "colour.h"

#include <cmath>

#include "base/object_values.h"
#include "base/tags.h"
#include "base/values.h"
#include "drawing/icc.h"

namespace vexal {
namespace {

uint8_t clamp8(double value) {
  return static_cast<uint8_t>(std::lround(std::clamp(value, 0.0, 255.0)));
}

// Luminance and colour differences become red, green and blue (PS3.3 section C.7.6.3.1.2).
void from_ybr(uint8_t* pixel) {
  const double y = pixel[0];
  const double cb = pixel[1] - 128.0;
  const double cr = pixel[2] - 128.0;
  pixel[0] = clamp8(y + 1.402 * cr);
  pixel[1] = clamp8(y - 0.344136 * cb - 0.714136 * cr);
  pixel[2] = clamp8(y + 1.772 * cb);
}

// Two pixels share their colour: Y, Y, Cb, Cr.
std::string unpack_pairs(const Bytes& frame, std::size_t pixels, uint8_t* to) {
  for (std::size_t i = 0; i < pixels; ++i, to += 3) {
    const std::size_t pair = 4 * (i / 2);
    if (pair + 3 >= frame.size()) return "the frame is too short";
    to[0] = static_cast<uint8_t>(frame.data()[pair + i % 2]);
    to[1] = static_cast<uint8_t>(frame.data()[pair + 2]);
    to[2] = static_cast<uint8_t>(frame.data()[pair + 3]);
  }
  return "";
}

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
  const bool packed = frame.size() < pixels * 3 * ((image.allocated + 7) / 8);
  if (packed && image.allocated != 8) return "its colour can not be shown";
  picture.samples = 3;
  picture.bytes.resize(3 * pixels);
  uint8_t* to = picture.bytes.data();
  if (packed) {
    if (std::string problem = unpack_pairs(frame, pixels, to); !problem.empty()) return problem;
  } else {
    const uint32_t shift = image.stored > 8 ? image.stored - 8 : 0;
    const StoredSamples samples(image, frame.data());
    samples.each(3 * pixels, [&](std::size_t i, uint32_t bits) {
      const std::size_t at = planar ? i % pixels * 3 + i / pixels : i;
      to[at] = static_cast<uint8_t>(bits >> shift);
    });
  }
  // The transformations of JPEG 2000 are undone by its decoder.
  if (image.photometric.starts_with("YBR_FULL") || image.photometric.starts_with("YBR_PARTIAL")) {
    for (std::size_t i = 0; i < pixels; ++i) from_ybr(to + 3 * i);
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

std::string profile_of(int32_t id, uint32_t path) {
  std::string profile = bytes_of(id, tags::kICCProfile);
  return profile.empty() ? bytes_of(item_of(id, tags::kOpticalPathSequence, path), tags::kICCProfile)
                         : profile;
}

std::string apply_profile(int32_t id, Picture& picture) {
  const std::string profile = profile_of(id);
  if (profile.empty() || picture.samples != 3) return "";
  ToSrgb transform;
  const std::string problem = transform.open(profile);
  transform.apply(picture.bytes.data(), picture.bytes.size() / 3);
  return problem;
}

}  // namespace vexal
