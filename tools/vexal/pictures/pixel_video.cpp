// vexal pixel video: the frames of an image as a film, made by ffmpeg.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "base/object_values.h"
#include "base/tags.h"
#include "files/temp_folder.h"
#include "frame_painter.h"
#include "pixel_actions.h"
#include "rendering/colour.h"

extern char** environ;

namespace vexal {
namespace {

constexpr double kUsualRate = 25;
constexpr std::size_t kMostTold = 500;  // of what ffmpeg says

// How files of a suffix are coded.
struct Container {
  const char* suffix;
  std::vector<std::string> words;
};
const Container kContainers[] = {
    {".mp4", {"-c:v", "libx264", "-crf", "18", "-pix_fmt", "yuv420p", "-movflags", "+faststart"}},
    {".webm",
     {"-c:v", "libvpx-vp9", "-crf", "24", "-b:v", "0", "-deadline", "good", "-cpu-used", "4", "-pix_fmt",
      "yuv420p"}},
    {".avi", {"-c:v", "mjpeg", "-q:v", "2", "-pix_fmt", "yuvj420p"}},
};

const Container* container_of(const std::string& path) {
  for (const Container& container : kContainers) {
    if (path.ends_with(container.suffix)) return &container;
  }
  return nullptr;
}

// Frames in a second, as the option or the object tells (PS3.3 sections C.7.6.5 and C.7.6.6).
bool read_rate(const Args& args, int32_t id, double& rate) {
  const std::string text = args.get("--rate");
  char rest = 0;
  if (!text.empty()) {
    if (std::sscanf(text.c_str(), "%lf%c", &rate, &rest) == 1 && rate > 0 && rate <= 1000) return true;
    complain("--rate %s: give frames in a second, up to 1000", text.c_str());
    return false;
  }
  const auto usable = [](double value) { return std::isfinite(value) && value > 0 && value <= 1000; };
  const double own[] = {real_of(id, tags::kCineRate).value_or(0),
                        1000 / real_of(id, tags::kFrameTime).value_or(0),
                        real_of(id, tags::kRecommendedDisplayFrameRate).value_or(0)};
  rate = kUsualRate;
  for (const double value : own) {
    if (!usable(value)) continue;
    rate = value;
    break;
  }
  return true;
}

// ffmpeg, which takes frames on its standard input and makes a file of a folder of ours.
class Film {
 public:
  explicit Film(std::string path) : path_(std::move(path)), told_(path_ + ".log") {}
  ~Film() {
    finish();
    ::unlink(path_.c_str());
    ::unlink(told_.c_str());
  }
  Film(const Film&) = delete;
  Film& operator=(const Film&) = delete;

  std::string start(const Container& container, uint32_t width, uint32_t height, double rate);
  std::string add(const Picture& picture);
  // An error text of the whole, empty on success.
  std::string finish();

 private:
  std::string told() const;
  std::string path_;
  std::string told_;
  pid_t child_ = -1;
  int pipe_ = -1;
};

std::string Film::start(const Container& container, uint32_t width, uint32_t height, double rate) {
  char size[64];
  char speed[64];
  std::snprintf(size, sizeof size, "%ux%u", width, height);
  std::snprintf(speed, sizeof speed, "%.6g", rate);
  std::vector<std::string> words = {"ffmpeg", "-v", "error", "-f", "rawvideo", "-pix_fmt", "rgb24", "-s",
                                    size, "-r", speed, "-i", "pipe:0", "-an",
                                    // halved colour needs an even number of rows and columns
                                    "-vf", "pad=ceil(iw/2)*2:ceil(ih/2)*2"};
  words.insert(words.end(), container.words.begin(), container.words.end());
  words.insert(words.end(), {"-y", "file:" + path_});
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return std::strerror(errno);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, ends[0], STDIN_FILENO);
  ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, told_.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
  const int error = ::posix_spawnp(&child_, "ffmpeg", &actions, nullptr, arguments.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(ends[0]);
  pipe_ = ends[1];
  if (error == 0) return "";
  child_ = -1;
  return error == ENOENT ? "videos are made by ffmpeg, which is not installed (Debian: apt install ffmpeg)"
                         : std::string("can not run ffmpeg: ") + std::strerror(error);
}

std::string Film::add(const Picture& picture) {
  const uint8_t* bytes = picture.bytes.data();
  for (std::size_t left = picture.bytes.size(); left > 0;) {
    const ssize_t done = ::write(pipe_, bytes, left);
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) {
      const std::string problem = finish();
      return problem.empty() ? "ffmpeg takes no more" : problem;
    }
    bytes += done;
    left -= static_cast<std::size_t>(done);
  }
  return "";
}

std::string Film::finish() {
  if (pipe_ >= 0) ::close(std::exchange(pipe_, -1));
  if (child_ < 0) return "";
  int result = 0;
  while (::waitpid(child_, &result, 0) < 0 && errno == EINTR) {
  }
  child_ = -1;
  return result == 0 ? "" : "ffmpeg failed: " + told();
}

std::string Film::told() const {
  char text[kMostTold];
  const int fd = ::open(told_.c_str(), O_RDONLY | O_CLOEXEC);
  const ssize_t size = fd >= 0 ? ::read(fd, text, sizeof text) : 0;
  if (fd >= 0) ::close(fd);
  return {text, static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
}

// The whole file, under its own name at last.
std::string hand_over(const std::string& from, const std::string& to) {
  FileSource source;
  FileSink sink;
  if (std::string error = source.open(from); !error.empty()) return error;
  if (std::string error = sink.open(to); !error.empty()) return error;
  std::vector<char> block(1U << 20);
  for (uint64_t at = 0; at < source.size();) {
    const int64_t size = source.read_at(at, block.data(), block.size());
    if (size <= 0) return "can not read the film back";
    if (!sink.write(block.data(), static_cast<std::size_t>(size))) return sink.problem();
    at += static_cast<uint64_t>(size);
  }
  return sink.commit();
}

}  // namespace

int make_video(const Args& args, PixelImage& image, const std::string& in, const std::string& out) {
  const Container* container = container_of(out);
  if (container == nullptr) {
    complain("%s: a video needs a name that ends in .mp4, .webm or .avi", out.c_str());
    return kUsage;
  }
  if (image.is_video()) {
    report(in, "its frames are a video already, which vexal pixel extract gives as it is");
    return kUsage;
  }
  FramePainter painter;
  double rate = 0;
  if (!read_rate(args, image.file().id(), rate) || !painter.open(args, image, true)) return kUsage;
  std::signal(SIGPIPE, SIG_IGN);  // a film that ends early is an error like others
  const std::string film_path = temp_folder_path() + "/film" + container->suffix;
  Film film(film_path);
  Picture picture;
  uint32_t width = 0;
  uint32_t height = 0;
  std::string problem;
  for (const uint32_t number : painter.frames()) {
    problem = painter.paint(number, picture);
    if (problem.empty()) {
      to_colour(picture);
      if (width == 0) {
        width = picture.width;
        height = picture.height;
        problem = film.start(*container, width, height, rate);
        if (!problem.empty()) break;
      }
      problem = picture.width == width && picture.height == height ? film.add(picture)
                                                                   : "it is of another size than the first";
    }
    if (problem.empty()) continue;
    problem = "frame " + std::to_string(number + 1) + ": " + problem;
    break;
  }
  if (problem.empty()) problem = painter.missing();
  if (problem.empty()) problem = film.finish();
  if (problem.empty()) problem = hand_over(film_path, out);
  if (!problem.empty()) report(in, problem);
  return painter.judge(in, problem.empty() ? kSuccess : kUsage);
}

}  // namespace vexal
