#include "presentation.h"

#include <algorithm>
#include <cmath>

#include "base/attributes.h"
#include "base/names.h"
#include "base/object_values.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/values.h"
#include "drawing/lab.h"
#include "drawing/scale.h"
#include "rendering/colour.h"
#include "rendering/geometry.h"
#include "rendering/overlays.h"
#include "rendering/pixel_shape.h"

namespace vexal {
namespace {

constexpr char kGrey[] = "1.2.840.10008.5.1.4.1.1.11.1";
constexpr char kColour[] = "1.2.840.10008.5.1.4.1.1.11.2";
constexpr char kPseudoColour[] = "1.2.840.10008.5.1.4.1.1.11.3";
constexpr char kAngiography[] = "1.2.840.10008.5.1.4.1.1.11.5";
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

std::string Presentation::open(const std::string& path) {
  if (file_.open(path, {}) != VX_NORMAL_COMPLETION) return file_.problem();
  const std::string kind = text_of(file_.id(), tags::kSOPClassUID);
  for (const char* known : {kGrey, kColour, kPseudoColour, kAngiography}) {
    if (kind == known) return "";
  }
  return describe_uid(kind) + " is no presentation state that can be shown";
}

// Whether an item is about the frame: all are that name no images.
bool Presentation::applies(int32_t item) const {
  const std::vector<int32_t> images = sequence_items(item, tags::kReferencedImageSequence);
  return images.empty() || std::any_of(images.begin(), images.end(), [this](int32_t image) {
           if (text_of(image, tags::kReferencedSOPInstanceUID) != instance_) return false;
           const std::vector<int32_t> frames = integers_of(image, tags::kReferencedFrameNumber);
           return frames.empty() ||
                  std::find(frames.begin(), frames.end(), static_cast<int32_t>(frame_) + 1) != frames.end();
         });
}

int32_t Presentation::applying(uint32_t sequence) const {
  for (const int32_t item : sequence_items(file_.id(), sequence)) {
    if (applies(item)) return item;
  }
  return -1;
}

std::string Presentation::check_reference() const {
  bool other_frames = false;
  for (const int32_t series : sequence_items(file_.id(), tags::kReferencedSeriesSequence)) {
    for (const int32_t image : sequence_items(series, tags::kReferencedImageSequence)) {
      if (text_of(image, tags::kReferencedSOPInstanceUID) != instance_) continue;
      const std::vector<int32_t> frames = integers_of(image, tags::kReferencedFrameNumber);
      if (frames.empty() ||
          std::find(frames.begin(), frames.end(), static_cast<int32_t>(frame_) + 1) != frames.end())
        return "";
      other_frames = true;
    }
  }
  return other_frames ? "it is about other frames of the image" : "it is about other images";
}

std::string Presentation::choose(const PixelImage& image, uint32_t frame) {
  instance_ = text_of(image.file().id(), tags::kSOPInstanceUID);
  frame_ = frame;
  if (std::string problem = check_reference(); !problem.empty()) return problem;
  const bool grey =
      image.description().samples == 1 && image.description().photometric.starts_with("MONOCHROME");
  const std::string kind = text_of(file_.id(), tags::kSOPClassUID);
  if (grey != (kind != kColour)) return grey ? "it is for images in colour" : "it is for images in grey";
  if (has_attribute(file_.id(), tags::kMaskSubtractionSequence)) leave_out("the subtraction of a mask");
  return read_area(image);
}

std::string Presentation::render(PixelImage& image, const RenderOptions& options, Picture& picture) {
  const int32_t id = file_.id();
  GreySources sources;
  sources.image = image.file().id();
  sources.modality = sources.rescale = sources.presentation = id;
  sources.voi = sources.voi_table = applying(tags::kSoftcopyVOILUTSequence);
  sources.profile = id;
  sources.by_range = options.window == 0;
  RenderOptions own = options;
  const bool pseudo = text_of(id, tags::kSOPClassUID) == kPseudoColour;
  if (pseudo) own.bits = 16;
  std::string problem = image.show(frame_, sources, own, bytes_, picture);
  if (problem.empty() && pseudo) show_pseudo_colour(picture, problem);
  if (problem.empty()) draw_shutters(image, picture);
  return problem;
}

// Shades become entries of the state's palette, from its first to its last.
void Presentation::show_pseudo_colour(Picture& picture, std::string& problem) const {
  Palette palette;
  if (!palette.read(file_.id(), false)) {
    problem = "the palette of the presentation state is missing or broken";
    return;
  }
  const std::size_t pixels = std::size_t{picture.width} * picture.height;
  const auto* shades = reinterpret_cast<const uint16_t*>(picture.bytes.data());
  std::vector<uint8_t> colours(3 * pixels);
  for (std::size_t c = 0; c < 3; ++c) {
    const LookupTable& table = palette.colours[c];
    const double step = static_cast<double>(table.entries.size() - 1) / 65535;
    for (std::size_t i = 0; i < pixels; ++i)
      colours[3 * i + c] = table.byte(table.first + std::lround(shades[i] * step));
  }
  picture.bytes = std::move(colours);
  picture.samples = 3;
  picture.bits = 8;
  problem = apply_profile(file_.id(), picture);
}

// What lies outside of any of the shutters has one shade (PS3.3 sections C.7.6.11 and C.7.6.15).
void Presentation::draw_shutters(const PixelImage& image, Picture& picture) const {
  const int32_t id = file_.id();
  const std::string shapes = all_text_of(id, tags::kShutterShape);
  if (shapes.empty()) return;
  const auto has = [&](const char* shape) { return shapes.find(shape) != std::string::npos; };
  const auto shade =
      static_cast<uint8_t>(std::min(number_of(id, tags::kShutterPresentationValue), 65535U) >> 8);
  std::array<uint8_t, 3> colour{shade, shade, shade};
  const std::vector<double> lab = reals_of(id, tags::kShutterPresentationColorCIELabValue);
  if (lab.size() == 3 && picture.samples == 3) colour = from_lab(lab);
  Canvas canvas(picture, colour);
  const auto integer = [&](uint32_t tag, int64_t otherwise) {
    const std::vector<int32_t> values = integers_of(id, tag);
    return values.empty() ? otherwise : int64_t{values[0]};
  };
  if (has("RECTANGULAR")) {
    const int64_t left = integer(tags::kShutterLeftVerticalEdge, 1) - 1;
    const int64_t right = integer(tags::kShutterRightVerticalEdge, picture.width);
    const int64_t top = integer(tags::kShutterUpperHorizontalEdge, 1) - 1;
    const int64_t bottom = integer(tags::kShutterLowerHorizontalEdge, picture.height);
    canvas.box(0, 0, picture.width, top);
    canvas.box(0, bottom, picture.width, picture.height);
    canvas.box(0, 0, left, picture.height);
    canvas.box(right, 0, picture.width, picture.height);
  }
  const std::vector<int32_t> middle = integers_of(id, tags::kCenterOfCircularShutter);
  const std::vector<int32_t> corners = integers_of(id, tags::kVerticesOfThePolygonalShutter);
  Picture mask;  // of what the polygon leaves open
  if (has("POLYGONAL") && corners.size() >= 6) {
    mask.width = picture.width;
    mask.height = picture.height;
    mask.bytes.assign(std::size_t{mask.width} * mask.height, 0);
    std::vector<Point> points;
    for (std::size_t i = 0; i + 1 < corners.size(); i += 2)
      points.push_back({corners[i + 1] - 0.5, corners[i] - 0.5});
    Canvas inside(mask, {1, 1, 1});
    inside.fill(points);
    points.push_back(points[0]);
    inside.line_through(points);  // the edge is open too
  }
  if ((has("CIRCULAR") && middle.size() == 2) || !mask.bytes.empty()) {
    const PixelShape shape = pixel_shape(image.file().id(), image.groups(), frame_);
    const auto radius = static_cast<double>(integer(tags::kRadiusOfCircularShutter, 0));
    for (uint32_t y = 0; y < picture.height; ++y) {
      for (uint32_t x = 0; x < picture.width; ++x) {
        bool shut = !mask.bytes.empty() && mask.bytes[std::size_t{y} * mask.width + x] == 0;
        if (has("CIRCULAR") && middle.size() == 2) {
          const double dx = x + 1.0 - middle[1];
          const double dy = (y + 1.0 - middle[0]) * shape.down / shape.across;
          shut = shut || dx * dx + dy * dy > radius * radius;
        }
        if (shut) canvas.box(x, y, int64_t{x} + 1, int64_t{y} + 1);
      }
    }
  }
  Overlay overlay;
  const uint32_t group = number_of(id, tags::kShutterOverlayGroup) << 16;
  if (has("BITMAP") && overlay.read(id, group, image.description(), frame_, nullptr))
    overlay.each([&](uint32_t x, uint32_t y) { canvas.box(x, y, int64_t{x} + 1, int64_t{y} + 1); });
}

// PS3.3 sections C.10.4 and C.10.6. Without an item for the frame, all of it is shown.
std::string Presentation::read_area(const PixelImage& image) {
  area_ = {};
  const uint32_t rotation = number_of(file_.id(), tags::kImageRotation);
  if (rotation % 90 != 0) return "it turns the image by " + std::to_string(rotation) + " degrees";
  area_.turns = rotation / 90 % 4;
  area_.flip = text_of(file_.id(), tags::kImageHorizontalFlip) == "Y";
  area_.width = image.description().columns;
  area_.height = image.description().rows;
  const int32_t item = applying(tags::kDisplayedAreaSelectionSequence);
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
  if (text_of(item, tags::kPresentationSizeMode) == "MAGNIFY")
    area_.magnification = real_of(item, tags::kPresentationPixelMagnificationRatio).value_or(1);
  const double pixels =
      static_cast<double>(area_.width) * area_.height * area_.magnification * area_.magnification;
  if (!(area_.magnification > 0) || pixels > static_cast<double>(kLargestDisplay))
    return "its magnification is too large";
  return "";
}

std::string Presentation::display(const PixelImage& image, Picture& picture) {
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
  draw_layers(image, picture);
  return "";
}

}  // namespace vexal
