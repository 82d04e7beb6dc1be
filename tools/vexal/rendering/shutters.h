// Display shutters: what of an image is not to be seen (PS3.3 sections C.7.6.11 and C.7.6.15).
#pragma once

#include <cstdint>

#include "drawing/picture.h"
#include "files/files.h"
#include "image_description.h"
#include "pixel_shape.h"

namespace vexal {

struct ShutterSource {
  int32_t shapes;      // whose attributes tell of them
  int32_t planes;      // whose overlay plane may be one
  const Bytes* frame;  // stored, if the plane may be in its free bits
};

// Gives what lies outside of any of the shutters one shade, or in a picture in colour one colour. The picture
// is one of a frame on its own pixels.
void draw_shutters(const ShutterSource& source, const ImageDescription& image, uint32_t frame,
                   const PixelShape& shape, Picture& picture);

// The overlay group (as in 60020000) that is a shutter, and so no overlay; 0 if there is none.
uint32_t shutter_overlay(int32_t id);

}  // namespace vexal
