// vexal pixel extract: frames as bytes.
#include <cstdio>
#include <filesystem>

#include "pixel_actions.h"
#include "video_stream.h"

namespace vexal {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kPiece = 1 << 20;

std::string write_bytes(const std::string& path, const Bytes& bytes) {
  FileSink sink;
  if (std::string error = sink.open(path); !error.empty()) return error;
  if (!sink.write(bytes.data(), bytes.size())) return "it can not be written";
  return sink.commit();
}

// Where frame `number` goes: OUT itself for one frame, else a file in the folder OUT.
std::string frame_path(const std::string& out, uint32_t number, const Choice& choice, const char* suffix) {
  std::error_code ignored;
  if (choice.count == 1 && !fs::is_directory(out, ignored)) return out;
  fs::create_directories(out, ignored);
  char name[64];
  std::snprintf(name, sizeof name, "frame-%05u%s", number + 1, suffix);
  return (fs::path(out) / name).string();
}

// A video as the file that it was.
int extract_video(const PixelImage& image, const std::string& in, const std::string& out) {
  const FrameSource& source = image.decoder()->source();
  const VideoStream video = read_video(image);
  std::error_code ignored;
  const std::string path = fs::is_directory(out, ignored)
                               ? (fs::path(out) / (std::string("video") + video_suffix(video))).string()
                               : out;
  FileSink sink;
  std::string problem = sink.open(path);
  std::string piece(kPiece, '\0');
  for (uint64_t at = 0; at < video.size && problem.empty(); at += piece.size()) {
    piece.resize(static_cast<std::size_t>(std::min<uint64_t>(kPiece, video.size - at)));
    if (!source.read_stream(at, piece.data(), piece.size())) {
      report(in, "its stream can not be read");
      return kUsage;
    }
    if (!sink.write(piece.data(), piece.size())) problem = "it can not be written";
  }
  if (problem.empty()) problem = sink.commit();
  if (problem.empty()) return kSuccess;
  report(path, problem);
  return kUsage;
}

}  // namespace

int extract_frames(const Args& args, PixelImage& image, const std::string& in, const std::string& out) {
  if (image.is_video()) return extract_video(image, in, out);
  Choice choice;
  const bool compressed = args.has("--compressed");
  if (compressed && !image.compressed()) {
    report(in, "its frames are not compressed");
    return kUsage;
  }
  uint32_t count = image.description().frames;
  if (compressed) {
    if (const std::string problem = image.count_streams(count); !problem.empty()) {
      report(in, problem);
      return kUsage;
    }
  }
  if (!chosen(args, count, true, choice)) return kUsage;
  bool writable = true;  // else no other frame is either
  const int result = each_frame(choice, in, [&](uint32_t i) -> std::string {
    if (!writable) return "";
    const uint32_t number = choice.first + i;
    Bytes bytes;
    std::string problem = compressed ? image.code_stream(number, bytes) : image.frame(number, bytes);
    if (!problem.empty()) return problem;
    const std::string path = frame_path(out, number, choice, compressed ? ".bin" : ".raw");
    problem = write_bytes(path, bytes);
    writable = problem.empty();
    return writable ? "" : path + ": " + problem;
  });
  return judge(image, in, result);
}

}  // namespace vexal
