// What a presentation state draws over an image: graphic layers with overlays, graphics and texts (PS3.3
// sections C.10.5, C.10.7 and C.11.7).
#include <algorithm>
#include <cmath>

#include "base/attributes.h"
#include "base/object_values.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/values.h"
#include "drawing/letters.h"
#include "presentation.h"
#include "rendering/colour.h"
#include "rendering/geometry.h"
#include "rendering/graphic_style.h"
#include "rendering/overlays.h"

namespace vexal {
namespace {

constexpr std::size_t kMostPoints = 65536;
constexpr std::size_t kMostLines = 1000;  // of a text

struct GraphicLayer {
  std::string name;
  double order = 0;
  Shade colour{255, 255, 255};
  bool coloured = false;
};

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

double usual_thickness(const Picture& picture) {
  return std::max(1.0, std::round(std::min(picture.width, picture.height) / 512.0));
}

// Draws with an ink that may let through what is below: then all at once, so that no part counts twice.
template <typename Draw>
void draw_with(const Ink& ink, double thickness, Picture& picture, Draw draw) {
  if (is_coloured(ink.colour) && picture.bits == 8) to_colour(picture);
  if (ink.opacity >= 1) {
    Canvas canvas(picture, ink.colour, thickness);
    draw(canvas);
  } else if (ink.opacity > 0) {
    Picture mask;
    mask.width = picture.width;
    mask.height = picture.height;
    mask.bytes.assign(std::size_t{mask.width} * mask.height, 0);
    Canvas canvas(mask, {1, 1, 1}, thickness);
    draw(canvas);
    lay_over(picture, mask, ink.colour, ink.opacity);
  }
}

// The shadow of what draw(canvas, x, y) draws that far from its place.
template <typename Draw>
void draw_shadow(const ShadowStyle& shadow, double thickness, Picture& picture, Draw draw) {
  if (shadow.form == ShadowStyle::Form::kNone) return;
  const bool outlined = shadow.form == ShadowStyle::Form::kOutlined;
  const double usual = usual_thickness(picture);
  draw_with(shadow.ink, outlined ? thickness + 2 * usual : thickness, picture, [&](Canvas& canvas) {
    draw(canvas, outlined ? 0 : shadow.x * usual, outlined ? 0 : shadow.y * usual);
  });
}

std::vector<Point> moved(std::vector<Point> points, double x, double y) {
  for (Point& point : points) point = {point.x + x, point.y + y};
  return points;
}

void fill(const FillStyle& style, const std::vector<Point>& points, Picture& picture) {
  if (style.pattern.empty()) {
    draw_with(style.ink, 1, picture, [&](Canvas& canvas) { canvas.fill(points); });
    return;
  }
  Picture whole;
  whole.width = picture.width;
  whole.height = picture.height;
  whole.bytes.assign(std::size_t{whole.width} * whole.height, 0);
  Canvas(whole, {1, 1, 1}).fill(points);
  for (const bool on : {true, false}) {
    const std::optional<Ink> ink = on ? style.ink : style.gaps;
    if (!ink) continue;
    if (is_coloured(ink->colour) && picture.bits == 8) to_colour(picture);
    Picture mask = whole;
    for (std::size_t i = 0; i < mask.bytes.size(); ++i) {  // the highest bit of a byte is the leftmost
      const std::size_t x = i % mask.width % 32;
      const std::size_t y = i / mask.width % 32;
      const bool set = ((static_cast<uint8_t>(style.pattern[4 * y + x / 8]) >> (7 - x % 8)) & 1U) != 0;
      if (set != on) mask.bytes[i] = 0;
    }
    lay_over(picture, mask, ink->colour, ink->opacity);
  }
}

void draw_line(const LineStyle& style, const std::vector<Point>& points, double thickness, Picture& picture) {
  if (style.gaps) {
    draw_with(*style.gaps, thickness, picture, [&](Canvas& canvas) {
      canvas.set_dashes(~style.pattern, thickness);
      canvas.line_through(points);
    });
  }
  draw_with(style.ink, thickness, picture, [&](Canvas& canvas) {
    canvas.set_dashes(style.pattern, thickness);
    canvas.line_through(points);
  });
}

// Lines of text between two corners, or from the first of them on.
void draw_lines(const std::vector<std::string>& lines, const TextStyle& style, const Point& low,
                const Point& high, bool boxed, Picture& picture) {
  const double usual = usual_thickness(picture);
  std::size_t longest = 1;
  for (const std::string& line : lines) longest = std::max(longest, line.size());
  const auto rows = static_cast<double>(lines.size());
  const double room_below = kLineHeight - 8;  // of the last line, whose letters reach down eight units
  double unit = usual;
  if (boxed) {
    const double wide = (high.x - low.x) / (kLetterWidth * static_cast<double>(longest));
    const double tall = (high.y - low.y) / (kLineHeight * rows);
    unit = std::clamp(std::min(wide, tall), usual, 4 * usual);
  }
  const auto share = [boxed](const std::string& where, const char* middle, const char* end) {
    return !boxed ? 0 : where == end ? 1 : where == middle ? 0.5 : 0;
  };
  const double across = share(style.across, "CENTER", "RIGHT");
  const double top = low.y + share(style.down, "CENTER", "BOTTOM") *
                                 (high.y - low.y - unit * (kLineHeight * rows - room_below));
  const double thickness = std::max(1.0, std::floor(unit * (style.bold ? 2 : 1)));
  const auto draw = [&](Canvas& canvas, double x, double y) {
    for (std::size_t i = 0; i < lines.size(); ++i) {
      const double width = Canvas::text_width(lines[i], unit);
      const Point at{low.x + x + across * (high.x - low.x - width),
                     top + y + kLineHeight * unit * static_cast<double>(i)};
      canvas.text(at, unit, lines[i], style.italic ? 0.2 : 0);
      if (style.underlined) canvas.line({at.x, at.y + 8 * unit}, {at.x + width - unit, at.y + 8 * unit});
    }
  };
  draw_shadow(style.shadow, thickness, picture, draw);
  draw_with(style.ink, thickness, picture, [&](Canvas& canvas) { draw(canvas, 0, 0); });
}

// Whether an item of graphics or texts stands for a compound graphic, as it has to for those that draw none.
bool has_plain_form(int32_t annotation, int32_t compound) {
  const std::string name = text_of(compound, tags::kCompoundGraphicInstanceID);
  for (const uint32_t sequence : {tags::kGraphicObjectSequence, tags::kTextObjectSequence}) {
    for (const int32_t item : sequence_items(annotation, sequence)) {
      if (!name.empty() && text_of(item, tags::kCompoundGraphicInstanceID) == name) return true;
    }
  }
  return false;
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
      if (text_of(item, tags::kGraphicLayer) != layer.name || !is_about(item, name())) continue;
      draw_graphics(item, layer.colour, picture);
      draw_texts(item, layer.colour, picture);
      for (const int32_t compound : sequence_items(item, tags::kCompoundGraphicSequence)) {
        if (!has_plain_form(item, compound))
          leave_out("a compound graphic of type " + text_of(compound, tags::kCompoundGraphicType));
      }
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

// Points of what a graphic draws; false where it is none that can be drawn.
bool Presentation::outline(const std::string& kind, double arm, std::vector<std::vector<Point>>& strokes) {
  std::vector<Point>& points = strokes[0];
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
    strokes = {{{at.x - arm, at.y}, {at.x + arm, at.y}}, {{at.x, at.y - arm}, {at.x, at.y + arm}}};
  } else if (kind != "POLYLINE") {
    leave_out("a graphic of type " + (kind.empty() ? "none" : kind));
    return false;
  }
  return true;
}

void Presentation::draw_graphics(int32_t item, const Shade& colour, Picture& picture) {
  for (const int32_t graphic : sequence_items(item, tags::kGraphicObjectSequence)) {
    std::vector<std::vector<Point>> strokes(1);
    if (!places_of(graphic, tags::kGraphicData, tags::kGraphicAnnotationUnits, picture, strokes[0])) continue;
    const std::string kind = text_of(graphic, tags::kGraphicType);
    const LineStyle style = line_style(graphic, colour);
    const double thickness = style.thickness * usual_thickness(picture);
    if (!outline(kind, 3 * thickness, strokes)) continue;
    const bool filled = text_of(graphic, tags::kGraphicFilled) == "Y" && kind != "POINT";
    draw_shadow(style.shadow, thickness, picture, [&](Canvas& canvas, double x, double y) {
      for (const std::vector<Point>& stroke : strokes) {
        const std::vector<Point> points = moved(stroke, x, y);
        if (filled) canvas.fill(points);
        canvas.line_through(points);
      }
    });
    for (const std::vector<Point>& stroke : strokes) {
      if (filled) fill(fill_style(graphic, style), stroke, picture);
      draw_line(style, stroke, thickness, picture);
    }
  }
}

// In a box, a text is as large as fits; at an anchor it begins there.
void Presentation::draw_texts(int32_t item, const Shade& colour, Picture& picture) {
  for (const int32_t text : sequence_items(item, tags::kTextObjectSequence)) {
    const std::vector<std::string> lines = lines_of(text_of(text, tags::kUnformattedTextValue));
    const double usual = usual_thickness(picture);
    std::vector<Point> first;
    std::vector<Point> last;
    std::vector<Point> anchor;
    const bool anchored =
        places_of(text, tags::kAnchorPoint, tags::kAnchorPointAnnotationUnits, picture, anchor);
    const bool boxed = places_of(text, tags::kBoundingBoxTopLeftHandCorner, tags::kBoundingBoxAnnotationUnits,
                                 picture, first) &&
                       places_of(text, tags::kBoundingBoxBottomRightHandCorner,
                                 tags::kBoundingBoxAnnotationUnits, picture, last);
    if (!boxed && !anchored) continue;
    Point low = boxed ? first[0] : anchor[0];
    Point high = boxed ? last[0] : anchor[0];
    if (low.x > high.x) std::swap(low.x, high.x);
    if (low.y > high.y) std::swap(low.y, high.y);
    TextStyle style = text_style(text, colour);
    if (style.across.empty()) style.across = text_of(text, tags::kBoundingBoxTextHorizontalJustification);
    draw_lines(lines, style, low, high, boxed, picture);
    if (!anchored || !boxed || text_of(text, tags::kAnchorPointVisibility) != "Y") continue;
    const Point near{std::clamp(anchor[0].x, low.x, high.x), std::clamp(anchor[0].y, low.y, high.y)};
    draw_with(style.ink, usual, picture, [&](Canvas& canvas) { canvas.line(anchor[0], near); });
  }
}

}  // namespace vexal
