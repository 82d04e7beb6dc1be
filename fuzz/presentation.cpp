// An image and a presentation state of it, both hostile: what the state asks for is drawn to the end, or
// refused.
#include "pictures/presentation.h"

#include <cstdint>

#include "base/object_values.h"
#include "base/tag_path.h"
#include "memory_file.h"
#include "real_library.h"

namespace {

constexpr uint32_t kMostPixels = 1 << 16;  // larger ones are left to tests

bool is_modest(const std::string& path) {
  vexal::DicomFile file;
  if (file.open(path, {}) != VX_NORMAL_COMPLETION) return false;
  for (const int32_t item : vexal::sequence_items(file.id(), vexal::tags::kDisplayedAreaSelectionSequence)) {
    for (const uint32_t corner :
         {vexal::tags::kDisplayedAreaTopLeftHandCorner, vexal::tags::kDisplayedAreaBottomRightHandCorner}) {
      for (const int32_t value : vexal::integers_of(item, corner)) {
        if (std::abs(int64_t{value}) > 256) return false;
      }
    }
    if (vexal::real_of(item, vexal::tags::kPresentationPixelMagnificationRatio).value_or(1) > 4) return false;
  }
  return true;
}

void require_whole(const vexal::Picture& picture) {
  fuzz::require(picture.bytes.size() ==
                std::size_t{picture.width} * picture.height * picture.samples * picture.bits / 8);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static const bool started = (fuzz::start_real_library(), true);
  if (!started || size < 3) return 0;
  const std::size_t cut = fuzz::second_file(data, size);
  const fuzz::MemoryFile of(data + 2, cut - 2);
  const fuzz::MemoryFile state(data + cut, size - cut);
  vexal::PixelImage image;
  if (!image.open(of.path()).empty() || image.description().pixels() > kMostPixels ||
      !is_modest(state.path()))
    return 0;
  for (const uint32_t bits : {8U, 16U}) {
    vexal::Presentation presentation;
    vexal::Picture picture;
    vexal::RenderOptions options;
    options.bits = bits;
    if (!presentation.open(state.path(), image).empty() || !presentation.choose(0).empty() ||
        !presentation.render(options, picture).empty())
      return 0;
    require_whole(picture);
    presentation.display(picture);
    require_whole(picture);
  }
  return 0;
}
