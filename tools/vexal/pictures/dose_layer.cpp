// RT doses (PS3.3 sections A.18 and C.8.8.3) as a colour wash over an image.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/tags.h"
#include "base/values.h"
#include "layers.h"

namespace vexal {
namespace {

// From the least dose that is shown to the highest, in even steps.
constexpr Colour kWash[] = {{0, 0, 255}, {0, 255, 255}, {0, 255, 0}, {255, 255, 0}, {255, 0, 0}};

Colour wash(double part) {
  constexpr std::size_t kSteps = std::size(kWash) - 1;
  const double place = std::clamp(part, 0.0, 1.0) * kSteps;
  const std::size_t from = std::min(static_cast<std::size_t>(place), kSteps - 1);
  Colour colour;
  for (std::size_t c = 0; c < 3; ++c) {
    const double low = kWash[from][c];
    colour[c] = static_cast<uint8_t>(
        std::lround(low + (kWash[from + 1][c] - low) * (place - static_cast<double>(from))));
  }
  return colour;
}

std::string read_scaling(const PixelImage& image, double& scaling) {
  const ImageDescription& d = image.description();
  if (d.samples != 1 || d.real || (d.allocated != 16 && d.allocated != 32))
    return "its pixels are none of a dose";
  const std::vector<double> values = reals_of(image.file().id(), tags::kDoseGridScaling);
  if (values.empty() || !(values[0] > 0 && values[0] < 1e30)) return "it has no Dose Grid Scaling";
  scaling = values[0];
  return "";
}

template <typename Stored>
void scale(const Bytes& bytes, double scaling, std::vector<double>& doses) {
  for (std::size_t i = 0; i < doses.size(); ++i) {
    Stored value;
    std::memcpy(&value, bytes.data() + i * sizeof value, sizeof value);
    doses[i] = value * scaling;
  }
}

// The doses of a frame (from 0).
std::string read_doses(PixelImage& image, uint32_t frame, double scaling, std::vector<double>& doses) {
  const ImageDescription& d = image.description();
  Bytes bytes;
  if (std::string problem = image.frame(frame, bytes); !problem.empty())
    return "frame " + std::to_string(frame + 1) + ": " + problem;
  doses.resize(std::size_t{d.rows} * d.columns);
  if (d.allocated == 16) {
    d.is_signed ? scale<int16_t>(bytes, scaling, doses) : scale<uint16_t>(bytes, scaling, doses);
  } else {
    d.is_signed ? scale<int32_t>(bytes, scaling, doses) : scale<uint32_t>(bytes, scaling, doses);
  }
  return "";
}

std::string find_most(PixelImage& image, double scaling, double& most) {
  std::vector<double> doses;
  most = 0;
  for (uint32_t i = 0; i < image.description().frames; ++i) {
    if (std::string problem = read_doses(image, i, scaling, doses); !problem.empty()) return problem;
    most = std::max(most, *std::max_element(doses.begin(), doses.end()));
  }
  return "";
}

class DoseLayer : public Layer {
 public:
  DoseLayer(const Ground& ground, const LayerChoices& choices) : ground_(ground), choices_(choices) {}
  std::string open(const std::string& path);
  std::string draw(const Slice& slice, Picture& picture, bool& drawn) override;

 private:
  struct Level {
    double distance;  // from the first frame's plane, along its normal
    uint32_t frame;
  };
  struct Doses {
    uint32_t frame = UINT32_MAX;
    std::vector<double> values;
    // Between the four pixels around a place.
    double at(const Vector& place, uint32_t columns) const;
  };
  std::string read_levels();
  std::string load(uint32_t frame, Doses& doses);
  std::string wash_between(const Level& near, const Level& far, const Box& box, const Mapping& mapping,
                           Picture& picture, bool& drawn);

