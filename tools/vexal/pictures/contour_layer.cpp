// Contours of RT structure sets (PS3.3 sections A.19, C.8.8.5 and C.8.8.6) over the images that they were
// drawn on.
#include <algorithm>
#include <cstdlib>
#include <map>
#include <string_view>

#include "base/tag_path.h"
#include "base/tags.h"
#include "base/values.h"
#include "files/files.h"
#include "layers.h"

namespace vexal {
namespace {

// Pixels that lines and edges may pass in one picture: a bound for sets made to take for ever.
constexpr uint64_t kMostSteps = uint64_t{1} << 30;

constexpr uint32_t kMostNumber = INT32_MAX;  // of a region: it is an IS

enum class Form { kClosed, kOpen, kPoint };
constexpr struct {
  const char* name;
  Form form;
} kForms[] = {{"CLOSED_PLANAR", Form::kClosed},
              {"CLOSEDPLANAR_XOR", Form::kClosed},
              {"OPEN_PLANAR", Form::kOpen},
              {"OPEN_NONPLANAR", Form::kOpen},
              {"POINT", Form::kPoint}};

struct Contour {
  Form form = Form::kClosed;
  References references;
  std::vector<Vector> points;
};

struct Region {
  Colour colour{};
  std::vector<Contour> contours;
};

struct Spot {  // of a picture: columns and rows from 0, in the middles of pixels
  double x = 0;
  double y = 0;
};

// Lines and areas in a picture, as far as they lie in it.
class Pen {
 public:
  Pen(Picture& picture, const Colour& colour, uint64_t& steps)
      : picture_(picture), colour_(colour), steps_(steps) {}
  void line(Spot from, Spot to);
  void cross(Spot at);
  // The edge of an area, whose inside fill() gets: what an odd number of edges lies left of.
  void edge(Spot from, Spot to);
  void fill(double share);

 private:
  void dot(double x, double y);
  bool clip(Spot& from, Spot& to) const;

  Picture& picture_;
  const Colour& colour_;
  uint64_t& steps_;
  std::vector<bool> changes_;  // pixels at which inside and outside change
};

void Pen::dot(double x, double y) {
  const auto column = static_cast<int64_t>(std::lround(x));
  const auto row = static_cast<int64_t>(std::lround(y));
  if (column < 0 || row < 0 || column >= picture_.width || row >= picture_.height) return;
  blend(picture_, static_cast<std::size_t>(row) * picture_.width + static_cast<std::size_t>(column), colour_,
        1);
}

// Cuts a line at the borders of the picture; false if nothing is left.
bool Pen::clip(Spot& from, Spot& to) const {
  double first = 0;
  double last = 1;
  const double dx = to.x - from.x;
  const double dy = to.y - from.y;
  const auto cut = [&](double step, double start, double low, double high) {
    if (step == 0) return start >= low && start <= high;
    first = std::max(first, std::min((low - start) / step, (high - start) / step));
    last = std::min(last, std::max((low - start) / step, (high - start) / step));
    return first <= last;
  };
  if (!cut(dx, from.x, -0.5, picture_.width - 0.5) || !cut(dy, from.y, -0.5, picture_.height - 0.5))
    return false;
  const Spot start = from;
  from = {start.x + dx * first, start.y + dy * first};
  to = {start.x + dx * last, start.y + dy * last};
  return true;
}

void Pen::line(Spot from, Spot to) {
  ++steps_;
  if (!clip(from, to)) return;
  const double dx = to.x - from.x;
  const double dy = to.y - from.y;
  const double count = std::ceil(std::max({std::abs(dx), std::abs(dy), 1.0}));
  steps_ += static_cast<uint64_t>(count);
  for (double i = 0; i <= count && steps_ < kMostSteps; ++i)
    dot(from.x + dx * i / count, from.y + dy * i / count);
}

void Pen::cross(Spot at) {
  constexpr double kArm = 3;
  line({at.x - kArm, at.y}, {at.x + kArm, at.y});
  line({at.x, at.y - kArm}, {at.x, at.y + kArm});
}

void Pen::edge(Spot from, Spot to) {
  if (changes_.empty()) changes_.resize(std::size_t{picture_.width} * picture_.height);
  if (from.y > to.y) std::swap(from, to);
  const double first = std::max(std::ceil(from.y), 0.0);
  const double behind = std::min(std::ceil(to.y), static_cast<double>(picture_.height));
  ++steps_;
  for (double y = first; y < behind && steps_ < kMostSteps; ++y, ++steps_) {
    const double x = from.x + (to.x - from.x) * (y - from.y) / (to.y - from.y);
    const double column = std::max(std::ceil(x), 0.0);
    if (column >= picture_.width) continue;
    const auto at = static_cast<std::size_t>(y) * picture_.width + static_cast<std::size_t>(column);
    changes_[at] = !changes_[at];
  }
}

void Pen::fill(double share) {
  for (std::size_t row = 0; row * picture_.width < changes_.size(); ++row) {
    bool inside = false;
    for (std::size_t at = row * picture_.width; at < (row + 1) * picture_.width; ++at) {
      inside ^= changes_[at];
      if (inside) blend(picture_, at, colour_, share);
    }
  }
  changes_.clear();
}

class ContourLayer : public Layer {
 public:
  ContourLayer(const Ground& ground, LayerChoices& choices)
      : ground_(ground), choices_(choices), sources_(ground.instance) {}
  std::string open(const std::string& path);
  std::string draw(const Slice& slice, Picture& picture, bool& drawn) override;

