#include "shutters.h"

#include <algorithm>

#include "base/object_values.h"
#include "base/tags.h"
#include "base/values.h"
#include "drawing/canvas.h"
#include "drawing/lab.h"
#include "geometry.h"
#include "overlays.h"

namespace vexal {
namespace {

int64_t integer_of(int32_t id, uint32_t tag, int64_t otherwise) {
  const std::vector<int32_t> values = integers_of(id, tag);
  return values.empty() ? otherwise : int64_t{values[0]};
}

std::array<uint8_t, 3> colour_of(int32_t id, const Picture& picture) {
  const auto shade =
      static_cast<uint8_t>(std::min(number_of(id, tags::kShutterPresentationValue), 65535U) >> 8);
  const std::vector<double> lab = reals_of(id, tags::kShutterPresentationColorCIELabValue);
  return lab.size() == 3 && picture.samples == 3 ? from_lab(lab)
                                                 : std::array<uint8_t, 3>{shade, shade, shade};
}

void draw_rectangular(int32_t id, const Picture& picture, Canvas& canvas) {
  const int64_t left = integer_of(id, tags::kShutterLeftVerticalEdge, 1) - 1;
  const int64_t right = integer_of(id, tags::kShutterRightVerticalEdge, picture.width);
  const int64_t top = integer_of(id, tags::kShutterUpperHorizontalEdge, 1) - 1;
  const int64_t bottom = integer_of(id, tags::kShutterLowerHorizontalEdge, picture.height);
  canvas.box(0, 0, picture.width, top);
  canvas.box(0, bottom, picture.width, picture.height);
  canvas.box(0, 0, left, picture.height);
  canvas.box(right, 0, picture.width, picture.height);
}

// The radius is one of columns; on pixels that are not square it is as long down as across.
void draw_circular(int32_t id, const PixelShape& shape, const Picture& picture, Canvas& canvas) {
  const std::vector<int32_t> middle = integers_of(id, tags::kCenterOfCircularShutter);
  const auto radius = static_cast<double>(integer_of(id, tags::kRadiusOfCircularShutter, 0));
  if (middle.size() != 2) return;
  for (uint32_t y = 0; y < picture.height; ++y) {
    const double dy = (y + 1.0 - middle[0]) * shape.down / shape.across;
    for (uint32_t x = 0; x < picture.width; ++x) {
      const double dx = x + 1.0 - middle[1];
      if (dx * dx + dy * dy > radius * radius) canvas.box(x, y, int64_t{x} + 1, int64_t{y} + 1);
    }
  }
}

void draw_polygonal(int32_t id, const Picture& picture, Canvas& canvas) {
  const std::vector<int32_t> corners = integers_of(id, tags::kVerticesOfThePolygonalShutter);
  if (corners.size() < 6) return;
  Picture mask;  // of what the polygon leaves open
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
  for (uint32_t y = 0; y < picture.height; ++y) {
    for (uint32_t x = 0; x < picture.width; ++x) {
      if (mask.bytes[std::size_t{y} * mask.width + x] == 0) canvas.box(x, y, int64_t{x} + 1, int64_t{y} + 1);
    }
  }
}

}  // namespace

uint32_t shutter_overlay(int32_t id) {
  if (all_text_of(id, tags::kShutterShape).find("BITMAP") == std::string::npos) return 0;
  return number_of(id, tags::kShutterOverlayGroup) << 16;
}

void draw_shutters(const ShutterSource& source, const ImageDescription& image, uint32_t frame,
                   const PixelShape& shape, Picture& picture) {
  const std::string shapes = all_text_of(source.shapes, tags::kShutterShape);
  const auto has = [&](const char* word) { return shapes.find(word) != std::string::npos; };
  Canvas canvas(picture, colour_of(source.shapes, picture));
  if (has("RECTANGULAR")) draw_rectangular(source.shapes, picture, canvas);
  if (has("CIRCULAR")) draw_circular(source.shapes, shape, picture, canvas);
  if (has("POLYGONAL")) draw_polygonal(source.shapes, picture, canvas);
  Overlay overlay;
  const uint32_t group = shutter_overlay(source.shapes);
  if (group != 0 && overlay.read(source.planes, group, image, frame, source.frame))
    overlay.each([&](uint32_t x, uint32_t y) { canvas.box(x, y, int64_t{x} + 1, int64_t{y} + 1); });
}

}  // namespace vexal
