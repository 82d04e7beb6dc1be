// vexal pixel compare: two images, value by value, whatever their transfer syntaxes.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "base/names.h"
#include "pixel_actions.h"

namespace vexal {
namespace {

// Which numbers stand in the frames, so that others of the same kind can be held against them.
enum class Colour { kAsNamed, kRgb, kYbr };

Colour colour_of(const std::string& photometric) {
  if (photometric == "RGB" || photometric == "YBR_ICT" || photometric == "YBR_RCT") return Colour::kRgb;
  return photometric == "YBR_FULL" || photometric == "YBR_FULL_422" ? Colour::kYbr : Colour::kAsNamed;
}

std::string shape_of(const ImageDescription& d) {
  return std::to_string(d.rows) + " rows of " + std::to_string(d.columns) + " with " +
         std::to_string(d.samples) + (d.samples == 1 ? " sample, " : " samples, ") +
         std::to_string(d.frames) + (d.frames == 1 ? " frame" : " frames");
}

// Why the images can not be held against each other; empty if they can.
std::string comparison_fault(const ImageDescription& a, const ImageDescription& b) {
  if (a.rows != b.rows || a.columns != b.columns || a.samples != b.samples || a.frames != b.frames)
    return "one has " + shape_of(a) + ", the other " + shape_of(b);
  if (a.photometric == b.photometric) return "";
  const Colour one = colour_of(a.photometric);
  const Colour other = colour_of(b.photometric);
  const bool defined = one != Colour::kAsNamed && other != Colour::kAsNamed;
  if (!defined) return "no transformation is defined between " + a.photometric + " and " + b.photometric;
  if (one != other && a.stored != b.stored)
    return "no transformation is defined between colour of " + std::to_string(a.stored) + " and of " +
           std::to_string(b.stored) + " bits";
  return "";
}

// PS3.3 section C.7.6.3.1.2, for samples of any number of bits.
void to_rgb(std::array<double, 3>& pixel, uint32_t bits) {
  const double middle = std::ldexp(1.0, static_cast<int>(bits) - 1);
  const double top = 2 * middle - 1;
  const double y = pixel[0];
  const double b = pixel[1] - middle;
  const double r = pixel[2] - middle;
  pixel = {y + 1.402 * r, y - 0.344136 * b - 0.714136 * r, y + 1.772 * b};
  for (double& value : pixel) value = std::clamp(std::round(value), 0.0, top);
}

struct Difference {
  uint64_t count = 0;  // of samples
  double largest = 0;
  double sum = 0;
  std::size_t pixel = 0;  // where the largest is
  std::size_t sample = 0;
  double one = 0;  // and what stands there
  double other = 0;
};

// Values of a frame by pixel and sample, whatever their order.
class Values {
 public:
  Values(const PixelImage& image, const Bytes& frame)
      : samples_(image.description(), frame.data()),
        count_(image.description().samples),
        pixels_(image.description().pixels()),
        planar_(image.is_planar()),
        packed_(frame.size() < pixels_ * count_ * ((image.description().allocated + 7) / 8) &&
                image.description().allocated != 1) {}
  double at(std::size_t pixel, std::size_t sample) const {
    if (planar_) return samples_.value(sample * pixels_ + pixel);
    if (!packed_) return samples_.value(count_ * pixel + sample);
    return samples_.value(pixel / 2 * 4 + (sample == 0 ? pixel % 2 : sample + 1));  // Y Y Cb Cr for two
  }

 private:
  StoredSamples samples_;
  std::size_t count_;
  std::size_t pixels_;
  bool planar_;
  bool packed_;
};

// Frames of equal bytes have equal values then.
bool have_one_form(const PixelImage& one, const PixelImage& other) {
  const ImageDescription& a = one.description();
  const ImageDescription& b = other.description();
  return a.allocated == b.allocated && a.stored == b.stored && a.high == b.high &&
         a.is_signed == b.is_signed && a.photometric == b.photometric && one.is_planar() == other.is_planar();
}

Difference find_differences(const PixelImage& a, const Bytes& in_a, const PixelImage& b, const Bytes& in_b) {
  Difference found;
  const ImageDescription& d = a.description();
  const std::size_t pixels = std::size_t{d.rows} * d.columns;
  const bool transforms = colour_of(d.photometric) != colour_of(b.description().photometric);
  const Values values_a(a, in_a);
  const Values values_b(b, in_b);
  const auto take = [transforms](const PixelImage& image, const Values& from, std::size_t pixel) {
    std::array<double, 3> values{};
    const ImageDescription& description = image.description();
    for (std::size_t s = 0; s < description.samples; ++s) values[s] = from.at(pixel, s);
    if (transforms && colour_of(description.photometric) == Colour::kYbr) to_rgb(values, description.stored);
    return values;
  };
  for (std::size_t i = 0; i < pixels; ++i) {
    const std::array<double, 3> one = take(a, values_a, i);
    const std::array<double, 3> other = take(b, values_b, i);
    for (std::size_t s = 0; s < d.samples; ++s) {
      const double apart = std::abs(one[s] - other[s]);
      if (apart == 0 || (std::isnan(one[s]) && std::isnan(other[s]))) continue;
      ++found.count;
      found.sum += apart;
      if (apart <= found.largest) continue;
      found.largest = apart;
      found.pixel = i;
      found.sample = s;
      found.one = one[s];
      found.other = other[s];
    }
  }
  return found;
}

std::string number_text(double value) {
  char text[40];
  std::snprintf(text, sizeof text, "%.6g", value);
  return text;
}

std::string describe(const Difference& d, const ImageDescription& image) {
  const uint64_t samples = uint64_t{image.rows} * image.columns * image.samples;
  std::string text = std::to_string(d.count) + " of " + std::to_string(samples) +
                     " values differ, at most by " + number_text(d.largest) + " (row " +
                     std::to_string(d.pixel / image.columns + 1) + ", column " +
                     std::to_string(d.pixel % image.columns + 1);
  if (image.samples > 1) text += ", sample " + std::to_string(d.sample + 1);
  return text + ": " + number_text(d.one) + " and " + number_text(d.other) + "), on average by " +
         number_text(d.sum / static_cast<double>(samples));
}

}  // namespace

int compare_images(const Args& args, PixelImage& image, const std::string& in, const std::string& other) {
  PixelImage second;
  if (const std::string problem = second.open(other); !problem.empty()) {
    report(other, problem);
    return kUsage;
  }
  const ImageDescription& d = image.description();
  if (const std::string fault = comparison_fault(d, second.description()); !fault.empty()) {
    report(in, "can not be compared with " + other + ": " + fault);
    return kUsage;
  }
  Choice choice;
  if (!chosen(args, d.frames, true, choice)) return kUsage;
  uint32_t different = 0;
  int result = each_frame(choice, in, [&](uint32_t i) -> std::string {
    const uint32_t number = choice.first + i;
    Bytes one;
    Bytes two;
    if (std::string problem = image.frame(number, one); !problem.empty()) return problem;
    if (std::string problem = second.frame(number, two); !problem.empty()) return other + ": " + problem;
    Difference found;
    const bool same = have_one_form(image, second) && one.size() == two.size() &&
                      std::memcmp(one.data(), two.data(), one.size()) == 0;
    if (!same) found = find_differences(image, one, second, two);
    if (found.count != 0) ++different;
    say("frame %u: %s", number + 1, found.count == 0 ? "equal" : describe(found, d).c_str());
    return "";
  });
  if (different != 0) result = std::max(result, static_cast<int>(kFindings));
  result = judge(image, in, result);
  return judge(second, other, result);
}

}  // namespace vexal
