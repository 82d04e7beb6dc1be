// Where pixels lie in the patient: planes of frames, and one picture seen from another.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "functional_groups.h"
#include "vexalkit.h"

namespace vexal {

// All numbers of an attribute; those that are none come as NaN, so that their places stay.
std::vector<double> reals_of(int32_t object, uint32_t tag);
// A whole number up to `most`, if that is what the first value is.
std::optional<uint32_t> whole_of(int32_t object, uint32_t tag, uint32_t most);

struct Vector {
  double x = 0, y = 0, z = 0;
};
constexpr Vector operator+(const Vector& a, const Vector& b) {
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}
constexpr Vector operator-(const Vector& a, const Vector& b) {
  return {a.x - b.x, a.y - b.y, a.z - b.z};
}
constexpr Vector operator*(const Vector& a, double factor) {
  return {a.x * factor, a.y * factor, a.z * factor};
}
constexpr double dot(const Vector& a, const Vector& b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}
constexpr Vector cross(const Vector& a, const Vector& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
// Whether a number of mm can be of a patient: what is farther away, or no number, is damage, and none of the
// arithmetic behind has to fear it.
inline bool is_near(double mm) {
  return std::abs(mm) < 1e9;
}
inline bool is_near(const Vector& a) {
  return is_near(a.x) && is_near(a.y) && is_near(a.z);
}

// The plane of a frame (PS3.3 section C.7.6.2.1.1), in mm of its frame of reference.
struct ImagePlane {
  Vector origin;     // the middle of the first pixel
  Vector along_row;  // of length 1: where columns go up
  Vector along_column;
  Vector normal;
  double column_spacing = 1;  // between the middles of pixels in a row
  double row_spacing = 1;
  double slice_spacing = 0;  // to the next slice, as the object tells; 0: it does not
  double thickness = 0;      // likewise

  Vector at(double column, double row) const {
    return origin + along_row * (column * column_spacing) + along_column * (row * row_spacing);
  }
  // Column and row, counted from 0 in the middles of pixels, and the distance from the plane along its
  // normal.
  Vector pixel_of(const Vector& point) const {
    const Vector from = point - origin;
    return {dot(from, along_row) / column_spacing, dot(from, along_column) / row_spacing, dot(from, normal)};
  }
  // How far from it a point still belongs to its slice.
  double half_slice() const;
};

// Planes of the frames of an object, by functional groups, by the offsets of a dose grid, or the one of a
// plain image.
class Planes {
 public:
  Planes(int32_t object, uint32_t frames);
  // An error text if nothing tells where the frame (from 0) lies; empty on success.
  std::string read(uint32_t frame, ImagePlane& plane) const;
  const FunctionalGroups& groups() const { return groups_; }
  const std::string& frame_of_reference() const { return frame_of_reference_; }

 private:
  int32_t object_;
  uint32_t frames_;
  FunctionalGroups groups_;
  std::string frame_of_reference_;
  std::vector<double> offsets_;  // of frames along the normal
  std::string offsets_fault_;
};

// The pixels of one plane as seen in another: column, row and distance there, as x, y and z, change by the
// same from pixel to pixel.
struct Mapping {
  Vector start;
  Vector per_column{1, 0, 0};
  Vector per_row{0, 1, 0};

  Mapping() = default;  // pixel on pixel
  Mapping(const ImagePlane& from, const ImagePlane& to);
};

// A box in the other's pixels and distance: from `low` on, below `high`.
struct Box {
  Vector low;
  Vector high;
};

// Whether a picture comes near a layer from `low` to below `high` of the distance.
bool meets(const Mapping& mapping, uint32_t width, uint32_t height, double low, double high);

// Calls visit(column, row, place) for each pixel of a picture that a box holds.
template <typename Visit>
void for_each_inside(const Mapping& mapping, uint32_t width, uint32_t height, const Box& box, Visit visit) {
  if (!meets(mapping, width, height, box.low.z, box.high.z)) return;
  for (uint32_t row = 0; row < height; ++row) {
    const Vector start = mapping.start + mapping.per_row * row;
    double first = 0;
    double last = width - 1.0;
    // What a coordinate leaves of the row, and a pixel more on either side, as the division is not exact.
    const auto clip = [&](double from, double step, double low, double high) {
      if (std::abs(step) < 1e-12) {
        if (!(from >= low && from < high)) last = -1;
        return;
      }
      const double a = (low - from) / step;
      const double b = (high - from) / step;
      first = std::max(first, std::floor(std::min(a, b)) - 1);
      last = std::min(last, std::ceil(std::max(a, b)) + 1);
    };
    clip(start.x, mapping.per_column.x, box.low.x, box.high.x);
    clip(start.y, mapping.per_column.y, box.low.y, box.high.y);
    clip(start.z, mapping.per_column.z, box.low.z, box.high.z);
    for (double column = first; column <= last; ++column) {
      const Vector place = start + mapping.per_column * column;
      if (place.x >= box.low.x && place.x < box.high.x && place.y >= box.low.y && place.y < box.high.y &&
          place.z >= box.low.z && place.z < box.high.z)
        visit(static_cast<uint32_t>(column), row, place);
    }
  }
}

}  // namespace vexal
