#include "presentation.h"

#include <algorithm>
#include <cmath>

#include "base/attributes.h"
#include "base/names.h"
#include "base/object_values.h"
#include "base/tags.h"
#include "base/values.h"
#include "drawing/scale.h"
#include "rendering/colour.h"
#include "rendering/geometry.h"
#include "rendering/pixel_shape.h"
#include "rendering/shutters.h"

namespace vexal {
namespace {

constexpr char kGrey[] = "1.2.840.10008.5.1.4.1.1.11.1";
constexpr char kColour[] = "1.2.840.10008.5.1.4.1.1.11.2";
constexpr char kPseudoColour[] = "1.2.840.10008.5.1.4.1.1.11.3";
constexpr char kBlending[] = "1.2.840.10008.5.1.4.1.1.11.4";
constexpr char kAngiography[] = "1.2.840.10008.5.1.4.1.1.11.5";
constexpr const char* kShown[] = {kGrey, kColour, kPseudoColour, kBlending, kAngiography};
constexpr uint64_t kLargestDisplay = uint64_t{1} << 28;

// A part of a picture, black where it reaches beyond.
Picture cut(const Picture& from, const DisplayedArea& area) {
  Picture to;
  to.width = area.width;
  to.height = area.height;
  to.samples = from.samples;
  to.bits = from.bits;
  const std::size_t pixel = std::size_t{from.samples} * from.bits / 8;
  to.bytes.assign(std::size_t{to.width} * to.height * pixel, 0);
  const int64_t first = std::max<int64_t>(area.left, 0);
  const int64_t last = std::min<int64_t>(area.left + area.width, from.width);
  for (uint32_t y = 0; y < to.height && first < last; ++y) {
    const int64_t row = area.top + y;
    if (row < 0 || row >= from.height) continue;
    const auto source =
        (static_cast<std::size_t>(row) * from.width + static_cast<std::size_t>(first)) * pixel;
    const auto target = (std::size_t{y} * to.width + static_cast<std::size_t>(first - area.left)) * pixel;
    std::copy_n(from.bytes.data() + source, static_cast<std::size_t>(last - first) * pixel,
                to.bytes.data() + target);
  }
  return to;
}

// By 90 degrees clockwise so many times, then left to right.
Picture turned(const Picture& from, uint32_t turns, bool flip) {
  if (turns == 0 && !flip) return from;
  Picture to = from;
  if (turns % 2 == 1) {
    std::swap(to.width, to.height);
    std::swap(to.across, to.down);
  }
  const std::size_t pixel = std::size_t{from.samples} * from.bits / 8;
  for (uint32_t y = 0; y < from.height; ++y) {
    for (uint32_t x = 0; x < from.width; ++x) {
      uint32_t column = turns == 0   ? x
                        : turns == 1 ? from.height - 1 - y
                        : turns == 2 ? from.width - 1 - x
                                     : y;
      const uint32_t row = turns == 0   ? y
                           : turns == 1 ? x
                           : turns == 2 ? from.height - 1 - y
                                        : from.width - 1 - x;
      if (flip) column = to.width - 1 - column;
      std::copy_n(from.bytes.data() + (std::size_t{y} * from.width + x) * pixel, pixel,
                  to.bytes.data() + (std::size_t{row} * to.width + column) * pixel);
    }
  }
  return to;
}

}  // namespace

Point DisplayedArea::place(Point image, double picture_width, double picture_height) const {
  const double x = (image.x - static_cast<double>(left)) * scale_x;
  const double y = (image.y - static_cast<double>(top)) * scale_y;
  Point at = turns == 0   ? Point{x, y}
             : turns == 1 ? Point{picture_width - y, x}
             : turns == 2 ? Point{picture_width - x, picture_height - y}
                          : Point{y, picture_height - x};
  if (flip) at.x = picture_width - at.x;
  return at;
}

void Presentation::leave_out(const std::string& what) {
  if (std::find(left_out_.begin(), left_out_.end(), what) == left_out_.end()) left_out_.push_back(what);
}

std::string Presentation::open(const std::string& path, PixelImage& image,
                               const std::vector<std::string>& others) {
  image_ = &image;
  instance_ = text_of(image.file().id(), tags::kSOPInstanceUID);
  if (file_.open(path, {}) != VX_NORMAL_COMPLETION) return file_.problem();
  const int32_t id = file_.id();
  const std::string kind = text_of(id, tags::kSOPClassUID);
  const bool known =
      std::any_of(std::begin(kShown), std::end(kShown), [&](const char* one) { return kind == one; });
  if (!known) return describe_uid(kind) + " is no presentation state that can be shown";
  if (kind == kBlending) {
    if (std::string problem = fusion_.emplace().open(id, image, others); !problem.empty()) return problem;
  } else if (!others.empty()) {
    return "it lays no other images over this one";
  }
  bool named = false;
  frames_ = frames_named(fusion_ ? fusion_->underlying() : id, instance_, image.description().frames, named);
  if (frames_.empty()) return named ? "it is about other frames of the image" : "it is about other images";
  const bool grey =
      image.description().samples == 1 && image.description().photometric.starts_with("MONOCHROME");
  if (grey != (kind != kColour)) return grey ? "it is for images in colour" : "it is for images in grey";
  if (has_attribute(id, tags::kMaskSubtractionSequence)) leave_out("the subtraction of a mask");
  if (has_attribute(id, tags::kReferencedSpatialRegistrationSequence)) leave_out("a spatial registration");
  return "";
}

std::string Presentation::choose(uint32_t frame) {
  if (!std::binary_search(frames_.begin(), frames_.end(), frame))
    return "it is about other frames of the image";
  frame_ = frame;
  return read_area();
}

std::string Presentation::render(const RenderOptions& options, Picture& picture) {
  const int32_t id = file_.id();
  const int32_t shades = fusion_ ? fusion_->underlying() : id;  // whose attributes make them
  GreySources sources;
  sources.image = image_->file().id();
  sources.modality = sources.rescale = sources.presentation = shades;
  sources.voi = sources.voi_table = item_about(shades, tags::kSoftcopyVOILUTSequence, name());
  sources.profile = id;
  sources.by_range = options.window == 0;
  RenderOptions own = options;
  const bool pseudo = text_of(id, tags::kSOPClassUID) == kPseudoColour;
  if (options.bits != 8 && (pseudo || fusion_)) return "only grey has 16 bits";
  if (pseudo) own.bits = 16;
  std::string problem = image_->show(frame_, sources, own, bytes_, picture);
  if (problem.empty() && pseudo) show_pseudo_colour(picture, problem);
  if (problem.empty() && fusion_) problem = show_fused(picture);
  if (problem.empty() && options.icc && (pseudo || fusion_)) profile_fault_ = apply_profile(id, picture);
  const int32_t of_frame = item_about(id, tags::kFrameDisplayShutterSequence, name());
  if (problem.empty() && options.shutters)
    draw_shutters({of_frame >= 0 ? of_frame : id, id, nullptr}, image_->description(), frame_,
                  pixel_shape(image_->file().id(), image_->groups(), frame_), picture);
  return problem;
}

std::string Presentation::show_fused(Picture& picture) {
  bool met = false;
  std::string problem = fusion_->draw(frame_, picture, met);
  if (!met)
    leave_out("what lies over frame " + std::to_string(frame_ + 1) + " (none of the images given does)");
  return problem;
}

// Shades become entries of the state's palette.
void Presentation::show_pseudo_colour(Picture& picture, std::string& problem) const {
  Palette palette;
  if (!palette.read(file_.id(), false)) {
    problem = "the palette of the presentation state is missing or broken";
    return;
  }
  const std::size_t pixels = std::size_t{picture.width} * picture.height;
  const auto* shades = reinterpret_cast<const uint16_t*>(picture.bytes.data());
  std::vector<uint8_t> colours(3 * pixels);
  for (std::size_t i = 0; i < pixels; ++i) {
    const std::array<uint8_t, 3> colour = palette_colour(palette, shades[i]);
    std::copy(colour.begin(), colour.end(), colours.begin() + static_cast<std::ptrdiff_t>(3 * i));
  }
  picture.bytes = std::move(colours);
  picture.samples = 3;
  picture.bits = 8;
}

// PS3.3 sections C.10.4 and C.10.6. Without an item for the frame, all of it is shown.
std::string Presentation::read_area() {
  area_ = {};
  const uint32_t rotation = number_of(file_.id(), tags::kImageRotation);
  if (rotation % 90 != 0) return "it turns the image by " + std::to_string(rotation) + " degrees";
  area_.turns = rotation / 90 % 4;
  area_.flip = text_of(file_.id(), tags::kImageHorizontalFlip) == "Y";
  area_.width = image_->description().columns;
  area_.height = image_->description().rows;
  const int32_t item = item_about(file_.id(), tags::kDisplayedAreaSelectionSequence, name());
  const std::vector<int32_t> first = integers_of(item, tags::kDisplayedAreaTopLeftHandCorner);
  const std::vector<int32_t> last = integers_of(item, tags::kDisplayedAreaBottomRightHandCorner);
  if (first.size() == 2 && last.size() == 2) {  // corners of what is displayed: turned, they may change sides
    area_.left = std::min<int64_t>(first[0], last[0]) - 1;
    area_.top = std::min<int64_t>(first[1], last[1]) - 1;
    const int64_t width = std::max<int64_t>(first[0], last[0]) - area_.left;
    const int64_t height = std::max<int64_t>(first[1], last[1]) - area_.top;
    if (static_cast<uint64_t>(width) > kLargestDisplay / static_cast<uint64_t>(height))
      return "its displayed area is too large";
    area_.width = static_cast<uint32_t>(width);
    area_.height = static_cast<uint32_t>(height);
  }
  PixelShape shape;
  shape.in_mm = read_shape(item, tags::kPresentationPixelSpacing, shape);
  if (!shape.in_mm) read_shape(item, tags::kPresentationPixelAspectRatio, shape);
  area_.across = shape.across;
  area_.down = shape.down;
  area_.in_mm = shape.in_mm;
  return read_magnification(item);
}

// A state in true size is as large as it says where dots are as near as was told; else the picture has a
// pixel for each of the image, and the file tells how large these are to be.
std::string Presentation::read_magnification(int32_t item) {
  const std::string mode = text_of(item, tags::kPresentationSizeMode);
  if (mode == "MAGNIFY")
    area_.magnification = real_of(item, tags::kPresentationPixelMagnificationRatio).value_or(1);
  if (mode == "TRUE SIZE" && !area_.in_mm) leave_out("the true size (nothing tells how large pixels are)");
  if (mode == "TRUE SIZE" && area_.in_mm && dots_per_mm_ > 0)
    area_.magnification = std::min(area_.across, area_.down) * dots_per_mm_;
  const double pixels =
      static_cast<double>(area_.width) * area_.height * area_.magnification * area_.magnification;
  if (!(area_.magnification > 0) || pixels > static_cast<double>(kLargestDisplay))
    return "its magnification is too large";
  return "";
}

void Presentation::display(Picture& picture) {
  picture = cut(picture, area_);
  if (area_.in_mm) {
    picture.across = area_.across;
    picture.down = area_.down;
  }
  make_square(picture, area_.across, area_.down);
  if (area_.magnification != 1) {
    const auto side = [this](uint32_t length) {
      return static_cast<uint32_t>(std::max(1L, std::lround(length * area_.magnification)));
    };
    picture = scaled(picture, side(picture.width), side(picture.height));
  }
  area_.scale_x = static_cast<double>(picture.width) / area_.width;
  area_.scale_y = static_cast<double>(picture.height) / area_.height;
  picture = turned(picture, area_.turns, area_.flip);
  draw_layers(picture);
}

}  // namespace vexal
