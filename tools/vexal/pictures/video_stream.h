// The stream of an image that is a video: in words, and where it is not what its object and syntax say.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "images/film.h"
#include "rendering/pixel_image.h"

namespace vexal {

struct VideoStream {
  Film film;
  std::string fault;  // why it is none that is known
  uint64_t size = 0;  // bytes, without a pad behind them
  std::string doubt;  // why the last of them may be a pad all the same; empty if it is none
  ValueReader read;   // the bytes; not without the image
};

// Of an image whose decoder is there.
VideoStream read_video(const PixelImage& image);
// Container, codec, profile, level, size, rate, frames, duration.
std::string describe_video(const VideoStream& video);
// Where it contradicts the transfer syntax and the attributes.
std::vector<std::string> video_faults(const VideoStream& video, const PixelImage& image);
// Of a file that holds such a stream.
const char* video_suffix(const VideoStream& video);

}  // namespace vexal
