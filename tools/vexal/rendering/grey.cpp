#include "grey.h"

#include <cmath>
#include <limits>

#include "base/object_values.h"
#include "base/tags.h"
#include "base/values.h"

namespace vexal {

double Window::level(double value) const {
  if (form == Form::kSigmoid) return 1 / (1 + std::exp(-4 * (value - center) / width));
  const double middle = form == Form::kLinear ? center - 0.5 : center;
  const double range = form == Form::kLinear ? width - 1 : width;
  if (value <= middle - range / 2) return 0;
  if (value > middle + range / 2) return 1;
  return (value - middle) / range + 0.5;
}

std::string GreyScale::read(const ImageDescription& image, const GreySources& sources,
                            const RenderOptions& options) {
  image_ = image;
  bits_ = options.bits;
  modality_ = presentation_ = {};
  if (!image.real && sources.modality >= 0) {
    const int32_t item = item_of(sources.modality, tags::kModalityLUTSequence);
    if (item >= 0 && !modality_.read_item(item, image.is_signed)) modality_ = {};
  }
  slope_ = real_of(sources.rescale, tags::kRescaleSlope).value_or(1);
  intercept_ = real_of(sources.rescale, tags::kRescaleIntercept).value_or(0);
  if (std::string problem = read_voi(sources, options); !problem.empty()) return problem;
  const int32_t item = item_of(sources.presentation, tags::kPresentationLUTSequence);
  if (item >= 0 && !presentation_.read_item(item, false)) return "its Presentation LUT is broken";
  const bool inverse = text_of(sources.presentation, tags::kPresentationLUTShape) == "INVERSE";
  inverse_ = (sources.light_first || inverse) != options.invert;
  if (by_ == Voi::kRange && !sources.by_range) take_possible_range();
  read_padding(sources.image);
  return "";
}

std::string GreyScale::read_voi(const GreySources& sources, const RenderOptions& options) {
  const bool own = options.window > 0 && !options.center;
  const bool signed_first = modality_.entries.empty() && (image_.is_signed || intercept_ < 0);
  const std::optional<double> center = real_of(sources.voi, tags::kWindowCenter, options.window);
  const std::optional<double> width = real_of(sources.voi, tags::kWindowWidth, options.window);
  window_ = {};
  by_ = Voi::kWindow;
  const auto take_table = [&](int number) {
    if (!voi_.read_item(item_of(sources.voi_table, tags::kVOILUTSequence, static_cast<uint32_t>(number) - 1),
                        signed_first))
      return false;
    by_ = Voi::kTable;
    return true;
  };
  if (options.center && options.width) {
    window_.center = *options.center;
    window_.width = *options.width;
  } else if (options.voi_lut > 0) {
    if (!take_table(options.voi_lut)) return "it has no such VOI LUT, or not all of it";
  } else if (own && center && width && *width > 0) {
    window_.center = *center;
    window_.width = *width;
    const std::string function = text_of(sources.voi, tags::kVOILUTFunction);
    if (function == "LINEAR_EXACT") window_.form = Window::Form::kExact;
    if (function == "SIGMOID") window_.form = Window::Form::kSigmoid;
  } else if (!own || !take_table(1)) {
    by_ = Voi::kRange;
    window_.form = Window::Form::kExact;
  }
  if (window_.form == Window::Form::kLinear && window_.width < 1) {
    if (options.center) return "a window has a width of 1 or more";
    by_ = Voi::kRange;
    window_.form = Window::Form::kExact;
  }
  return "";
}

// Pixels around an image that show nothing (PS3.3 section C.7.5.1.1.2), in stored values.
void GreyScale::read_padding(int32_t id) {
  const uint32_t tag = !image_.real             ? tags::kPixelPaddingValue
                       : image_.allocated == 32 ? tags::kFloatPixelPaddingValue
                                                : tags::kDoubleFloatPixelPaddingValue;
  const uint32_t limit = !image_.real             ? tags::kPixelPaddingRangeLimit
                         : image_.allocated == 32 ? tags::kFloatPixelPaddingRangeLimit
                                                  : tags::kDoubleFloatPixelPaddingRangeLimit;
  const std::optional<double> value = real_of(id, tag);
  padded_ = value.has_value();
  if (!padded_) return;
  const auto plain = [this](double number) {  // some writers give the bits of a negative number
    if (image_.real || !image_.is_signed || number < 0 || image_.stored > 16) return number;
    const auto bits = static_cast<uint32_t>(number) & ((1U << image_.stored) - 1);
    return static_cast<double>(StoredSamples(image_, nullptr).whole(bits));
  };
  padding_low_ = plain(*value);
  padding_high_ = plain(real_of(id, limit).value_or(*value));
  if (padding_high_ < padding_low_) std::swap(padding_low_, padding_high_);
}

double GreyScale::modality_value(double plain) const {
  return modality_.entries.empty() ? plain * slope_ + intercept_ : modality_.at(static_cast<int64_t>(plain));
}

bool GreyScale::is_padding(double plain) const {
  return std::isnan(plain) || (padded_ && plain >= padding_low_ && plain <= padding_high_);
}

// A value behind the modality transformation becomes a share of white.
double GreyScale::level(double value) const {
  const double voi =
      by_ == Voi::kTable ? voi_.level(std::llround(std::clamp(value, -1e9, 1e9))) : window_.level(value);
  if (presentation_.entries.empty()) return inverse_ ? 1 - voi : voi;
  const auto last = static_cast<double>(presentation_.entries.size() - 1);
  const double shown =
      presentation_.level(presentation_.first + std::llround(std::clamp(voi, 0.0, 1.0) * last));
  return inverse_ ? 1 - shown : shown;
}

void GreyScale::take_range(const StoredSamples& samples) {
  double low = std::numeric_limits<double>::max();
  double high = std::numeric_limits<double>::lowest();
  const auto take = [&](double plain) {
    if (is_padding(plain) || std::isinf(plain)) return;
    const double value = modality_value(plain);
    if (!std::isfinite(value)) return;
    low = std::min(low, value);
    high = std::max(high, value);
  };
  if (!image_.real && image_.stored <= 16) {
    std::vector<uint8_t> seen(std::size_t{1} << image_.stored, 0);
    samples.each(image_.pixels(), [&](std::size_t, uint32_t bits) { seen[bits] = 1; });
    for (uint32_t bits = 0; bits < seen.size(); ++bits) {
      if (seen[bits] != 0) take(static_cast<double>(samples.whole(bits)));
    }
  } else {
    for (std::size_t i = 0; i < image_.pixels(); ++i) take(samples.value(i));
  }
  if (low > high) low = high = 0;
  window_.center = (low + high) / 2;
  window_.width = std::max(high - low, 1e-9);
}

// What the stored bits can give at all.
void GreyScale::take_possible_range() {
  by_ = Voi::kWindow;
  double low = 0;
  double high = 1;
  if (!modality_.entries.empty()) {
    high = static_cast<double>((1U << modality_.bits) - 1);
  } else if (!image_.real) {
    const double span = std::ldexp(1, static_cast<int>(image_.stored));
    const double first = image_.is_signed ? -span / 2 : 0;
    low = std::min(modality_value(first), modality_value(first + span - 1));
    high = std::max(modality_value(first), modality_value(first + span - 1));
  } else {
    by_ = Voi::kRange;
  }
  window_.center = (low + high) / 2;
  window_.width = std::max(high - low, 1e-9);
}

template <typename Shade>
void GreyScale::fill(const StoredSamples& samples, Shade* to) const {
  constexpr double kTop = std::numeric_limits<Shade>::max();
  const auto shade = [&](double plain) {
    const double value = modality_value(plain);
    if (is_padding(plain) || std::isnan(value)) return Shade{0};
    return static_cast<Shade>(std::lround(std::clamp(kTop * level(value), 0.0, kTop)));
  };
  const std::size_t pixels = image_.pixels();
  if (image_.real || image_.stored > 16 || pixels >> image_.stored == 0) {
    for (std::size_t i = 0; i < pixels; ++i) to[i] = shade(samples.value(i));
    return;
  }
  std::vector<Shade> shades(std::size_t{1} << image_.stored);
  for (uint32_t bits = 0; bits < shades.size(); ++bits)
    shades[bits] = shade(static_cast<double>(samples.whole(bits)));
  samples.each(pixels, [&](std::size_t i, uint32_t bits) { to[i] = shades[bits]; });
}

void GreyScale::apply(const Bytes& frame, Picture& picture) {
  const StoredSamples samples(image_, frame.data());
  if (by_ == Voi::kRange) take_range(samples);
  picture.samples = 1;
  picture.bits = bits_;
  picture.bytes.resize(image_.pixels() * (bits_ / 8));
  if (bits_ == 8) {
    fill(samples, picture.bytes.data());
  } else {
    fill(samples, reinterpret_cast<uint16_t*>(picture.bytes.data()));
  }
}

}  // namespace vexal
