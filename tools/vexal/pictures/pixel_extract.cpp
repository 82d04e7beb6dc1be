// vexal pixel extract: frames as bytes.
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "pixel_actions.h"
#include "video_stream.h"

namespace vexal {
namespace {

namespace fs = std::filesystem;

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
  const VideoStream video = read_video(image);
  std::error_code ignored;
  const std::string path = fs::is_directory(out, ignored)
                               ? (fs::path(out) / (std::string("video") + video_suffix(video))).string()
                               : out;
  if (const std::string problem = copy_to_file(video.read, video.size, path); !problem.empty()) {
    report(path, problem);
    return kUsage;
  }
  if (video.doubt.empty()) return kSuccess;
  report(in, video.doubt);
  return kFindings;
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
  if (!chosen(args, image, true, choice)) return kUsage;
  bool writable = true;  // else no other frame is either
  const int result = each_frame(choice, in, [&](uint32_t i) -> std::string {
    if (!writable) return "";
    const uint32_t number = choice.first + i;
    Bytes bytes;
    std::string problem = compressed ? image.code_stream(number, bytes) : image.frame(number, bytes);
    if (!problem.empty()) return problem;
    const std::string path = frame_path(out, number, choice, compressed ? ".bin" : ".raw");
    const auto read = [&](uint64_t at, void* buffer, std::size_t size) {
      std::memcpy(buffer, bytes.data() + at, size);
      return true;
    };
    problem = copy_to_file(read, bytes.size(), path);
    writable = problem.empty();
    return writable ? "" : path + ": " + problem;
  });
  return judge(image, in, result);
}

}  // namespace vexal
