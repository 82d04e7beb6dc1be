// Contours of RT structure sets (PS3.3 sections A.19, C.8.8.5 and C.8.8.6) over the images that they were
// drawn on.
#include <algorithm>
#include <map>

#include "base/tag_path.h"
#include "base/tags.h"
#include "base/values.h"
#include "drawing/canvas.h"
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

// The area that outlines enclose, as far as it lies in a picture: what an odd number of edges lies left of,
// so that an outline within another is a hole.
class Area {
 public:
  explicit Area(const Picture& picture) : width_(picture.width), height_(picture.height) {}
  // Gives the number of rows that the edge passes.
  uint64_t edge(Point from, Point to);
  uint64_t pixels() const { return changes_.size(); }
  void fill(Picture& picture, const Colour& colour, double share) const;

 private:
  std::size_t width_;
  std::size_t height_;
  std::vector<bool> changes_;  // pixels at which inside and outside change
};

uint64_t Area::edge(Point from, Point to) {
  if (changes_.empty()) changes_.resize(width_ * height_);
  if (from.y > to.y) std::swap(from, to);
  // Of rows and pixels, the middles count.
  const double first = std::max(std::ceil(from.y - 0.5), 0.0);
  const double behind = std::min(std::ceil(to.y - 0.5), static_cast<double>(height_));
  for (double row = first; row < behind; ++row) {
    const double x = from.x + (to.x - from.x) * (row + 0.5 - from.y) / (to.y - from.y);
    const double column = std::max(std::ceil(x - 0.5), 0.0);
    if (column >= static_cast<double>(width_)) continue;
    const auto at = static_cast<std::size_t>(row) * width_ + static_cast<std::size_t>(column);
    changes_[at] = !changes_[at];
  }
  return behind > first ? static_cast<uint64_t>(behind - first) : 0;
}

void Area::fill(Picture& picture, const Colour& colour, double share) const {
  bool inside = false;
  for (std::size_t at = 0; at < changes_.size(); ++at) {
    inside = (inside && at % width_ != 0) != changes_[at];
    if (inside) blend(picture, at, colour, share);
  }
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
  std::vector<std::pair<Form, std::vector<Point>>> shown;
  for (const Contour& contour : region.contours) {
    if (!shows(contour, slice)) continue;
    std::vector<Point>& points = shown.emplace_back(contour.form, std::vector<Point>()).second;
    for (const Vector& point : contour.points) {
      const Vector at = slice.plane->pixel_of(point);
      points.push_back({at.x + 0.5, at.y + 0.5});
    }
    if (contour.form == Form::kClosed && !points.empty()) points.push_back(points.front());
  }
  drawn |= !shown.empty();
  const auto pairs = [&](const std::vector<Point>& points, auto work) {
    for (std::size_t i = 1; i < points.size() && steps < kMostSteps; ++i) work(points[i - 1], points[i]);
  };
  Area area(picture);
  for (const auto& [form, points] : shown) {
    if (choices_.fill && form == Form::kClosed)
      pairs(points, [&](const Point& from, const Point& to) { steps += 1 + area.edge(from, to); });
  }
  steps += area.pixels() / 16;  // which are passed faster than lines are drawn
  area.fill(picture, region.colour, choices_.opacity);
  Canvas canvas(picture, region.colour);
  for (const auto& [form, points] : shown) {
    if (form == Form::kPoint || points.size() == 1) {
      for (const Point& at : points) {
        constexpr double kArm = 3;
        canvas.line({at.x - kArm, at.y}, {at.x + kArm, at.y});
        canvas.line({at.x, at.y - kArm}, {at.x, at.y + kArm});
      }
    }
    const bool joined = form != Form::kPoint;
    pairs(points, [&](const Point& from, const Point& to) {
      const double most = 1.0 * picture.width + picture.height;
      steps += 1 + static_cast<uint64_t>(std::fmin(std::abs(to.x - from.x) + std::abs(to.y - from.y), most));
      if (joined) canvas.line(from, to);
    });
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
