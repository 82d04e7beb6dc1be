// vexal pixel: what an image holds, its frames as bytes or pictures, and the offset table of its fragments.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "base/commands.h"
#include "base/names.h"
#include "base/session.h"
#include "pixel_image.h"
#include "pixel_offsets.h"
#include "write_options.h"

namespace vexal {
namespace {

namespace fs = std::filesystem;

constexpr Option kOptions[] = {
    {"--frame", "N", "one frame, from 1 (default: all for extract and sheet, the first for render)"},
    {"--compressed", nullptr, "extract: frames as their compressed streams"},
    {"--window", "C,W", "render with this window center and width"},
    {"--window-number", "N", "which of the image's own windows (default 1); 0: the range of its values"},
    {"--invert", nullptr, "render light as dark"},
    {"--no-overlays", nullptr, "render without overlay planes"},
    {"--columns", "N", "sheet: pictures in a row (default: about a square)"},
    {"--tile", "N", "sheet: largest side of a picture (default 128)"},
    {"--repair", "OUT", "offsets: write the object with the right table"},
    VEXAL_WRITE_OPTIONS,
};

constexpr std::size_t kLargestSheet = std::size_t{1} << 28;
constexpr uint32_t kSheetFrames = 4096;

struct Choice {
  uint32_t first = 0;
  uint32_t count = 0;
};

// The frames that are asked for.
bool chosen(const Args& args, uint32_t frames, bool all, Choice& choice) {
  long number = 0;
  if (!args.number("--frame", 1, INT32_MAX, number)) return false;
  if (number > static_cast<long>(frames)) {
    complain("--frame %ld: the image has %u", number, frames);
    return false;
  }
  choice = number != 0 ? Choice{static_cast<uint32_t>(number) - 1, 1} : Choice{0, all ? frames : 1};
  return true;
}

bool read_rendering(const Args& args, RenderOptions& options) {
  long window = 1;
  if (!args.number("--window-number", 0, 1000, window)) return false;
  options.window = static_cast<int>(window);
  options.invert = args.has("--invert");
  options.overlays = !args.has("--no-overlays");
  if (!args.has("--window")) return true;
  double center = 0;
  double width = 0;
  char rest = 0;
  if (std::sscanf(args.get("--window").c_str(), "%lf,%lf%c", &center, &width, &rest) != 2 ||
      !std::isfinite(center) || !std::isfinite(width) || width < 1) {
    complain("--window %s: give a center and a width of 1 or more, as in 40,400",
             args.get("--window").c_str());
    return false;
  }
  options.center = center;
  options.width = width;
  return true;
}

std::string write_bytes(const std::string& path, const std::string& bytes) {
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

// --- Offset tables ---

int check_offsets(const Args& args, PixelImage& image, const std::string& path) {
  if (!image.compressed()) {
    say("%s: not encapsulated", path.c_str());
    return kSuccess;
  }
  const std::string fault = table_fault(image);
  say("%s: %s", path.c_str(), table_verdict(image, fault).c_str());
  if (!args.has("--repair")) return fault.empty() ? kSuccess : kFindings;
  std::string problem = repair_table(image);
  WriteOptions options;
  if (!options.read(args)) return kUsage;
  if (problem.empty()) problem = write_file(image.file(), args.get("--repair"), options);
  if (problem.empty()) return values_were_lost() ? kFindings : kSuccess;
  report(path, problem);
  return kUsage;
}

// --- The other actions ---

int show(PixelImage& image, const std::string& path) {
  const ImageDescription& d = image.description();
  char uid[80] = "";
  VX_Get_Transfer_Syntax_From_Enum(image.file().syntax(), uid, sizeof uid);
  say("%s", path.c_str());
  say("  %u x %u, %u frame%s, %s, %u sample%s of %u bits in %u%s%s", d.columns, d.rows, d.frames,
      d.frames == 1 ? "" : "s", d.photometric.c_str(), d.samples, d.samples == 1 ? "" : "s", d.stored,
      d.allocated, d.is_signed ? ", signed" : "", d.samples > 1 && d.planar == 1 ? ", planar" : "");
  say("  transfer syntax %s", describe_uid(uid).c_str());
  if (!image.compressed()) {
    std::printf("  %llu bytes\n", static_cast<unsigned long long>(image.value().size()));
    return kSuccess;
  }
  uint64_t bytes = 0;
  for (const Fragment& fragment : image.fragments().fragments) bytes += fragment.length;
  const uint64_t raw = uint64_t{d.rows} * d.columns * d.samples * d.frames * d.allocated / 8;
  const std::string fault = table_fault(image);
  std::printf("  %zu fragments of %llu bytes, ratio %.2f; %s\n", image.fragments().fragments.size(),
              static_cast<unsigned long long>(bytes),
              bytes != 0 ? static_cast<double>(raw) / static_cast<double>(bytes) : 0.0,
              table_verdict(image, fault).c_str());
  return kSuccess;
}

// What an image whose frames came out of their decoder is worth.
int judge(const PixelImage& image, const std::string& path, int result) {
  if (image.cut_short() == 0) return result;
  report(path, tell_of_cuts(image.cut_short()));
  return std::max(result, static_cast<int>(kFindings));
}

// Calls work(i) for each chosen frame; one that fails does not end the others.
template <typename Work>
int each_frame(const Choice& choice, const std::string& in, Work work) {
  int result = kSuccess;
  for (uint32_t i = 0; i < choice.count; ++i) {
    const std::string problem = work(i);
    if (problem.empty()) continue;
    report(in, "frame " + std::to_string(choice.first + i + 1) + ": " + problem);
    result = kUsage;
  }
  return result;
}

int extract(const Args& args, PixelImage& image, const std::string& in, const std::string& out) {
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
    std::string bytes;
    std::string problem = compressed ? image.code_stream(number, bytes) : image.frame(number, bytes);
    if (!problem.empty()) return problem;
    const std::string path = frame_path(out, number, choice, compressed ? ".bin" : ".raw");
    problem = write_bytes(path, bytes);
    writable = problem.empty();
    return writable ? "" : path + ": " + problem;
  });
  return judge(image, in, result);
}

int render(const Args& args, PixelImage& image, const std::string& in, const std::string& out) {
  Choice choice;
  RenderOptions options;
  if (!chosen(args, image.description().frames, false, choice) || !read_rendering(args, options))
    return kUsage;
  Picture picture;
  std::string problem = image.render(choice.first, options, picture);
  if (!problem.empty()) {
    report(in, problem);
    return kUsage;
  }
  problem = write_png(picture, out);
  if (!problem.empty()) report(out, problem);
  return judge(image, in, problem.empty() ? kSuccess : kUsage);
}

// A picture made smaller by averaging, into its place on the sheet, always in colour.
void place(const Picture& from, Picture& sheet, uint32_t left, uint32_t top, uint32_t tile) {
  const double scale =
      std::min({1.0, static_cast<double>(tile) / from.width, static_cast<double>(tile) / from.height});
  const auto width = std::max(1U, static_cast<uint32_t>(from.width * scale));
  const auto height = std::max(1U, static_cast<uint32_t>(from.height * scale));
  for (uint32_t y = 0; y < height; ++y) {
    const auto y0 = static_cast<uint32_t>(uint64_t{y} * from.height / height);
    const uint32_t y1 = std::max(y0 + 1, static_cast<uint32_t>(uint64_t{y + 1} * from.height / height));
    for (uint32_t x = 0; x < width; ++x) {
      const auto x0 = static_cast<uint32_t>(uint64_t{x} * from.width / width);
      const uint32_t x1 = std::max(x0 + 1, static_cast<uint32_t>(uint64_t{x + 1} * from.width / width));
      for (uint32_t c = 0; c < 3; ++c) {
        uint64_t sum = 0;
        for (uint32_t v = y0; v < y1; ++v) {
          for (uint32_t u = x0; u < x1; ++u) {
            sum += from.bytes[(std::size_t{v} * from.width + u) * from.samples + (from.samples == 3 ? c : 0)];
          }
        }
        const std::size_t at = (std::size_t{top + y} * sheet.width + left + x) * 3 + c;
        sheet.bytes[at] = static_cast<uint8_t>(sum / (uint64_t{y1 - y0} * (x1 - x0)));
      }
    }
  }
}

int make_sheet(const Args& args, PixelImage& image, const std::string& in, const std::string& out) {
  Choice choice;
  RenderOptions options;
  long tile = 128;
  long columns = 0;
  if (!chosen(args, image.description().frames, true, choice) || !read_rendering(args, options) ||
      !args.number("--tile", 8, 4096, tile) || !args.number("--columns", 1, 1024, columns)) {
    return kUsage;
  }
  choice.count = std::min(choice.count, kSheetFrames);
  if (columns == 0) columns = static_cast<long>(std::ceil(std::sqrt(choice.count)));
  columns = std::min(columns, static_cast<long>(choice.count));
  const auto across = static_cast<uint32_t>(columns);
  const auto side = static_cast<uint32_t>(tile);
  Picture sheet;
  sheet.samples = 3;
  sheet.width = across * side;
  sheet.height = (choice.count + across - 1) / across * side;
  if (std::size_t{sheet.width} * sheet.height > kLargestSheet) {
    complain("the sheet would be too large: take a smaller --tile");
    return kUsage;
  }
  sheet.bytes.assign(std::size_t{sheet.width} * sheet.height * 3, 0);
  uint32_t shown = 0;
  int result = each_frame(choice, in, [&](uint32_t i) -> std::string {
    Picture picture;
    std::string problem = image.render(choice.first + i, options, picture);
    if (!problem.empty()) return problem;
    place(picture, sheet, i % across * side, i / across * side, side);
    ++shown;
    return "";
  });
  if (shown == 0) return result;
  if (const std::string problem = write_png(sheet, out); !problem.empty()) {
    report(out, problem);
    result = kUsage;
  }
  return judge(image, in, result);
}

int run(const Args& args) {
  const std::string action = args.paths.empty() ? "" : args.paths[0];
  const bool listing = action == "info" || action == "offsets";
  const bool writing = action == "extract" || action == "render" || action == "sheet";
  if (!listing && !writing) {
    complain("pixel needs one of: info, extract, render, sheet, offsets; --help tells more");
    return kUsage;
  }
  if (writing ? args.paths.size() != 3 : args.paths.size() < 2) {
    complain("pixel %s needs %s", action.c_str(),
             writing ? "a file to read and a name to write" : "a file to read");
    return kUsage;
  }
  if (args.has("--repair") && args.paths.size() != 2) {
    complain("--repair goes with one file");
    return kUsage;
  }
  int worst = kSuccess;
  const std::size_t end = writing ? 2 : args.paths.size();
  for (std::size_t i = 1; i < end; ++i) {
    const std::string& path = args.paths[i];
    const CurrentFile current(path);
    PixelImage image;
    int result = kUsage;
    if (const std::string problem = image.open(path); !problem.empty()) {
      report(path, problem);
    } else if (action == "info") {
      result = show(image, path);
    } else if (action == "offsets") {
      result = check_offsets(args, image, path);
    } else if (action == "extract") {
      result = extract(args, image, path, args.paths[2]);
    } else {
      result = (action == "render" ? render : make_sheet)(args, image, path, args.paths[2]);
    }
    worst = std::max(worst, result);
  }
  return worst;
}

}  // namespace

const Command kPixel = {
    "pixel",
    "info|extract|render|sheet|offsets [OPTION...] FILE... [OUT]",
    "look at the frames of an image",
    "info tells what the pixel data is. extract writes frames as bytes, to OUT for one frame and\n"
    "into the folder OUT for several. render writes one frame as a PNG file: modality and VOI\n"
    "transformation, palette, colour, overlays. sheet puts all frames on one PNG file. offsets\n"
    "checks the offset table of compressed pixel data, and repairs it.",
    kOptions,
    run};

}  // namespace vexal
