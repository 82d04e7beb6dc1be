#include "segments.h"

#include "base/tag_path.h"
#include "base/tags.h"
#include "base/values.h"
#include "drawing/lab.h"
#include "rendering/geometry.h"

namespace vexal {

std::string Segments::open(const PixelImage& image, Selection& wanted, Faults& faults) {
  wanted_ = &wanted;
  faults_ = &faults;
  const int32_t id = image.file().id();
  const std::string type = text_of(id, tags::kSegmentationType);
  label_map_ = type == "LABELMAP";
  if (!label_map_ && type != "BINARY" && type != "FRACTIONAL")
    return "it is no segmentation of pixels: its Segmentation Type is \"" + type + "\"";
  const ImageDescription& d = image.description();
  if (d.samples != 1 || d.allocated > 16 || d.real) return "its pixels are none of a segmentation";
  const std::vector<double> most = reals_of(id, tags::kMaximumFractionalValue);
  most_ = type == "FRACTIONAL" && !most.empty() && most[0] >= 1 ? most[0] : type == "FRACTIONAL" ? 255 : 1;
  if (d.photometric.starts_with("PALETTE")) {
    palette_.emplace();
    if (!palette_->read(id, d.is_signed)) return "its palette is missing or broken";
  }
  for (const int32_t item : sequence_items(id, tags::kSegmentSequence)) {
    const auto number = whole_of(item, tags::kSegmentNumber, kSegmentNumbers - 1);
    if (!number) {
      faults.add("a segment has no number");
      continue;
    }
    Segment segment;
    const std::vector<double> lab = reals_of(item, tags::kRecommendedDisplayCIELabValue);
    segment.colour = lab.size() == 3 ? from_lab(lab) : own_colour(*number);
    segment.shown = wanted.takes(*number, text_of(item, tags::kSegmentLabel));
    if (!segments_.emplace(*number, segment).second)
      faults.add("two segments have the number " + std::to_string(*number));
  }
  if (segments_.empty()) return "it has no Segment Sequence";
  // What a label map has where nothing is, if nobody asks for it; it need not be described.
  if (!label_map_) return "";
  const uint32_t nothing = whole_of(id, tags::kPixelPaddingValue, kSegmentNumbers - 1).value_or(0);
  for (const uint32_t number : {nothing, 0U}) segments_.try_emplace(number, Segment{{}, false});
  if (wanted.all()) segments_[nothing].shown = false;
  return "";
}

Colour Segments::own_colour(uint32_t number) const {
  if (!palette_) return distinct_colour(number - 1);
  Colour colour;
  for (std::size_t c = 0; c < 3; ++c) colour[c] = palette_->colours[c].byte(number);
  return colour;
}

const Segment& Segments::at(uint32_t number) {
  const auto found = segments_.find(number);
  if (found != segments_.end()) return found->second;
  faults_->add("segment " + std::to_string(number) + " is not described");
  return segments_.emplace(number, Segment{own_colour(number), wanted_->takes(number, "")}).first->second;
}

}  // namespace vexal
