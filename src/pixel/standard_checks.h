// What the standard and the general codecs ask of an image.
#pragma once

#include "pixel/image.h"

namespace vx {

// A codec function and what it is for.
struct Direction {
  const char* function;
  bool compresses;
  bool any;  // of every image that the codec takes
};

// A line in the log at the error level. VX_CALLBACK_CANNOT_COMPLY.
VX_STATUS refuse(const char* function, const char* format, ...) __attribute__((format(printf, 2, 3)));
// Whether the image suits its transfer syntax; `function` names the caller in the log.
// VX_CALLBACK_CANNOT_COMPLY.
VX_STATUS check_image(const Direction& direction, const char* function, const ImageAttributes& image);

}  // namespace vx