  const Ground& ground_;
  const LayerChoices& choices_;
  PixelImage image_;
  double scaling_ = 1;
  double low_ = 0;
  double high_ = 1;
  ImagePlane plane_;           // of the first frame
  std::vector<Level> levels_;  // ascending
  Doses near_;
  Doses far_;
};

std::string DoseLayer::open(const std::string& path) {
  std::string problem = image_.open(path);
  if (problem.empty()) problem = read_scaling(image_, scaling_);
  if (problem.empty()) problem = read_levels();
  if (!problem.empty()) return problem;
  if (choices_.dose_range) {
    low_ = choices_.dose_range->first;
    high_ = choices_.dose_range->second;
    return "";
  }
  problem = find_most(image_, scaling_, high_);
  low_ = high_ / 10;
  if (const std::string finding = image_.finding(); !finding.empty()) fault(finding);
  if (!image_.missing_frames().empty()) fault(image_.missing_frames());
  return problem.empty() && high_ <= 0 ? "it has no dose above 0" : problem;
}

std::string DoseLayer::read_levels() {
  const uint32_t frames = image_.description().frames;
  const Planes planes(image_.file().id(), frames);
  const std::string& own = planes.frame_of_reference();
  if (own.empty() || own != ground_.planes.frame_of_reference())
    return "its frame of reference is not that of the image";
  for (uint32_t i = 0; i < frames; ++i) {
    ImagePlane plane;
    if (std::string fault = planes.read(i, plane); !fault.empty()) return fault;
    if (i == 0) plane_ = plane;
    levels_.push_back({dot(plane.origin - plane_.origin, plane_.normal), i});
  }
  std::sort(levels_.begin(), levels_.end(),
            [](const Level& a, const Level& b) { return a.distance < b.distance; });
  return "";
}

std::string DoseLayer::load(uint32_t frame, Doses& doses) {
  if (doses.frame == frame) return "";
  doses.frame = UINT32_MAX;
  std::string problem = read_doses(image_, frame, scaling_, doses.values);
  if (problem.empty()) doses.frame = frame;
  if (const std::string finding = image_.finding(); !finding.empty()) fault(finding);
  if (!image_.missing_frames().empty()) fault(image_.missing_frames());
  return problem;
}

double DoseLayer::Doses::at(const Vector& place, uint32_t columns) const {
  const double x = std::max(place.x, 0.0);
  const double y = std::max(place.y, 0.0);
  const auto column = static_cast<std::size_t>(x);
  const auto row = static_cast<std::size_t>(y);
  const std::size_t right = column + 1 < columns ? 1 : 0;
  const std::size_t below = (row + 1) * columns < values.size() ? columns : 0;
  const double* from = values.data() + row * columns + column;
  const double across = x - static_cast<double>(column);
  const double down = y - static_cast<double>(row);
  const double upper = from[0] + (from[right] - from[0]) * across;
  const double lower = from[below] + (from[below + right] - from[below]) * across;
  return upper + (lower - upper) * down;
}

// What lies between two planes of the grid, or in the slice of one.
std::string DoseLayer::wash_between(const Level& near, const Level& far, const Box& box,
                                    const Mapping& mapping, Picture& picture, bool& drawn) {
  const uint32_t columns = image_.description().columns;
  const double gap = far.distance - near.distance;
  const double least = low_ - 1e-9 * std::abs(high_);  // what is equal to it but for rounding belongs to it
  std::string problem;
  bool ready = false;
  for_each_inside(
      mapping, picture.width, picture.height, box, [&](uint32_t column, uint32_t row, const Vector& place) {
        if (!ready && problem.empty()) {
          if (far_.frame == near.frame) std::swap(near_, far_);
          problem = load(near.frame, near_);
          if (problem.empty() && gap > 0) problem = load(far.frame, far_);
          ready = problem.empty();
        }
        if (!ready) return;
        double dose = near_.at(place, columns);
        if (gap > 0)
          dose += (far_.at(place, columns) - dose) * std::clamp((place.z - near.distance) / gap, 0.0, 1.0);
        if (!(dose >= least)) return;
        drawn = true;
        blend(picture, std::size_t{row} * picture.width + column, wash((dose - low_) / (high_ - low_)),
              choices_.opacity);
      });
  return problem;
}

std::string DoseLayer::draw(const Slice& slice, Picture& picture, bool& drawn) {
  if (!slice.plane) return "of the image " + slice.no_plane;
  const ImageDescription& d = image_.description();
  const Mapping mapping(*slice.plane, plane_);
  constexpr double kHair = 1e-6;  // so that rounding takes nothing from the grid's borders
  Box box{{-kHair, -kHair, 0}, {d.columns - 1 + kHair, d.rows - 1 + kHair, 0}};
  if (levels_.size() == 1) {
    box.high.z = plane_.thickness > 0 ? plane_.half_slice() : slice.plane->half_slice();
    box.low.z = -box.high.z;
    return wash_between(levels_[0], levels_[0], box, mapping, picture, drawn);
  }
  for (std::size_t i = 1; i < levels_.size(); ++i) {
    const bool last = i + 1 == levels_.size();
    box.low.z = levels_[i - 1].distance - (i == 1 ? kHair : 0);
    box.high.z = levels_[i].distance + (last ? kHair : 0);
    std::string problem = wash_between(levels_[i - 1], levels_[i], box, mapping, picture, drawn);
    if (!problem.empty()) return problem;
  }
  return "";
}

}  // namespace

std::string describe_dose(PixelImage& image) {
  double scaling = 0;
  double most = 0;
  std::string problem = read_scaling(image, scaling);
  if (problem.empty()) problem = find_most(image, scaling, most);
  if (!problem.empty()) return "no dose: " + problem;
  char text[64];
  std::snprintf(text, sizeof text, "dose up to %.6g ", most);
  std::string line = text;
  for (const uint32_t tag : {tags::kDoseUnits, tags::kDoseType, tags::kDoseSummationType}) {
    const std::string word = text_of(image.file().id(), tag);
    if (!word.empty()) line += (tag == tags::kDoseUnits ? "" : ", ") + word;
  }
  return line;
}

std::unique_ptr<Layer> open_dose(const std::string& path, const Ground& ground, LayerChoices& choices,
                                 std::string& problem) {
  auto layer = std::make_unique<DoseLayer>(ground, choices);
  problem = layer->open(path);
  if (!problem.empty()) return nullptr;
  return layer;
}

}  // namespace vexal
