// vexal pixel: what an image holds, its frames as bytes or pictures, and the offset table of its fragments.
#include <algorithm>

#include "base/commands.h"
#include "base/session.h"
#include "files/files.h"
#include "images/write_options.h"
#include "pictures/layers.h"
#include "pictures/pixel_actions.h"
#include "whole_slides.h"

namespace vexal {

namespace {

constexpr Option kOptions[] = {
    {"--frame", "N", "one frame, from 1 (default: all for extract, sheet and compare, the first for render)"},
    {"--compressed", nullptr, "extract: frames as their compressed streams"},
    {"--window", "C,W", "render with this window center and width"},
    {"--window-number", "N", "which of the image's own windows (default 1); 0: the range of its values"},
    {"--voi-lut", "N", "render with this table of the image's VOI LUT Sequence"},
    {"--invert", nullptr, "render light as dark"},
    {"--no-overlays", nullptr, "render without overlay planes"},
    {"--no-shutter", nullptr, "render what a display shutter hides too"},
    {"--presentation", "FILE", "render, sheet, video: as this presentation state wants it"},
    {"--with", "FILE", "an image that a blending presentation state lays over this one (repeated)"},
    {"--dpi", "N", "dots in an inch, for presentation states in true size"},
    {"--no-icc", nullptr, "render colours as they are stored, not as their ICC profile means them"},
    {"--no-aspect", nullptr, "a pixel of the picture for each of the image, though these are not square"},
    {"--bits", "8|16", "render grey with this many bits (default 8)"},
    {"--quality", "N", "of a JPEG file, 1 to 100 (default 90)"},
    {"--columns", "N", "sheet: pictures in a row (default: about a square)"},
    {"--tile", "N", "sheet: largest side of a picture (default 128)"},
    {"--rate", "N", "video: frames in a second (default: what the image says, else 25)"},
    {"--matrix", nullptr, "render the tiles of a whole-slide image, or of the parts of one, as one picture"},
    {"--region", "X,Y,W,H", "of the matrix: so many pixels from there, the first being 0,0"},
    {"--scale", "N", "of the matrix: N by N pixels become one, their average"},
    {"--optical-path", "ID", "of the matrix (default: the first)"},
    {"--focal-plane", "N", "of the matrix, from 1 (default: the first)"},
    {"--repair", "OUT", "offsets: write the object with the right table"},
    VEXAL_LAYER_OPTIONS,
    VEXAL_WRITE_OPTIONS,
};

struct Action {
  const char* name;
  const char* second;  // what the name behind one file is for; null: any number of files
  int (*run)(const Args& args, PixelImage& image, const std::string& in, const std::string& out);
};
constexpr Action kActions[] = {
    {"info", nullptr, show_image},
    {"extract", "a name to write", extract_frames},
    {"render", "a name to write", render_frame},
    {"sheet", "a name to write", make_sheet},
    {"video", "a name to write", make_video},
    {"offsets", nullptr, check_offsets},
    {"compare", "another to compare it with", compare_images},
};

int run_on(const Action& action, const Args& args, const std::string& path, const std::string& out) {
  const CurrentFile current(path);
  const Turn turn(path, args.get("--repair"));
  PixelImage image;
  const std::string problem = image.open(path);
  if (problem.empty()) return action.run(args, image, path, out);
  report(path, problem);
  return kUsage;
}

constexpr const char* kMatrixOptions[] = {"--region", "--scale", "--optical-path", "--focal-plane"};
// Those of single frames.
constexpr const char* kFrameOptions[] = {"--frame", "--presentation", "--with",     "--dpi",
                                         "--bits",  "--no-aspect",    "--contours", "--dose"};

// Those of pictures: of one, or of several too.
constexpr struct {
  const char* name;
  bool sheets_too;
} kPictureOptions[] = {{"--presentation", true}, {"--with", true}, {"--dpi", true}, {"--bits", false}};

// No picture, film or frame takes the place of an object.
bool spares_objects(const std::string& in, const std::string& out) {
  const std::string problem = object_in_the_way(out, in);
  if (!problem.empty()) report(out, problem);
  return problem.empty();
}

// Actions on files that belong together. False: this is none of them.
bool run_on_all(const Args& args, int& result) {
  const std::string name = args.paths.empty() ? "" : args.paths[0];
  if (name == "levels" && args.paths.size() > 1) {
    result = show_levels({args.paths.begin() + 1, args.paths.end()});
    return true;
  }
  if (name == "render" && args.has("--matrix") && args.paths.size() > 2) {
    for (const char* option : kFrameOptions) {
      if (!args.has(option)) continue;
      complain("%s does not go with --matrix", option);
      result = kUsage;
      return true;
    }
    result = spares_objects(args.paths[1], args.paths.back())
                 ? render_matrix(args, {args.paths.begin() + 1, args.paths.end() - 1}, args.paths.back())
                 : static_cast<int>(kUsage);
    return true;
  }
  for (const char* option : kMatrixOptions) {
    if (!args.has(option) || args.has("--matrix")) continue;
    complain("%s goes with --matrix", option);
    result = kUsage;
    return true;
  }
  return false;
}

int run(const Args& args) {
  if (int result = kSuccess; run_on_all(args, result)) return result;
  const auto* action = std::find_if(std::begin(kActions), std::end(kActions), [&](const Action& a) {
    return !args.paths.empty() && args.paths[0] == a.name;
  });
  if (action == std::end(kActions)) {
    std::string names;
    for (const Action& a : kActions) names += std::string(a.name) + ", ";
    names += "levels";
    complain("pixel needs one of: %s; --help tells more", names.c_str());
    return kUsage;
  }
  const bool pair = action->second != nullptr;
  if (pair ? args.paths.size() != 3 : args.paths.size() < 2) {
    complain("pixel %s needs a file to read%s%s", action->name, pair ? " and " : "",
             pair ? action->second : "");
    return kUsage;
  }
  for (const auto& [name, sheets_too] : kPictureOptions) {
    const bool fits = action->run == render_frame ||
                      (sheets_too && (action->run == make_sheet || action->run == make_video));
    if (fits || !args.has(name)) continue;
    complain("%s is for vexal pixel render%s", name, sheets_too ? ", sheet and video" : "");
    return kUsage;
  }
  if (args.has("--repair") && args.paths.size() != 2) {
    complain("--repair goes with one file");
    return kUsage;
  }
  if (pair && action->run != compare_images && !spares_objects(args.paths[1], args.paths[2])) return kUsage;
  if (pair) return run_on(*action, args, args.paths[1], args.paths[2]);
  int worst = kSuccess;
  for (std::size_t i = 1; i < args.paths.size(); ++i)
    worst = std::max(worst, run_on(*action, args, args.paths[i], ""));
  return worst;
}

}  // namespace

const Command kPixel = {
    "pixel",
    "info|extract|render|sheet|video|offsets|compare|levels [OPTION...] FILE... [OUT]",
    "look at the frames of an image",
    "info tells what the pixel data is. extract writes frames as bytes, to OUT for one frame and\n"
    "into the folder OUT for several. render writes one frame as a picture: modality and VOI\n"
    "transformation, palette, colour, overlays. sheet puts all frames on one picture. A name that ends\n"
    "in .jpg or .tif gives a JPEG or TIFF file, any other a PNG file. video makes a film of all frames, a\n"
    "file in .mp4, .webm or .avi, by ffmpeg. offsets checks the offset table of compressed pixel data, and\n"
    "repairs it. render --matrix puts the tiles of a whole-slide image together, and levels tells which\n"
    "pyramids the images of files and folders make. compare tells frame by frame whether two images hold\n"
    "the same values, how far they are apart, and where.",
    kOptions,
    run};

}  // namespace vexal
