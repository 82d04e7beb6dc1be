// An image and what lies over it (a segmentation, a structure set or a dose), both hostile: frames are drawn
// to the end, or refused, and stay the pictures that they were.
#include "pictures/layers.h"

#include <cstdint>

#include "base/values.h"
#include "memory_file.h"
#include "real_library.h"

namespace {

constexpr std::size_t kMostPixels = 1 << 14;  // larger ones are left to tests
constexpr uint32_t kFrames = 3;

void draw(vexal::LayerOpener* open, const std::string& path, const vexal::PixelImage& image, bool fill) {
  const vexal::ImageDescription& d = image.description();
  const int32_t id = image.file().id();
  const vexal::Ground ground{vexal::text_of(id, vexal::tags::kSOPInstanceUID), d.columns, d.rows,
                             vexal::Planes(id, d.frames)};
  vexal::LayerChoices choices;
  choices.fill = fill;
  if (fill) choices.dose_range = {0.5, 5};
  std::string problem;
  const std::unique_ptr<vexal::Layer> layer = open(path, ground, choices, problem);
  fuzz::require((layer == nullptr) == !problem.empty());
  if (layer == nullptr) return;
  vexal::Picture picture;
  picture.width = d.columns;
  picture.height = d.rows;
  picture.samples = 3;
  picture.bytes.assign(3 * d.pixels(), 0);
  for (uint32_t frame = 0; frame < std::min(d.frames, kFrames); ++frame) {
    vexal::Slice slice;
    vexal::ImagePlane plane;
    slice.frame = frame;
    slice.no_plane = ground.planes.read(frame, plane);
    if (slice.no_plane.empty()) slice.plane = plane;
    bool drawn = false;
    layer->draw(slice, picture, drawn);
    fuzz::require(picture.bytes.size() == 3 * d.pixels());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static const bool started = (fuzz::start_real_library(), true);
  if (!started || size < 3) return 0;
  const std::size_t cut = fuzz::second_file(data, size);
  const fuzz::MemoryFile below(data + 2, cut - 2);
  const fuzz::MemoryFile above(data + cut, size - cut);
  vexal::PixelImage image;
  if (!image.open(below.path()).empty() || image.description().pixels() > kMostPixels) return 0;
  vexal::LayerOpener* const openers[] = {vexal::open_segmentation, vexal::open_contours, vexal::open_dose};
  for (vexal::LayerOpener* open : openers) draw(open, above.path(), image, data[size - 1] % 2 == 0);
  return 0;
}
