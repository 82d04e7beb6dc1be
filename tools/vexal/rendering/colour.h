// Frames in colour: by a palette, or with three samples a pixel.
#pragma once

#include <cstdint>
#include <string>

#include "drawing/picture.h"
#include "files/files.h"
#include "functional_groups.h"
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

// Whose ICC profile is that of an image: its own, or that of one of its optical paths (from 0).
int32_t profile_holder(int32_t image, uint32_t path);
// The optical path that a frame (from 0) of an image was taken by, from 0: as it says, or by its place among
// those that follow each other over a whole slide.
uint32_t optical_path_of(int32_t image, const FunctionalGroups& groups, uint32_t frames, uint32_t frame);
// Colours as the holder's profile means them (PS3.3 section C.11.15). An error text where there is one that
// can not be followed.
std::string apply_profile(int32_t holder, Picture& picture);

}  // namespace vexal
