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
  // From here on lines are interrupted: of 32 parts, each `unit` pixels long, those are drawn whose bit is
  // set, the highest first.
  void set_dashes(uint32_t pattern, double unit) {
    dashes_ = pattern;
    unit_ = unit < 1 ? 1 : unit;
  }
  // `run`: how much of the line lies before.
  void line(Point from, Point to, double run = 0);
  void line_through(const std::vector<Point>& points);
  // What an odd number of edges lies left of; the last point is joined to the first.
  void fill(const std::vector<Point>& points);
  void box(int64_t left, int64_t top, int64_t right, int64_t bottom);  // right and bottom are outside
  // One line of text whose letters are six units high, from the top left corner of the first, leaning by
  // `slant` for each unit of height. What is no ASCII is a box.
  void text(Point at, double unit, std::string_view text, double slant = 0);
  static double text_width(std::string_view text, double unit);

 private:
  void dot(double x, double y);
  Picture& picture_;
  std::array<uint8_t, 3> colour_;
  double thickness_;
  uint32_t dashes_ = UINT32_MAX;
  double unit_ = 1;
};

// A colour over a picture where a mask of its size, in grey, is not black: as much of it as `opacity` says,
// from 0 to 1.
void lay_over(Picture& picture, const Picture& mask, const std::array<uint8_t, 3>& colour, double opacity);

// Points along an ellipse with these half axes, turned by an angle.
std::vector<Point> ellipse_points(Point middle, double long_half, double short_half, double angle);
// A smooth curve through points.
std::vector<Point> curve_points(const std::vector<Point>& points);

}  // namespace vexal
