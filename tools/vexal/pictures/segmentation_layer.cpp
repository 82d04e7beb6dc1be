// Segmentations (PS3.3 sections A.51 and C.8.20) over the image whose pixels they tell of.
#include <algorithm>
#include <limits>

#include "base/tag_path.h"
#include "base/tags.h"
#include "base/values.h"
#include "layers.h"
#include "segments.h"

namespace vexal {
namespace {

struct SegmentFrame {
  uint32_t number = 0;   // from 0
  uint32_t segment = 0;  // of a label map 0
  std::optional<ImagePlane> plane;
  double depth = 0;  // of its plane along its normal
  References references;
};

// Whether two frames, in order of depth, lie in planes of their own: places come rounded.
bool apart(const SegmentFrame& upper, const SegmentFrame& lower) {
  if (!upper.plane || !lower.plane) return false;
  return lower.depth - upper.depth > std::min(upper.plane->row_spacing, upper.plane->column_spacing) / 10;
}

// A frame at work: how it is seen from the picture, and the distances from its plane at which it counts.
struct Placed {
  const SegmentFrame* frame;
  Mapping mapping;
  double low = -1;
  double high = 1;
};

class SegmentationLayer : public Layer {
 public:
  SegmentationLayer(const Ground& ground, LayerChoices& choices)
      : ground_(ground), choices_(choices), sources_(ground.instance) {}
  std::string open(const std::string& path);
  std::string draw(const Slice& slice, Picture& picture, bool& drawn) override;

 private:
  std::string read_frames();
  void read_frame(const Planes& planes, SegmentFrame& frame);
  void read_references(const FunctionalGroups& groups, SegmentFrame& frame);
  double reach(const ImagePlane& plane, const ImagePlane& ground) const;
  std::vector<Placed> place(const Slice& slice);
  void share_out(std::vector<Placed>& placed) const;
  std::string cover(const Placed& placed, const Picture& picture);
  std::string show(std::vector<Placed>::const_iterator from, std::vector<Placed>::const_iterator to,
                   Picture& picture, bool& drawn);

