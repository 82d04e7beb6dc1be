// The standard compressor and what goes with it.
#pragma once

#include "pixel/codec.h"
#include "pixel/encapsulated.h"

namespace vx {

// Where the configuration asks for it, reads the head of the first frame and keeps what it says of the image
// on the attribute. A failure is only logged.
void query_image_header_if_wanted(MsgObj& object, TagObj& attribute);

// What the configuration says of the way a frame is compressed.
CodecSettings codec_settings(const ImageAttributes& image);
bool is_lossy_target(VX_TRANSFER_SYNTAX syntax);
// Whether that holds for this image.
bool is_lossy(const ImageAttributes& image);

// RGB is written as YCbCr with half the chrominance, and read back as RGB.
bool subsamples_rgb();

}  // namespace vx
