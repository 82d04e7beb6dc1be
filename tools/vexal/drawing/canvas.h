// Lines, areas and letters in a picture.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "picture.h"

namespace vexal {

// From the top left corner of a picture, in pixels: the first pixel lies between 0 and 1.
struct Point {
  double x = 0;
  double y = 0;
};

// Draws with one colour; what lies outside of the picture is left out.
class Canvas {
 public:
  // A picture in grey takes the first of the colours.
  Canvas(Picture& picture, const std::array<uint8_t, 3>& colour, double thickness = 1)
      : picture_(picture), colour_(colour), thickness_(thickness < 1 ? 1 : thickness) {}
  void line(Point from, Point to);
  void line_through(const std::vector<Point>& points);
  // What an odd number of edges lies left of; the last point is joined to the first.
  void fill(const std::vector<Point>& points);
  void box(int64_t left, int64_t top, int64_t right, int64_t bottom);  // right and bottom are outside
  // One line of text whose letters are six units high, from the top left corner of the first. What is no
  // ASCII is a box.
  void text(Point at, double unit, std::string_view text);
  static double text_width(std::string_view text, double unit);

 private:
  void dot(double x, double y);
  Picture& picture_;
  std::array<uint8_t, 3> colour_;
  double thickness_;
};

// Points along an ellipse with these half axes, turned by an angle.
std::vector<Point> ellipse_points(Point middle, double long_half, double short_half, double angle);
// A smooth curve through points.
std::vector<Point> curve_points(const std::vector<Point>& points);

}  // namespace vexal
