// What a film says of itself: MP4 files, transport and program streams, streams of MPEG-2, H.264 and HEVC
// alone.
#pragma once

#include <cstdint>
#include <string>

#include "files/fragments.h"

namespace vexal {

enum class FilmCodec { None, Mpeg2, H264, Hevc };
enum class FilmContainer { Elementary, Mp4, TransportStream, ProgramStream };

struct Film {
  FilmContainer container = FilmContainer::Elementary;
  FilmCodec codec = FilmCodec::None;
  uint32_t profile = 0;          // as the codec counts them; of MPEG-2 the three bits of its profile
  uint32_t level = 0;            // likewise; of MPEG-2 its four bits
  bool main_compatible = false;  // of H.264: what is of the base profile is of the main one too
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t chroma = 1;  // 1: 4:2:0, 2: 4:2:2, 3: 4:4:4, 0: grey
  uint32_t bits = 8;
  uint64_t frames = 0;
  // Frames a second, as a fraction; 0 where nothing tells.
  uint64_t rate = 0;
  uint64_t rate_base = 1;
  // Bytes of the file that are known to be its own; 0 where its end can not be told.
  uint64_t length = 0;
};

// Reads a film of `size` bytes, streams without a container from end to end, a block at a time. An error
// text, empty on success.
std::string read_film(const ValueReader& read, uint64_t size, Film& film);
// "H.264 High profile, level 4.1".
std::string describe_codec(const Film& film);

}  // namespace vexal
