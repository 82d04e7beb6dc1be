#include "pixel_shape.h"

#include "base/object_values.h"
#include "base/tags.h"

namespace vexal {

bool read_shape(int32_t id, uint32_t tag, PixelShape& shape) {
  const auto down = real_of(id, tag, 1);
  const auto across = real_of(id, tag, 2);
  if (!down || !across || *down <= 0 || *across <= 0) return false;
  shape.down = *down;
  shape.across = *across;
  return true;
}

PixelShape pixel_shape(int32_t id, const FunctionalGroups& groups, uint32_t frame) {
  PixelShape shape;
  const int32_t item = groups.item(frame, tags::kPixelMeasuresSequence);
  const int32_t measures = item >= 0 ? item : id;
  shape.in_mm = read_shape(measures, tags::kPixelSpacing, shape) ||
                read_shape(id, tags::kImagerPixelSpacing, shape) ||
                read_shape(id, tags::kNominalScannedPixelSpacing, shape);
  if (!shape.in_mm) read_shape(id, tags::kPixelAspectRatio, shape);
  return shape;
}

}  // namespace vexal
