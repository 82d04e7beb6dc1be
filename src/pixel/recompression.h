// Pixel data between the JPEG syntaxes and JPEG XL JPEG Recompression: every frame keeps its JPEG stream, and
// so every pixel and attribute.
#pragma once

#include "model/object.h"

namespace vx {

bool keeps_jpeg_streams(VX_TRANSFER_SYNTAX from, VX_TRANSFER_SYNTAX to);

// All frames of `from` into `to`, whose objects have two syntaxes of that kind. VX_COMPRESSION_FAILURE after
// a line in the log that names the frame; the status of reading and storing it.
VX_STATUS recompress_pixels(MsgObj& source, TagObj& from, MsgObj& target, TagObj& to);

}  // namespace vx
