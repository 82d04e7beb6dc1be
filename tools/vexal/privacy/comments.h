// What compressed frames tell beside their pixels.
#pragma once

#include <string>

#include "files/files.h"

namespace vexal {

// Comments and application segments in the heads of JPEG, JPEG-LS and JPEG 2000 streams of the Pixel Data, as
// it lies in the file, go out as blanks of the same length: what a decoder gives stays the same. An error
// text where that can not be done, empty on success.
std::string cover_comments(DicomFile& file);

}  // namespace vexal