 private:
  void read_references(int32_t id);
  void read_region(int32_t item, const std::string& name, uint32_t number);
  std::string read_points(int32_t item, Contour& contour) const;
  bool shows(const Contour& contour, const Slice& slice) const;
  void draw_region(const Region& region, const Slice& slice, Picture& picture, uint64_t& steps,
                   bool& drawn) const;

  const Ground& ground_;
  LayerChoices& choices_;
  Sources sources_;
  std::vector<Region> regions_;
};

std::string ContourLayer::open(const std::string& path) {
  DicomFile file;
  if (file.open(path, {}) != VX_NORMAL_COMPLETION) return file.problem();
  const int32_t id = file.id();
  const std::vector<int32_t> contours = sequence_items(id, tags::kROIContourSequence);
  if (contours.empty()) return "it has no contours: no ROI Contour Sequence";
  if (ground_.planes.frame_of_reference().empty()) return "the image has no frame of reference";
  read_references(id);
  struct Named {
    std::string name;
    std::string frame_of_reference;
  };
  std::map<uint32_t, Named> named;
  for (const int32_t item : sequence_items(id, tags::kStructureSetROISequence)) {
    if (const auto number = whole_of(item, tags::kROINumber, kMostNumber))
      named[*number] = {text_of(item, tags::kROIName), text_of(item, tags::kReferencedFrameOfReferenceUID)};
  }
  std::string general = text_of(id, tags::kFrameOfReferenceUID);
  const std::vector<int32_t> listed = sequence_items(id, tags::kReferencedFrameOfReferenceSequence);
  if (listed.size() == 1) general = text_of(listed[0], tags::kFrameOfReferenceUID);
  std::size_t others = 0;
  for (const int32_t item : contours) {
    const auto number = whole_of(item, tags::kReferencedROINumber, kMostNumber);
    const auto roi = number ? named.find(*number) : named.end();
    if (roi == named.end()) {
      fault("contours of a region that the set does not name are not shown");
      continue;
    }
    const auto& [name, place] = roi->second;
    if (!choices_.regions.takes(*number, name)) continue;
    if ((place.empty() ? general : place) != ground_.planes.frame_of_reference()) {
      ++others;
      fault("region " + std::to_string(*number) + " \"" + name +
            "\" is not shown: its frame of reference is not that of the image");
      continue;
    }
    read_region(item, name, *number);
  }
  return others != 0 && regions_.empty() ? "its frame of reference is not that of the image" : "";
}

void ContourLayer::read_references(int32_t id) {
  for (const int32_t frame : sequence_items(id, tags::kReferencedFrameOfReferenceSequence)) {
    for (const int32_t study : sequence_items(frame, tags::kRTReferencedStudySequence)) {
      for (const int32_t series : sequence_items(study, tags::kRTReferencedSeriesSequence))
        sources_.list(sequence_items(series, tags::kContourImageSequence));
    }
  }
}

// The points of a contour; a text about what is not right with them.
std::string ContourLayer::read_points(int32_t item, Contour& contour) const {
  const std::vector<double> numbers = reals_of(item, tags::kContourData);
  const std::vector<double> told = reals_of(item, tags::kNumberOfContourPoints);
  if (numbers.size() % 3 != 0 || numbers.empty()) return "its data is not three numbers a point";
  contour.points.reserve(numbers.size() / 3);
  for (std::size_t i = 0; i < numbers.size(); i += 3) {
    const Vector point{numbers[i], numbers[i + 1], numbers[i + 2]};
    if (!is_near(point)) return "a coordinate is no number of mm";
    contour.points.push_back(point);
  }
  if (!told.empty() && told[0] != static_cast<double>(contour.points.size()))
    return "its data has another number of points than it says";
  return "";
}

void ContourLayer::read_region(int32_t item, const std::string& name, uint32_t number) {
  Region region;
  region.colour = distinct_colour(number - 1);
  const std::vector<double> colour = reals_of(item, tags::kROIDisplayColor);
  if (colour.size() == 3) {
    for (std::size_t c = 0; c < 3; ++c)
      region.colour[c] = static_cast<uint8_t>(colour[c] >= 0 ? std::min(colour[c], 255.0) : 0);
  }
  uint32_t count = 0;
  for (const int32_t one : sequence_items(item, tags::kContourSequence)) {
    ++count;
    const std::string place =
        "region " + std::to_string(number) + " \"" + name + "\", contour " + std::to_string(count) + ": ";
    const std::string type = text_of(one, tags::kContourGeometricType);
    const auto* form = std::find_if(std::begin(kForms), std::end(kForms),
                                    [&](const auto& known) { return type == known.name; });
    if (form == std::end(kForms)) {
      fault(place + "a form \"" + type + "\" can not be drawn");
      continue;
    }
    Contour contour;
    contour.form = form->form;
    sources_.read(sequence_items(one, tags::kContourImageSequence), contour.references);
    if (const std::string problem = read_points(one, contour); !problem.empty()) {
      fault(place + problem);
      continue;
    }
    region.contours.push_back(std::move(contour));
  }
  regions_.push_back(std::move(region));
}

// A contour lies in a slice if all its points do.
bool ContourLayer::shows(const Contour& contour, const Slice& slice) const {
  if (!sources_.allows(contour.references, slice.frame)) return false;
  const double half = slice.plane->half_slice();
  return std::all_of(contour.points.begin(), contour.points.end(), [&](const Vector& point) {
    const double distance = dot(point - slice.plane->origin, slice.plane->normal);
    return distance >= -half && distance < half;
  });
}

void ContourLayer::draw_region(const Region& region, const Slice& slice, Picture& picture, uint64_t& steps,
                               bool& drawn) const {
  std::vector<std::pair<const Contour*, std::vector<Spot>>> shown;
  for (const Contour& contour : region.contours) {
    if (!shows(contour, slice)) continue;
    std::vector<Spot>& spots = shown.emplace_back(&contour, std::vector<Spot>()).second;
    spots.reserve(contour.points.size());
    for (const Vector& point : contour.points) {
      const Vector at = slice.plane->pixel_of(point);
      spots.push_back({at.x, at.y});
    }
  }
  drawn |= !shown.empty();
  Pen pen(picture, region.colour, steps);
  // All edges first, so that a contour within another is a hole.
  for (const auto& [contour, spots] : shown) {
    if (!choices_.fill || contour->form != Form::kClosed) continue;
    for (std::size_t i = 0; i < spots.size(); ++i) pen.edge(spots[i], spots[(i + 1) % spots.size()]);
  }
  pen.fill(choices_.opacity);
  for (const auto& [contour, spots] : shown) {
    if (contour->form == Form::kPoint || spots.size() == 1) {
      for (const Spot& spot : spots) pen.cross(spot);
      continue;
    }
    for (std::size_t i = 1; i < spots.size(); ++i) pen.line(spots[i - 1], spots[i]);
    if (contour->form == Form::kClosed) pen.line(spots.back(), spots.front());
  }
}

std::string ContourLayer::draw(const Slice& slice, Picture& picture, bool& drawn) {
  if (!slice.plane) return "of the image " + slice.no_plane;
  uint64_t steps = 0;
  for (const Region& region : regions_) draw_region(region, slice, picture, steps, drawn);
  return steps < kMostSteps ? "" : "its contours have too many lines to be drawn";
}

}  // namespace

std::unique_ptr<Layer> open_contours(const std::string& path, const Ground& ground, LayerChoices& choices,
                                     std::string& problem) {
  auto layer = std::make_unique<ContourLayer>(ground, choices);
  problem = layer->open(path);
  if (!problem.empty()) return nullptr;
  return layer;
}

}  // namespace vexal
