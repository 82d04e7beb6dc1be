#include "video_stream.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/tags.h"
#include "base/values.h"

namespace vexal {
namespace {

struct SyntaxVideo {
  VX_TRANSFER_SYNTAX syntax;
  FilmCodec codec;
  uint32_t most_level;  // as the codec counts them
  const char* level;
  uint32_t profile;  // 0: others are part of it
};
constexpr SyntaxVideo kSyntaxes[] = {
    {MPEG2_MPML, FilmCodec::Mpeg2, 8, "Main", 4},
    {FRAGMENTABLE_MPEG2_MPML, FilmCodec::Mpeg2, 8, "Main", 4},
    {MPEG2_MPHL, FilmCodec::Mpeg2, 4, "High", 4},
    {FRAGMENTABLE_MPEG2_MPHL, FilmCodec::Mpeg2, 4, "High", 4},
    {MPEG4_AVC_H264_HP_LEVEL_4_1, FilmCodec::H264, 41, "4.1", 0},
    {MPEG4_AVC_H264_BDC_HP_LEVEL_4_1, FilmCodec::H264, 41, "4.1", 0},
    {FRAGMENTABLE_MPEG4_AVC_H264_HP_LEVEL_4_1, FilmCodec::H264, 41, "4.1", 0},
    {FRAGMENTABLE_MPEG4_AVC_H264_BDC_HP_LEVEL_4_1, FilmCodec::H264, 41, "4.1", 0},
    {MPEG4_AVC_H264_HP_LEVEL_4_2_2D, FilmCodec::H264, 42, "4.2", 0},
    {MPEG4_AVC_H264_HP_LEVEL_4_2_3D, FilmCodec::H264, 42, "4.2", 0},
    {MPEG4_AVC_H264_STEREO_HP_LEVEL_4_2, FilmCodec::H264, 42, "4.2", 0},
    {FRAGMENTABLE_MPEG4_AVC_H264_HP_LEVEL_4_2_2D, FilmCodec::H264, 42, "4.2", 0},
    {FRAGMENTABLE_MPEG4_AVC_H264_HP_LEVEL_4_2_3D, FilmCodec::H264, 42, "4.2", 0},
    {FRAGMENTABLE_MPEG4_AVC_H264_STEREO_HP_LEVEL_4_2, FilmCodec::H264, 42, "4.2", 0},
    {HEVC_H265_MP_LEVEL_5_1, FilmCodec::Hevc, 153, "5.1", 1},
    {HEVC_H265_M10P_LEVEL_5_1, FilmCodec::Hevc, 153, "5.1", 0},
};

double rate_of(const Film& film) {
  return static_cast<double>(film.rate) / static_cast<double>(std::max<uint64_t>(film.rate_base, 1));
}

double real_in(const std::string& text) {
  return std::strtod(text.c_str(), nullptr);
}

// The rate that the object's attributes tell, or 0.
double told_rate(int32_t id) {
  const double time = real_in(text_of(id, tags::kFrameTime));
  if (time > 0) return 1000 / time;
  const double rate = real_in(text_of(id, tags::kCineRate));
  return rate > 0 ? rate : real_in(text_of(id, tags::kRecommendedDisplayFrameRate));
}

std::string number_text(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.5g", value);
  return text;
}

std::string syntax_fault(const Film& film, VX_TRANSFER_SYNTAX syntax) {
  const auto* row = std::find_if(std::begin(kSyntaxes), std::end(kSyntaxes),
                                 [=](const SyntaxVideo& known) { return known.syntax == syntax; });
  if (row == std::end(kSyntaxes)) return "";
  if (film.codec != row->codec) return "the transfer syntax is for another codec";
  // Levels of MPEG-2 fall as they rise.
  const bool beyond =
      film.codec == FilmCodec::Mpeg2 ? film.level < row->most_level : film.level > row->most_level;
  if (beyond) return std::string("its level is beyond that of the transfer syntax, ") + row->level;
  return row->profile != 0 && film.profile != row->profile ? "its profile is not that of the transfer syntax"
                                                           : "";
}

}  // namespace

VideoStream read_video(const PixelImage& image) {
  const FrameSource& source = image.decoder()->source();
  VideoStream video;
  video.read = [&source](uint64_t at, void* buffer, std::size_t size) {
    return source.read_stream(at, buffer, size);
  };
  video.size = source.stream_size();
  video.fault = read_film(video.read, video.size, video.film);
  const uint64_t told = number_in(text_of(image.file().id(), tags::kEncapsulatedPixelDataValueTotalLength));
  for (const uint64_t length : {told, video.film.length}) {
    if (length == 0 || (length != video.size && length + 1 != video.size)) continue;
    video.size = length;
    return video;
  }
  char end[5] = {};
  if (video.size < sizeof end || !video.read(video.size - sizeof end, end, sizeof end) || end[4] != 0)
    return video;
  // Units of the later codecs do not end with a zero; those of MPEG-2 may, but for the code of the end.
  const bool known = video.fault.empty() && video.film.container == FilmContainer::Elementary &&
                     (video.film.codec != FilmCodec::Mpeg2 || std::memcmp(end, "\0\0\1\xB7", 4) == 0);
  if (known) {
    --video.size;
  } else {
    video.doubt = "its last byte may be a pad: the object does not tell the length of the film";
  }
  return video;
}

std::string describe_video(const VideoStream& video) {
  if (!video.fault.empty()) return "a stream that can not be read: it " + video.fault;
  constexpr const char* kContainers[] = {"elementary stream", "MP4", "MPEG transport stream",
                                         "MPEG program stream"};
  const Film& film = video.film;
  std::string text = kContainers[static_cast<std::size_t>(film.container)];
  text += ", " + describe_codec(film);
  if (film.width != 0) text += ", " + std::to_string(film.width) + " x " + std::to_string(film.height);
  if (film.rate != 0) text += ", " + number_text(rate_of(film)) + " frames a second";
  text += ", " + std::to_string(film.frames) + (film.frames == 1 ? " frame" : " frames");
  if (film.rate != 0) text += ", " + number_text(static_cast<double>(film.frames) / rate_of(film)) + " s";
  return text;
}

std::vector<std::string> video_faults(const VideoStream& video, const PixelImage& image) {
  std::vector<std::string> faults;
  if (!video.fault.empty()) return faults;
  const Film& film = video.film;
  const ImageDescription& d = image.description();
  if (std::string fault = syntax_fault(film, image.file().syntax()); !fault.empty())
    faults.push_back(std::move(fault));
  if (film.width != 0 && (film.width != d.columns || film.height != d.rows))
    faults.push_back("its pictures have " + std::to_string(film.width) + " columns and " +
                     std::to_string(film.height) + " rows, the attributes say " + std::to_string(d.columns) +
                     " and " + std::to_string(d.rows));
  const double rate = told_rate(image.file().id());
  constexpr double kTolerance = 0.02;
  if (rate > 0 && film.rate != 0 && std::abs(rate - rate_of(film)) > kTolerance * rate)
    faults.push_back("it has " + number_text(rate_of(film)) + " frames a second, the attributes say " +
                     number_text(rate));
  if (film.frames != 0 && film.frames != d.frames)
    faults.push_back("it has " + std::to_string(film.frames) + " frames, the attributes say " +
                     std::to_string(d.frames));
  return faults;
}

const char* video_suffix(const VideoStream& video) {
  constexpr const char* kStreams[] = {".bin", ".m2v", ".h264", ".h265"};
  constexpr const char* kContainers[] = {"", ".mp4", ".ts", ".mpg"};
  if (!video.fault.empty()) return ".bin";
  const Film& film = video.film;
  return film.container == FilmContainer::Elementary ? kStreams[static_cast<std::size_t>(film.codec)]
                                                     : kContainers[static_cast<std::size_t>(film.container)];
}

}  // namespace vexal
