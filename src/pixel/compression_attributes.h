// What compressing an object changes in its attributes.
#pragma once

#include <string>

#include "model/object.h"

namespace vx {

// After the last frame was compressed to the object's transfer syntax: photometric interpretation, and for a
// lossy one method, ratio, description and image type. Failures are warned of.
void write_compression_attributes(MsgObj& object);

// The label of an image once its frames are decompressed, empty if it stays: what comes out of these syntaxes
// is RGB.
std::string decompressed_photometric(MsgObj& source, VX_TRANSFER_SYNTAX syntax);

// Sets or adds a text; the status of doing it.
VX_STATUS put_text(MsgObj& object, uint32_t tag, const std::string& text);

}  // namespace vx
