// What a presentation state draws over an image: graphic layers with overlays, graphics and texts (PS3.3
// sections C.10.5, C.10.7 and C.11.7).
#include <algorithm>
#include <cmath>

#include "base/attributes.h"
#include "base/object_values.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/values.h"
#include "drawing/lab.h"
#include "drawing/letters.h"
#include "presentation.h"
#include "rendering/colour.h"
#include "rendering/geometry.h"
#include "rendering/overlays.h"

namespace vexal {
namespace {

using Shade = std::array<uint8_t, 3>;
constexpr std::size_t kMostPoints = 65536;
constexpr std::size_t kMostLines = 1000;  // of a text

struct GraphicLayer {
  std::string name;
  double order = 0;
  Shade colour{255, 255, 255};
  bool coloured = false;
};

Shade lab_of(int32_t item, uint32_t tag, const Shade& otherwise) {
  const std::vector<double> lab = reals_of(item, tag);
  return lab.size() == 3 ? from_lab(lab) : otherwise;
}

bool is_coloured(const Shade& shade) {
  return shade[0] != shade[1] || shade[1] != shade[2];
}

std::vector<GraphicLayer> read_layers(int32_t id) {
  std::vector<GraphicLayer> layers;
  for (const int32_t item : sequence_items(id, tags::kGraphicLayerSequence)) {
    GraphicLayer layer;
    layer.name = text_of(item, tags::kGraphicLayer);
    layer.order = real_of(item, tags::kGraphicLayerOrder).value_or(0);
    const uint32_t grey = number_of(item, tags::kGraphicLayerRecommendedDisplayGrayscaleValue, 65535);
    layer.colour.fill(static_cast<uint8_t>(std::min(grey, 65535U) >> 8));
    layer.colour = lab_of(item, tags::kGraphicLayerRecommendedDisplayCIELabValue, layer.colour);
    layers.push_back(layer);
  }
  std::stable_sort(layers.begin(), layers.end(),
                   [](const GraphicLayer& a, const GraphicLayer& b) { return a.order < b.order; });
  return layers;
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines(1);
  for (const char c : text) {
    if (c == '\n' && lines.size() < kMostLines) lines.emplace_back();
    if (c != '\n' && c != '\r') lines.back() += c;
  }
  return lines;
}

}  // namespace

void Presentation::draw_layers(Picture& picture) {
  std::vector<GraphicLayer> layers = read_layers(file_.id());
  const std::vector<int32_t> annotations = sequence_items(file_.id(), tags::kGraphicAnnotationSequence);
  for (const int32_t item : annotations) {  // what lies in no layer that is told of comes last
    const std::string name = text_of(item, tags::kGraphicLayer);
    const bool known = std::any_of(layers.begin(), layers.end(),
                                   [&](const GraphicLayer& layer) { return layer.name == name; });
    if (!known) layers.push_back({name});
  }
  for (const GraphicLayer& layer : layers) {
    if (is_coloured(layer.colour) && picture.bits == 8) to_colour(picture);
    draw_overlays(layer.name, layer.colour, picture);
    for (const int32_t item : annotations) {
      if (text_of(item, tags::kGraphicLayer) != layer.name || !applies(item)) continue;
      draw_graphics(item, layer.colour, picture);
      draw_texts(item, layer.colour, picture);
      if (has_attribute(item, tags::kCompoundGraphicSequence)) leave_out("compound graphics");
    }
  }
}

// Planes of the state itself or of the image, each pixel as large as one of the image.
void Presentation::draw_overlays(const std::string& layer, const Shade& colour, Picture& picture) const {
  Canvas canvas(picture, colour);
  for (uint32_t group = kFirstOverlay; group <= kLastOverlay; group += kNextOverlay) {
    if (text_of(file_.id(), group | 0x1001) != layer) continue;
    Overlay overlay;
    if (!overlay.read(file_.id(), group, image_->description(), frame_, nullptr) &&
        !overlay.read(image_->file().id(), group, image_->description(), frame_, &bytes_))
      continue;
    overlay.each([&](uint32_t column, uint32_t row) {
      const double x = column;
      const double y = row;
      const Point a = area_.place({x, y}, picture.width, picture.height);
      const Point b = area_.place({x + 1, y + 1}, picture.width, picture.height);
      const auto edge = [](double value) { return std::llround(value); };
      canvas.box(edge(std::min(a.x, b.x)), edge(std::min(a.y, b.y)), edge(std::max(a.x, b.x)),
                 edge(std::max(a.y, b.y)));
    });
  }
}

bool Presentation::places_of(int32_t item, uint32_t tag, uint32_t units, const Picture& picture,
                             std::vector<Point>& points) {
  points.clear();
  const std::vector<double> numbers = reals_of(item, tag);
  const std::string unit = text_of(item, units);
  if (numbers.empty()) return false;
  if ((unit != "PIXEL" && unit != "DISPLAY") || numbers.size() > 2 * kMostPoints) {
    leave_out(unit == "PIXEL" || unit == "DISPLAY" ? "graphics of very many points"
                                                   : "graphics in units of " + unit);
    return false;
  }
  for (std::size_t i = 0; i + 1 < numbers.size(); i += 2) {
    const Point at{numbers[i], numbers[i + 1]};
    points.push_back(unit == "DISPLAY" ? Point{at.x * picture.width, at.y * picture.height}
                                       : area_.place(at, picture.width, picture.height));
  }
  return !points.empty();
}

// What of the style of a graphic or a text the picture does not have.
void Presentation::look_at_style(int32_t style) {
  if (text_of(style, tags::kLineDashingStyle) == "DASHED") leave_out("dashes of lines");
  const std::string shadow = text_of(style, tags::kShadowStyle);
  if (!shadow.empty() && shadow != "OFF") leave_out("shadows");
}

void Presentation::draw_graphics(int32_t item, const Shade& colour, Picture& picture) {
  for (const int32_t graphic : sequence_items(item, tags::kGraphicObjectSequence)) {
    std::vector<Point> points;
    if (!places_of(graphic, tags::kGraphicData, tags::kGraphicAnnotationUnits, picture, points)) continue;
    const std::string kind = text_of(graphic, tags::kGraphicType);
    const int32_t style = item_of(graphic, tags::kLineStyleSequence);
    look_at_style(style);
    const bool filled = text_of(graphic, tags::kGraphicFilled) == "Y";
    if (filled && has_attribute(graphic, tags::kFillStyleSequence)) leave_out("styles of fillings");
    const Shade own = lab_of(style, tags::kPatternOnColorCIELabValue, colour);
    if (is_coloured(own) && picture.bits == 8) to_colour(picture);
    const double usual = std::max(1.0, std::round(std::min(picture.width, picture.height) / 512.0));
    const double thickness = std::clamp(real_of(style, tags::kLineThickness).value_or(1), 1.0, 64.0) * usual;
    Canvas canvas(picture, own, thickness);
    if (kind == "CIRCLE" && points.size() == 2) {
      const double radius = std::hypot(points[1].x - points[0].x, points[1].y - points[0].y);
      points = ellipse_points(points[0], radius, radius, 0);
    } else if (kind == "ELLIPSE" && points.size() == 4) {
      const Point middle{(points[0].x + points[1].x) / 2, (points[0].y + points[1].y) / 2};
      const double angle = std::atan2(points[1].y - points[0].y, points[1].x - points[0].x);
      points = ellipse_points(middle, std::hypot(points[1].x - points[0].x, points[1].y - points[0].y) / 2,
                              std::hypot(points[3].x - points[2].x, points[3].y - points[2].y) / 2, angle);
    } else if (kind == "INTERPOLATED") {
      points = curve_points(points);
    } else if (kind == "POINT" && points.size() == 1) {
      const Point at = points[0];
      const double arm = 3 * thickness;
      canvas.line({at.x - arm, at.y}, {at.x + arm, at.y});
      canvas.line({at.x, at.y - arm}, {at.x, at.y + arm});
      continue;
    } else if (kind != "POLYLINE") {
      leave_out("a graphic of type " + (kind.empty() ? "none" : kind));
      continue;
    }
    if (filled) canvas.fill(points);
    canvas.line_through(points);
  }
}

// In a box, a text is as large as fits; at an anchor it begins there.
void Presentation::draw_texts(int32_t item, const Shade& colour, Picture& picture) {
  for (const int32_t text : sequence_items(item, tags::kTextObjectSequence)) {
    const std::vector<std::string> lines = lines_of(text_of(text, tags::kUnformattedTextValue));
    const double usual = std::max(1.0, std::round(std::min(picture.width, picture.height) / 512.0));
    std::size_t longest = 1;
    for (const std::string& line : lines) longest = std::max(longest, line.size());
    std::vector<Point> first;
    std::vector<Point> last;
    std::vector<Point> anchor;
    const bool anchored =
        places_of(text, tags::kAnchorPoint, tags::kAnchorPointAnnotationUnits, picture, anchor);
    if (has_attribute(text, tags::kTextStyleSequence)) leave_out("styles of texts");
    const bool boxed = places_of(text, tags::kBoundingBoxTopLeftHandCorner, tags::kBoundingBoxAnnotationUnits,
                                 picture, first) &&
                       places_of(text, tags::kBoundingBoxBottomRightHandCorner,
                                 tags::kBoundingBoxAnnotationUnits, picture, last);
    if (!boxed && !anchored) continue;
    Point low = boxed ? first[0] : anchor[0];
    Point high = boxed ? last[0] : anchor[0];
    if (low.x > high.x) std::swap(low.x, high.x);
    if (low.y > high.y) std::swap(low.y, high.y);
    double unit = usual;
    if (boxed) {
      const double wide = (high.x - low.x) / (kLetterWidth * static_cast<double>(longest));
      const double tall = (high.y - low.y) / (kLineHeight * static_cast<double>(lines.size()));
      unit = std::clamp(std::min(wide, tall), usual, 4 * usual);
    }
    const std::string side = text_of(text, tags::kBoundingBoxTextHorizontalJustification);
    Canvas canvas(picture, colour, std::max(1.0, std::floor(unit)));
    for (std::size_t i = 0; i < lines.size(); ++i) {
      const double room = high.x - low.x - Canvas::text_width(lines[i], unit);
      const double shift = !boxed ? 0 : side == "RIGHT" ? room : side == "CENTER" ? room / 2 : 0;
      canvas.text({low.x + shift, low.y + kLineHeight * unit * static_cast<double>(i)}, unit, lines[i]);
    }
    if (!anchored || !boxed || text_of(text, tags::kAnchorPointVisibility) != "Y") continue;
    const Point near{std::clamp(anchor[0].x, low.x, high.x), std::clamp(anchor[0].y, low.y, high.y)};
    Canvas(picture, colour, usual).line(anchor[0], near);
  }
}

}  // namespace vexal
