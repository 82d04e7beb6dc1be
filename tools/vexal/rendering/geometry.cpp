#include "geometry.h"

#include <limits>

#include "base/attributes.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/values.h"

namespace vexal {
namespace {

// How far directions may be from length 1 and from a right angle: they come with few digits.
constexpr double kSkew = 0.01;

std::optional<Vector> vector_of(const std::vector<double>& numbers, std::size_t at) {
  if (numbers.size() < at + 3) return std::nullopt;
  const Vector vector{numbers[at], numbers[at + 1], numbers[at + 2]};
  return is_near(vector) ? std::optional(vector) : std::nullopt;
}

// Where an attribute of a group stands: in the group, or in the object itself.
int32_t holder(int32_t item, int32_t object, uint32_t tag) {
  return item >= 0 && has_attribute(item, tag) ? item : object;
}

double size_of(int32_t object, uint32_t tag) {
  const std::vector<double> numbers = reals_of(object, tag);
  return !numbers.empty() && is_near(numbers[0]) ? std::abs(numbers[0]) : 0;
}

std::string read_directions(const std::vector<double>& numbers, ImagePlane& plane) {
  const auto row = vector_of(numbers, 0);
  const auto column = vector_of(numbers, 3);
  if (!row || !column) return "it has no Image Orientation (Patient)";
  const double row_length = std::sqrt(dot(*row, *row));
  const double column_length = std::sqrt(dot(*column, *column));
  if (std::abs(row_length - 1) > kSkew || std::abs(column_length - 1) > kSkew ||
      std::abs(dot(*row, *column)) > kSkew)
    return "its Image Orientation (Patient) is not two directions at a right angle";
  plane.along_row = *row * (1 / row_length);
  plane.along_column = *column * (1 / column_length);
  const Vector normal = cross(plane.along_row, plane.along_column);
  plane.normal = normal * (1 / std::sqrt(dot(normal, normal)));
  return "";
}

}  // namespace

std::vector<double> reals_of(int32_t object, uint32_t tag) {
  std::vector<double> values;
  double value = 0;
  VX_STATUS status = VX_Get_Value_To_Double(object, tag, &value);
  for (; status != VX_NO_MORE_VALUES; status = VX_Get_Next_Value_To_Double(object, tag, &value)) {
    const bool number = status == VX_NORMAL_COMPLETION;
    const bool none =
        status == VX_INCOMPATIBLE_VALUE || status == VX_VALUE_OUT_OF_RANGE || status == VX_NULL_VALUE;
    if (!number && !none) break;
    values.push_back(number ? value : std::numeric_limits<double>::quiet_NaN());
  }
  return values;
}

std::optional<uint32_t> whole_of(int32_t object, uint32_t tag, uint32_t most) {
  const std::vector<double> numbers = reals_of(object, tag);
  if (numbers.empty() || !(numbers[0] >= 0 && numbers[0] <= most) || std::trunc(numbers[0]) != numbers[0])
    return std::nullopt;
  return static_cast<uint32_t>(numbers[0]);
}

double ImagePlane::half_slice() const {
  constexpr double kUntold = 1;  // mm
  return (slice_spacing > 0 ? slice_spacing : thickness > 0 ? thickness : kUntold) / 2;
}

Planes::Planes(int32_t object, uint32_t frames)
    : object_(object),
      frames_(frames),
      groups_(object),
      frame_of_reference_(text_of(object, tags::kFrameOfReferenceUID)),
      offsets_(reals_of(object, tags::kGridFrameOffsetVector)) {
  if (offsets_.empty()) return;
  if (offsets_.size() != frames ||
      !std::all_of(offsets_.begin(), offsets_.end(), [](double offset) { return is_near(offset); })) {
    offsets_fault_ = "its Grid Frame Offset Vector has not a number for each frame";
    return;
  }
  // From the first frame on, or, of planes across the z axis, places on it (PS3.3 section C.8.8.3.2).
  const std::vector<double> position = reals_of(object, tags::kImagePositionPatient);
  if (offsets_[0] == 0) return;
  ImagePlane plane;
  const std::string fault = read_directions(reals_of(object, tags::kImageOrientationPatient), plane);
  constexpr double kSame = 0.01;  // mm
  if (!fault.empty() || position.size() < 3 || !(std::abs(offsets_[0] - position[2]) < kSame) ||
      std::abs(plane.normal.z) < 1 - kSkew) {
    offsets_fault_ = "its Grid Frame Offset Vector begins neither with 0 nor with the first frame's place";
    return;
  }
  const double first = offsets_[0];
  for (double& offset : offsets_) offset = (offset - first) * (plane.normal.z < 0 ? -1 : 1);
}

std::string Planes::read(uint32_t frame, ImagePlane& plane) const {
  const bool of_the_grid = !offsets_.empty();
  const int32_t place = groups_.item(frame, tags::kPlanePositionSequence);
  if (place < 0 && frames_ > 1 && !of_the_grid)
    return "nothing tells where frame " + std::to_string(frame + 1) + " lies";
  const int32_t position = holder(place, object_, tags::kImagePositionPatient);
  const auto origin = vector_of(reals_of(position, tags::kImagePositionPatient), 0);
  if (!origin) return "it has no Image Position (Patient)";
  plane.origin = *origin;
  const int32_t orientation =
      holder(groups_.item(frame, tags::kPlaneOrientationSequence), object_, tags::kImageOrientationPatient);
  if (std::string fault = read_directions(reals_of(orientation, tags::kImageOrientationPatient), plane);
      !fault.empty())
    return fault;
  const int32_t group = groups_.item(frame, tags::kPixelMeasuresSequence);
  const std::vector<double> spacing =
      reals_of(holder(group, object_, tags::kPixelSpacing), tags::kPixelSpacing);
  constexpr double kLeast = 1e-9;
  if (spacing.size() < 2 || !(spacing[0] > kLeast && spacing[1] > kLeast) || !is_near(spacing[0]) ||
      !is_near(spacing[1]))
    return "it has no Pixel Spacing";
  plane.row_spacing = spacing[0];
  plane.column_spacing = spacing[1];
  plane.slice_spacing =
      size_of(holder(group, object_, tags::kSpacingBetweenSlices), tags::kSpacingBetweenSlices);
  plane.thickness = size_of(holder(group, object_, tags::kSliceThickness), tags::kSliceThickness);
  if (!of_the_grid) return "";
  if (!offsets_fault_.empty()) return offsets_fault_;
  plane.origin = plane.origin + plane.normal * offsets_[frame];
  return "";
}

Mapping::Mapping(const ImagePlane& from, const ImagePlane& to)
    : start(to.pixel_of(from.origin)),
      per_column(to.pixel_of(from.at(1, 0)) - start),
      per_row(to.pixel_of(from.at(0, 1)) - start) {}

bool meets(const Mapping& mapping, uint32_t width, uint32_t height, double low, double high) {
  const double across = mapping.per_column.z * (width - 1.0);
  const double down = mapping.per_row.z * (height - 1.0);
  const double least = mapping.start.z + std::min(across, 0.0) + std::min(down, 0.0);
  const double most = mapping.start.z + std::max(across, 0.0) + std::max(down, 0.0);
  return least < high && most >= low;
}

}  // namespace vexal
