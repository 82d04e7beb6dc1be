#include "icc.h"

#include <lcms2.h>

#include <algorithm>

#include "base/opened_library.h"

namespace vexal {
namespace {

struct ColourLibrary {
  decltype(&::cmsOpenProfileFromMem) open;
  decltype(&::cmsCloseProfile) close;
  decltype(&::cmsCreate_sRGBProfile) make_srgb;
  decltype(&::cmsGetColorSpace) space;
  decltype(&::cmsCreateTransform) make_transform;
  decltype(&::cmsDeleteTransform) delete_transform;
  decltype(&::cmsDoTransform) transform;
};
ColourLibrary g_colour;

const std::string& load_library() {
  static const std::string problem = [] {
    const SoughtSymbol symbols[] = {
        {"cmsOpenProfileFromMem", g_colour.open},        {"cmsCloseProfile", g_colour.close},
        {"cmsCreate_sRGBProfile", g_colour.make_srgb},   {"cmsGetColorSpace", g_colour.space},
        {"cmsCreateTransform", g_colour.make_transform}, {"cmsDeleteTransform", g_colour.delete_transform},
        {"cmsDoTransform", g_colour.transform},
    };
    return open_library("liblcms2.so.2", symbols);
  }();
  return problem;
}

}  // namespace

ToSrgb::~ToSrgb() {
  if (transform_ != nullptr) g_colour.delete_transform(transform_);
}

std::string ToSrgb::open(const std::string& profile) {
  if (!load_library().empty()) return "its ICC profile needs liblcms2: " + load_library();
  const cmsHPROFILE from = g_colour.open(profile.data(), static_cast<cmsUInt32Number>(profile.size()));
  const bool fits = from != nullptr && g_colour.space(from) == cmsSigRgbData;
  const cmsHPROFILE to = fits ? g_colour.make_srgb() : nullptr;
  if (to != nullptr)
    transform_ = g_colour.make_transform(from, TYPE_RGB_8, to, TYPE_RGB_8, INTENT_PERCEPTUAL, 0);
  if (to != nullptr) g_colour.close(to);
  if (from != nullptr) g_colour.close(from);
  if (transform_ != nullptr) return "";
  return fits ? "its ICC profile is broken" : "its ICC profile is none of red, green and blue";
}

void ToSrgb::apply(uint8_t* pixels, std::size_t count) const {
  constexpr std::size_t kBlock = std::size_t{1} << 20;
  for (std::size_t at = 0; transform_ != nullptr && at < count; at += kBlock) {
    uint8_t* block = pixels + 3 * at;
    g_colour.transform(transform_, block, block, static_cast<cmsUInt32Number>(std::min(kBlock, count - at)));
  }
}

}  // namespace vexal
