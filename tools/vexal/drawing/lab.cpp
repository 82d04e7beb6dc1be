#include "lab.h"

#include <algorithm>
#include <cmath>

namespace vexal {

std::array<uint8_t, 3> from_lab(const std::vector<double>& scaled) {
  const double lightness = scaled[0] / 65535 * 100;
  const double a = scaled[1] / 65535 * 255 - 128;
  const double b = scaled[2] / 65535 * 255 - 128;
  const double middle = (lightness + 16) / 116;
  const auto whole = [](double t) {
    return t > 6.0 / 29 ? t * t * t : 3 * (6.0 / 29) * (6.0 / 29) * (t - 4.0 / 29);
  };
  const double x = 0.96422 * whole(middle + a / 500);
  const double y = whole(middle);
  const double z = 0.82521 * whole(middle - b / 200);
  // To the primaries of sRGB, its white D65 seen as D50 by the transformation of Bradford.
  const double linear[] = {3.1338561 * x - 1.6168667 * y - 0.4906146 * z,
                           -0.9787684 * x + 1.9161415 * y + 0.0334540 * z,
                           0.0719453 * x - 0.2289914 * y + 1.4052427 * z};
  std::array<uint8_t, 3> colour{};
  for (std::size_t c = 0; c < 3; ++c) {
    const double part = std::clamp(linear[c], 0.0, 1.0);
    const double level = part <= 0.0031308 ? 12.92 * part : 1.055 * std::pow(part, 1 / 2.4) - 0.055;
    colour[c] = static_cast<uint8_t>(std::lround(255 * level));
  }
  return colour;
}

}  // namespace vexal
