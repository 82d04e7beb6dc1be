// vexal pixel compare: two images, value by value, whatever their transfer syntaxes.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <tuple>

#include "base/parallel.h"
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

  void take(std::size_t at, std::size_t which, double a, double b) {
    if (a == b || (std::isnan(a) && std::isnan(b))) return;
    const double difference = std::abs(a - b);
    const double apart = std::isnan(difference) ? HUGE_VAL : difference;  // a number and none
    ++count;
    sum += apart;
    if (apart > largest) std::tie(largest, pixel, sample, one, other) = std::tie(apart, at, which, a, b);
  }
  // Of pixels behind these.
  void add(const Difference& behind) {
    const uint64_t together = count + behind.count;
    const double all = sum + behind.sum;
    if (behind.largest > largest) *this = behind;
    count = together;
    sum = all;
  }
};

// Values of a frame by pixel and sample, whatever their order.
class Values {
 public:
  Values(const PixelImage& image, const Bytes& frame)
      : samples_(image.description(), frame.data()),
        order_(image.description(), image.is_planar(), frame.size()) {}
  double at(std::size_t pixel, std::size_t sample) const { return samples_.value(order_.at(pixel, sample)); }

 private:
  StoredSamples samples_;
  SampleOrder order_;
};

// Frames of equal bytes have equal values then.
bool have_one_form(const PixelImage& one, const PixelImage& other) {
  const ImageDescription& a = one.description();
  const ImageDescription& b = other.description();
  return a.allocated == b.allocated && a.stored == b.stored && a.high == b.high &&
         a.is_signed == b.is_signed && a.photometric == b.photometric && one.is_planar() == other.is_planar();
}

// Of two frames, a band of pixels on each thread.
Difference find_differences(const PixelImage& a, const Bytes& in_a, const PixelImage& b, const Bytes& in_b,
                            unsigned threads) {
  constexpr std::size_t kLeastBand = std::size_t{1} << 16;
  const std::size_t pixels = a.description().pixels();
  const std::size_t samples = a.description().samples;
  const bool transforms = colour_of(a.description().photometric) != colour_of(b.description().photometric);
  const Values values_a(a, in_a);
  const Values values_b(b, in_b);
  const auto read = [&](const PixelImage& image, const Values& from, std::size_t pixel) {
    std::array<double, 3> values{};
    const ImageDescription& description = image.description();
    for (std::size_t s = 0; s < samples; ++s) values[s] = from.at(pixel, s);
    if (transforms && colour_of(description.photometric) == Colour::kYbr) to_rgb(values, description.stored);
    return values;
  };
  std::vector<Difference> bands(std::clamp<std::size_t>(pixels / kLeastBand, 1, threads));
  struct None {};
  on_threads<None>(threads, bands.size(), [&](None&, std::size_t band) {
    Difference found;
    const std::size_t end = pixels * (band + 1) / bands.size();
    for (std::size_t i = pixels * band / bands.size(); i < end; ++i) {
      const std::array<double, 3> one = read(a, values_a, i);
      const std::array<double, 3> other = read(b, values_b, i);
      for (std::size_t s = 0; s < samples; ++s) found.take(i, s, one[s], other[s]);
    }
    bands[band] = found;
  });
  Difference all;
  for (const Difference& band : bands) all.add(band);
  return all;
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

// The line that tells of a frame.
FileResult compare_frame(PixelImage& image, const std::string& in, PixelImage& second,
                         const std::string& other, uint32_t number, unsigned threads) {
  const std::string name = "frame " + std::to_string(number + 1) + ": ";
  Bytes one;
  Bytes two;
  const auto read = [&](PixelImage& from, const std::string& path, Bytes& bytes) {
    const CurrentFile current(path);
    std::string problem = from.frame(number, bytes);
    const ImageDescription& d = from.description();
    const std::size_t samples = SampleOrder(d, from.is_planar(), bytes.size()).end();
    if (problem.empty() && samples * d.allocated > bytes.size() * 8) problem = "the frame is too short";
    if (!problem.empty()) report(path, name + problem);
    return problem.empty();
  };
  if (!read(image, in, one) || !read(second, other, two)) return {"", kUsage};
  Difference found;
  const bool same = have_one_form(image, second) && one.size() == two.size() &&
                    std::memcmp(one.data(), two.data(), one.size()) == 0;
  if (!same) found = find_differences(image, one, second, two, threads);
  if (found.count == 0) return {name + "equal\n", kSuccess};
  return {name + describe(found, image.description()) + "\n", kFindings};
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
  if (!chosen(args, image, true, choice)) return kUsage;
  const unsigned threads = default_threads();
  const unsigned of_frame = std::max(threads / choice.count, 1U);
  const OrderedWork work{
      choice.count,
      [&](std::size_t i) {
        return compare_frame(image, in, second, other, choice.first + static_cast<uint32_t>(i), of_frame);
      },
      [&](std::size_t i) { return in + ": frame " + std::to_string(choice.first + i + 1); }, "frames"};
  int result = for_each_in_order(work, threads);
  for (const auto& [path, from] : {std::pair(in, &image), std::pair(other, &second)}) {
    if (args.has("--frame") || from->missing_frames().empty()) continue;
    report(path, from->missing_frames());
    result = kUsage;
  }
  result = judge(image, in, result);
  return judge(second, other, result);
}

}  // namespace vexal
