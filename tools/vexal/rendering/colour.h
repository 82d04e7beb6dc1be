// Frames in colour: by a palette, or with three samples a pixel.
#pragma once

#include <cstdint>
#include <string>

#include "drawing/picture.h"
#include "files/files.h"
#include "image_description.h"
#include "lookup_table.h"

namespace vexal {

// Both give an error text, empty on success; the object tells of its palette.
std::string show_palette(int32_t id, const ImageDescription& image, const Bytes& frame, Picture& picture);
// `planar`: the samples of a colour lie together.
std::string show_colour(const ImageDescription& image, bool planar, const Bytes& frame, Picture& picture);

// Over a picture in grey: the colours of stored values that only the object's palette has
// (PS3.3 section C.7.6.23). Without such a palette nothing happens.
void add_supplement(int32_t id, const ImageDescription& image, const Bytes& frame, Picture& picture);

// Grey becomes a colour of equal parts.
void to_colour(Picture& picture);

// The ICC profile of the object, or of one of its optical paths (from 0); empty if there is none.
std::string profile_of(int32_t id, uint32_t path = 0);
// Colours as the profile of the object, or of its optical path, means them (PS3.3 section C.11.15). An error
// text where there is a profile that can not be followed.
std::string apply_profile(int32_t id, Picture& picture);

}  // namespace vexal