  const Ground& ground_;
  LayerChoices& choices_;
  Sources sources_;
  PixelImage image_;
  Segments segments_;
  std::vector<SegmentFrame> frames_;  // by segment, then by depth
  bool same_reference_ = false;       // its places and the image's are in one frame of reference
  std::string no_place_;              // of a frame, why
  double spacing_ = 0;                // of its planes, where no frame tells
  // Of the picture's pixels: how much of a segment is in them, from 0 to 255, and of which label.
  std::vector<uint8_t> share_;
  std::vector<uint16_t> label_;
};

std::string SegmentationLayer::open(const std::string& path) {
  if (std::string problem = image_.open(path); !problem.empty()) return problem;
  if (std::string problem = segments_.open(image_, choices_.segments, faults_); !problem.empty())
    return problem;
  return read_frames();
}

void SegmentationLayer::read_references(const FunctionalGroups& groups, SegmentFrame& frame) {
  for (const int32_t item : groups.items(frame.number, tags::kDerivationImageSequence))
    sources_.read(sequence_items(item, tags::kSourceImageSequence), frame.references);
}

void SegmentationLayer::read_frame(const Planes& planes, SegmentFrame& frame) {
  if (!segments_.label_map()) {
    const int32_t group = planes.groups().item(frame.number, tags::kSegmentIdentificationSequence);
    const auto number = whole_of(group, tags::kReferencedSegmentNumber, kSegmentNumbers - 1);
    if (!number && segments_.count() > 1)
      fault("frame " + std::to_string(frame.number + 1) + " names no segment");
    frame.segment = number.value_or(segments_.first());
    segments_.at(frame.segment);  // tells if there is no such segment
  }
  read_references(planes.groups(), frame);
  ImagePlane plane;
  const std::string fault = planes.read(frame.number, plane);
  if (fault.empty()) {
    frame.plane = plane;
    frame.depth = dot(plane.origin, plane.normal);
  } else if (no_place_.empty()) {
    no_place_ = fault;
  }
}

std::string SegmentationLayer::read_frames() {
  const int32_t id = image_.file().id();
  for (const int32_t series : sequence_items(id, tags::kReferencedSeriesSequence))
    sources_.list(sequence_items(series, tags::kReferencedInstanceSequence));
  sources_.list(sequence_items(id, tags::kSourceImageSequence));
  const Planes planes(id, image_.description().frames);
  const std::string& own = planes.frame_of_reference();
  const std::string& grounds = ground_.planes.frame_of_reference();
  if (!own.empty() && !grounds.empty() && own != grounds)
    return "its frame of reference is not that of the image";
  same_reference_ = !own.empty() && own == grounds;
  frames_.resize(image_.description().frames);
  for (uint32_t i = 0; i < frames_.size(); ++i) {
    frames_[i].number = i;
    read_frame(planes, frames_[i]);
  }
  std::stable_sort(frames_.begin(), frames_.end(), [](const SegmentFrame& a, const SegmentFrame& b) {
    return a.segment != b.segment ? a.segment < b.segment : a.depth < b.depth;
  });
  double least = std::numeric_limits<double>::max();
  for (std::size_t i = 1; i < frames_.size(); ++i) {
    if (frames_[i].segment == frames_[i - 1].segment && apart(frames_[i - 1], frames_[i]))
      least = std::min(least, frames_[i].depth - frames_[i - 1].depth);
  }
  if (least < std::numeric_limits<double>::max()) spacing_ = least;
  return "";
}

// How far from a frame's plane its segment goes.
double SegmentationLayer::reach(const ImagePlane& plane, const ImagePlane& ground) const {
  double spacing = plane.slice_spacing;
  for (const double other : {spacing_, plane.thickness}) {
    if (plane.slice_spacing <= 0 && other > 0) spacing = spacing > 0 ? std::min(spacing, other) : other;
  }
  return spacing > 0 ? spacing / 2 : ground.half_slice();
}

// The frames that may show in a slice, in their order.
std::vector<Placed> SegmentationLayer::place(const Slice& slice) {
  const ImageDescription& d = image_.description();
  std::vector<Placed> placed;
  for (const SegmentFrame& frame : frames_) {
    if (!segments_.label_map() && !segments_.at(frame.segment).shown) continue;
    if (!sources_.allows(frame.references, slice.frame)) continue;
    Placed one{&frame, {}};
    if (same_reference_ && slice.plane && frame.plane) {
      one.mapping = Mapping(*slice.plane, *frame.plane);
      one.high = reach(*frame.plane, *slice.plane);
      one.low = -one.high;
      if (!meets(one.mapping, ground_.width, ground_.height, one.low, one.high)) {
        if (frame.references.only_here() && frame.references.here(slice.frame))
          fault("frame " + std::to_string(frame.number + 1) + " refers to the image, but lies elsewhere");
        continue;
      }
    } else if (!frame.references.here(slice.frame)) {
      continue;
    } else if (d.columns != ground_.width || d.rows != ground_.height) {
      fault("frame " + std::to_string(frame.number + 1) +
            " refers to the image, but is of another size, and nothing tells where it lies");
      continue;
    }
    placed.push_back(one);
  }
  share_out(placed);
  return placed;
}

// Where two planes of a segment are near, each has what is nearer to it.
void SegmentationLayer::share_out(std::vector<Placed>& placed) const {
  const auto narrow = [&](std::size_t at, std::size_t other) {
    const SegmentFrame& a = *placed[at].frame;
    const SegmentFrame& b = *placed[other].frame;
    if (!a.plane || !b.plane || dot(a.plane->normal, b.plane->normal) < 0.9999) return;
    const double middle = (b.depth - a.depth) / 2;
    if (middle > 0) placed[at].high = std::min(placed[at].high, middle);
    if (middle < 0) placed[at].low = std::max(placed[at].low, middle);
  };
  // Frames at one place stand side by side; next to them are the neighbours that count.
  for (std::size_t first = 0; first < placed.size();) {
    std::size_t behind = first + 1;
    const auto same = [&](std::size_t a, std::size_t b) {
      return b < placed.size() && placed[a].frame->segment == placed[b].frame->segment;
    };
    while (same(first, behind) && !apart(*placed[first].frame, *placed[behind].frame)) ++behind;
    for (std::size_t i = first; i < behind; ++i) {
      if (same(i, behind)) narrow(i, behind);
      if (first > 0 && same(first - 1, i)) narrow(i, first - 1);
    }
    first = behind;
  }
}

// What a frame has of its segment, or of all labels, in the pixels of the picture.
std::string SegmentationLayer::cover(const Placed& placed, const Picture& picture) {
  const ImageDescription& d = image_.description();
  constexpr double kHair = 1e-6;  // so that a grid that is off by a rounding error stays where it is
  const Box box{{-0.5 + kHair, -0.5 + kHair, placed.low},
                {d.columns - 0.5 - kHair, d.rows - 0.5 - kHair, placed.high}};
  Bytes bytes;
  std::string problem;
  for_each_inside(placed.mapping, picture.width, picture.height, box,
                  [&](uint32_t column, uint32_t row, const Vector& place) {
                    if (!problem.empty()) return;
                    if (bytes.empty()) problem = image_.frame(placed.frame->number, bytes);
                    if (!problem.empty()) return;
                    const auto x = static_cast<std::size_t>(place.x + 0.5 + kHair);
                    const auto y = static_cast<std::size_t>(place.y + 0.5 + kHair);
                    const std::size_t at = y * d.columns + x;
                    const uint32_t value = StoredSamples(d, bytes.data()).bits(at);
                    const std::size_t pixel = std::size_t{row} * picture.width + column;
                    if (segments_.label_map()) {
                      share_[pixel] = 255;
                      label_[pixel] = static_cast<uint16_t>(value);
                    } else if (value != 0) {
                      share_[pixel] = std::max(share_[pixel], segments_.share(value));
                    }
                  });
  if (const std::string finding = image_.finding(); !finding.empty()) fault(finding);
  if (!image_.missing_frames().empty()) fault(image_.missing_frames());
  return problem.empty() ? "" : "frame " + std::to_string(placed.frame->number + 1) + ": " + problem;
}

// All frames of one segment, or of a label map.
std::string SegmentationLayer::show(std::vector<Placed>::const_iterator from,
                                    std::vector<Placed>::const_iterator to, Picture& picture, bool& drawn) {
  const std::size_t pixels = std::size_t{picture.width} * picture.height;
  const uint32_t only = from->frame->segment;
  share_.assign(pixels, 0);
  if (segments_.label_map()) label_.resize(pixels);
  for (; from != to; ++from) {
    if (std::string problem = cover(*from, picture); !problem.empty()) return problem;
  }
  uint32_t last = kSegmentNumbers;
  Segment look;
  for (std::size_t i = 0; i < pixels; ++i) {
    if (share_[i] == 0) continue;
    const uint32_t number = segments_.label_map() ? label_[i] : only;
    if (number != last) look = segments_.at(number);
    last = number;
    if (!look.shown) continue;
    drawn = true;
    blend(picture, i, look.colour, choices_.opacity * share_[i] / 255);
  }
  return "";
}

std::string SegmentationLayer::draw(const Slice& slice, Picture& picture, bool& drawn) {
  const bool refers = std::any_of(frames_.begin(), frames_.end(), [&](const SegmentFrame& frame) {
    return frame.references.here(slice.frame);
  });
  if (!refers && !sources_.known()) {
    if (!same_reference_)
      return "nothing tells that it belongs to the image: neither a reference nor a frame of reference";
    if (!slice.plane) return "no frame of it refers to the image, and of the image " + slice.no_plane;
    if (!no_place_.empty()) return no_place_;
  }
  const std::vector<Placed> placed = place(slice);
  for (auto from = placed.begin(); from != placed.end();) {
    const auto to = std::find_if(
        from, placed.end(), [&](const Placed& one) { return one.frame->segment != from->frame->segment; });
    if (std::string problem = show(from, to, picture, drawn); !problem.empty()) return problem;
    from = to;
  }
  return "";
}

}  // namespace

std::unique_ptr<Layer> open_segmentation(const std::string& path, const Ground& ground, LayerChoices& choices,
                                         std::string& problem) {
  auto layer = std::make_unique<SegmentationLayer>(ground, choices);
  problem = layer->open(path);
  if (!problem.empty()) return nullptr;
  return layer;
}

}  // namespace vexal
