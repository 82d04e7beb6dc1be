#include "canvas.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "letters.h"

namespace vexal {
namespace {

bool is_finite(Point p) {
  return std::isfinite(p.x) && std::isfinite(p.y);
}

// What of a line lies in a box; false if nothing.
bool clip(Point& from, Point& to, Point low, Point high) {
  double first = 0;
  double last = 1;
  const double steps[] = {to.x - from.x, to.y - from.y};
  const double starts[] = {from.x, from.y};
  const double lows[] = {low.x, low.y};
  const double highs[] = {high.x, high.y};
  for (int i = 0; i < 2; ++i) {
    if (steps[i] == 0) {
      if (starts[i] < lows[i] || starts[i] > highs[i]) return false;
      continue;
    }
    const double a = (lows[i] - starts[i]) / steps[i];
    const double b = (highs[i] - starts[i]) / steps[i];
    first = std::max(first, std::min(a, b));
    last = std::min(last, std::max(a, b));
  }
  if (first > last) return false;
  const Point start = from;
  from = {start.x + first * steps[0], start.y + first * steps[1]};
  to = {start.x + last * steps[0], start.y + last * steps[1]};
  return true;
}

}  // namespace

void Canvas::box(int64_t left, int64_t top, int64_t right, int64_t bottom) {
  left = std::max<int64_t>(left, 0);
  top = std::max<int64_t>(top, 0);
  right = std::min<int64_t>(right, picture_.width);
  bottom = std::min<int64_t>(bottom, picture_.height);
  const std::size_t width = picture_.bits / 8;  // both bytes of 16 bits alike make the same shade
  for (int64_t y = top; y < bottom; ++y) {
    for (int64_t x = left; x < right; ++x) {
      const auto pixel = static_cast<std::size_t>(y) * picture_.width + static_cast<std::size_t>(x);
      uint8_t* to = picture_.bytes.data() + pixel * picture_.samples * width;
      for (std::size_t c = 0; c < picture_.samples; ++c) std::fill_n(to + c * width, width, colour_[c]);
    }
  }
}

void Canvas::dot(double x, double y) {
  const auto side = static_cast<int64_t>(std::lround(thickness_));
  const auto left = static_cast<int64_t>(std::floor(x - static_cast<double>(side - 1) / 2));
  const auto top = static_cast<int64_t>(std::floor(y - static_cast<double>(side - 1) / 2));
  box(left, top, left + side, top + side);
}

void Canvas::line(Point from, Point to, double run) {
  if (!is_finite(from) || !is_finite(to)) return;
  const double edge = thickness_;
  const Point whole = from;
  if (!clip(from, to, {-edge, -edge}, {picture_.width + edge, picture_.height + edge})) return;
  const double steps = std::ceil(std::max(std::abs(to.x - from.x), std::abs(to.y - from.y)));
  const double round = 32 * unit_;
  run = std::fmod(run, round) + std::fmod(std::hypot(from.x - whole.x, from.y - whole.y), round);
  const double length = std::hypot(to.x - from.x, to.y - from.y);
  for (double i = 0; i <= steps; ++i) {
    const double share = steps == 0 ? 0 : i / steps;
    const auto part = static_cast<uint32_t>(std::fmod(run + share * length, round) / unit_);
    if (((dashes_ >> (31 - std::min(part, 31U))) & 1U) == 0) continue;
    dot(from.x + share * (to.x - from.x), from.y + share * (to.y - from.y));
  }
}

void Canvas::line_through(const std::vector<Point>& points) {
  if (points.size() == 1) line(points[0], points[0]);
  double run = 0;
  for (std::size_t i = 1; i < points.size(); ++i) {
    line(points[i - 1], points[i], run);
    const double length = std::hypot(points[i].x - points[i - 1].x, points[i].y - points[i - 1].y);
    if (std::isfinite(length)) run += length;
  }
}

void Canvas::fill(const std::vector<Point>& points) {
  std::vector<double> crossings;
  for (uint32_t y = 0; y < picture_.height; ++y) {
    const double middle = y + 0.5;
    crossings.clear();
    for (std::size_t i = 0; i < points.size(); ++i) {
      const Point a = points[i];
      const Point b = points[(i + 1) % points.size()];
      if (is_finite(a) && is_finite(b) && (a.y <= middle) != (b.y <= middle))
        crossings.push_back(a.x + (middle - a.y) / (b.y - a.y) * (b.x - a.x));
    }
    std::sort(crossings.begin(), crossings.end());
    for (std::size_t i = 1; i < crossings.size(); i += 2) {
      const auto pixel = [this](double x) {
        return static_cast<int64_t>(std::ceil(std::clamp(x, 0.0, picture_.width + 1.0) - 0.5));
      };
      box(pixel(crossings[i - 1]), y, pixel(crossings[i]), int64_t{y} + 1);
    }
  }
}

void Canvas::text(Point at, double unit, std::string_view text, double slant) {
  for (const char letter : text) {
    const std::string_view strokes = letter_strokes(letter);
    const auto place = [&](std::size_t k) {
      const double down = strokes[k + 1] - '0';
      return Point{at.x + unit * (strokes[k] - '0' + 0.5 + slant * (6 - down)), at.y + unit * (down + 0.5)};
    };
    for (std::size_t i = 0; i + 1 < strokes.size();) {
      if (strokes[i] == ' ') {  // lifts the pen
        ++i;
        continue;
      }
      if (i + 3 < strokes.size() && strokes[i + 2] != ' ') line(place(i), place(i + 2));
      i += 2;
    }
    at.x += kLetterWidth * unit;
  }
}

double Canvas::text_width(std::string_view text, double unit) {
  return kLetterWidth * unit * static_cast<double>(text.size());
}

void lay_over(Picture& picture, const Picture& mask, const std::array<uint8_t, 3>& colour, double opacity) {
  const auto mix = [&](auto* samples, double unit) {
    using Sample = std::remove_reference_t<decltype(*samples)>;
    for (std::size_t i = 0; i < mask.bytes.size(); ++i) {
      if (mask.bytes[i] == 0) continue;
      for (std::size_t c = 0; c < picture.samples; ++c) {
        Sample& sample = samples[i * picture.samples + c];
        sample = static_cast<Sample>(std::lround(sample + (colour[c] * unit - sample) * opacity));
      }
    }
  };
  if (picture.bits == 8) {
    mix(picture.bytes.data(), 1);
  } else {
    mix(reinterpret_cast<uint16_t*>(picture.bytes.data()), 257);
  }
}

std::vector<Point> ellipse_points(Point middle, double long_half, double short_half, double angle) {
  if (!is_finite(middle) || !std::isfinite(long_half) || !std::isfinite(short_half) || !std::isfinite(angle))
    return {};
  const double size = std::clamp(std::max(long_half, short_half), 8.0, 4096.0);
  const int count = static_cast<int>(4 * size);
  std::vector<Point> points;
  for (int i = 0; i <= count; ++i) {
    const double turn = 2 * std::numbers::pi * i / count;
    const double u = long_half * std::cos(turn);
    const double v = short_half * std::sin(turn);
    points.push_back({middle.x + u * std::cos(angle) - v * std::sin(angle),
                      middle.y + u * std::sin(angle) + v * std::cos(angle)});
  }
  return points;
}

// Each part between two points is a cubic whose slopes are those between their neighbours.
std::vector<Point> curve_points(const std::vector<Point>& points) {
  constexpr int kParts = 16;
  if (points.size() < 3) return points;
  std::vector<Point> curve;
  const auto last = points.size() - 1;
  for (std::size_t i = 0; i < last; ++i) {
    const Point& b = points[i];
    const Point& c = points[i + 1];
    const Point& a = points[i == 0 ? 0 : i - 1];
    const Point& d = points[std::min(i + 2, last)];
    const auto mix = [](double p, double q, double r, double s, double t) {
      return q + t / 2 * (r - p + t * (2 * p - 5 * q + 4 * r - s + t * (3 * (q - r) + s - p)));
    };
    for (int k = 0; k < kParts; ++k) {
      const double t = static_cast<double>(k) / kParts;
      curve.push_back({mix(a.x, b.x, c.x, d.x, t), mix(a.y, b.y, c.y, d.y, t)});
    }
  }
  curve.push_back(points[last]);
  return curve;
}

}  // namespace vexal
