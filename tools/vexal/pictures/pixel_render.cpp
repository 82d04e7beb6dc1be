// vexal pixel render, sheet: frames as pictures.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "drawing/scale.h"
#include "frame_painter.h"
#include "pixel_actions.h"
#include "rendering/pixel_shape.h"

namespace vexal {
namespace {

constexpr std::size_t kLargestSheet = std::size_t{1} << 28;
constexpr uint32_t kSheetFrames = 4096;

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

}  // namespace

bool read_quality(const Args& args, int& quality) {
  long number = PictureForm{}.quality;
  if (!args.number("--quality", 1, 100, number)) return false;
  quality = static_cast<int>(number);
  return true;
}

bool read_rendering(const Args& args, RenderOptions& options) {
  long window = 1;
  if (!args.number("--window-number", 0, 1000, window)) return false;
  options.window = static_cast<int>(window);
  options.invert = args.has("--invert");
  options.overlays = !args.has("--no-overlays");
  options.shutters = !args.has("--no-shutter");
  options.icc = !args.has("--no-icc");
  long table = 0;
  if (!args.number("--voi-lut", 1, 1000, table)) return false;
  options.voi_lut = static_cast<int>(table);
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

void shape_pixels(const PixelImage& image, uint32_t frame, bool square, Picture& picture) {
  const PixelShape shape = pixel_shape(image.file().id(), image.groups(), frame);
  if (shape.in_mm) {
    picture.across = shape.across;
    picture.down = shape.down;
  }
  if (square) make_square(picture, shape.across, shape.down);
}

int render_frame(const Args& args, PixelImage& image, const std::string& in, const std::string& out) {
  FramePainter painter;
  int quality = 0;
  if (!read_quality(args, quality) || !painter.open(args, image, false)) return kUsage;
  Picture picture;
  if (const std::string problem = painter.paint(painter.frames()[0], picture); !problem.empty()) {
    report(in, problem);
    return kUsage;
  }
  int result = kSuccess;
  if (const std::string problem = write_picture(picture, out, quality); !problem.empty()) {
    report(out, problem);
    result = kUsage;
  }
  return painter.judge(in, result);
}

int make_sheet(const Args& args, PixelImage& image, const std::string& in, const std::string& out) {
  FramePainter painter;
  long tile = 128;
  long columns = 0;
  int quality = 0;
  if (!read_quality(args, quality) || !args.number("--tile", 8, 4096, tile) ||
      !args.number("--columns", 1, 1024, columns) || !painter.open(args, image, true)) {
    return kUsage;
  }
  const std::vector<uint32_t>& frames = painter.frames();
  const uint32_t count = static_cast<uint32_t>(std::min<std::size_t>(frames.size(), kSheetFrames));
  if (columns == 0) columns = static_cast<long>(std::ceil(std::sqrt(count)));
  columns = std::min(columns, static_cast<long>(count));
  const auto across = static_cast<uint32_t>(columns);
  const auto side = static_cast<uint32_t>(tile);
  Picture sheet;
  sheet.samples = 3;
  sheet.width = across * side;
  sheet.height = (count + across - 1) / across * side;
  if (std::size_t{sheet.width} * sheet.height > kLargestSheet) {
    complain("the sheet would be too large: take a smaller --tile");
    return kUsage;
  }
  sheet.bytes.assign(std::size_t{sheet.width} * sheet.height * 3, 0);
  int result = kSuccess;
  if (!painter.missing().empty()) {
    report(in, painter.missing());
    result = kUsage;
  }
  uint32_t shown = 0;
  Picture picture;
  for (uint32_t i = 0; i < count; ++i) {
    if (const std::string problem = painter.paint(frames[i], picture); !problem.empty()) {
      report(in, "frame " + std::to_string(frames[i] + 1) + ": " + problem);
      result = kUsage;
      continue;
    }
    place(picture, sheet, i % across * side, i / across * side, side);
    ++shown;
  }
  if (shown == 0) return result;
  if (const std::string problem = write_picture(sheet, out, quality); !problem.empty()) {
    report(out, problem);
    result = kUsage;
  }
  return painter.judge(in, result);
}

}  // namespace vexal
