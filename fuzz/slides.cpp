// A whole-slide image, hostile: its matrix, or a region of it, is put together to the end, or refused; what
// is shown of one plane at any scale has the rows that it was announced to have.
#include "slides/slide.h"

#include <cstdint>

#include "memory_file.h"
#include "real_library.h"
#include "slides/matrix.h"
#include "slides/whole_slides.h"

namespace {

constexpr uint32_t kMostSide = 512;  // of what is shown

void paint(vexal::Slide& slide, uint32_t choice) {
  const vexal::MatrixForm& form = slide.form();
  vexal::MatrixView view;
  view.x = choice % 3 == 0 ? 0 : form.columns / (choice % 7 + 1);
  view.y = choice % 3 == 0 ? 0 : form.rows / (choice % 5 + 1);
  view.width = std::min(form.columns - std::min(view.x, form.columns - 1), kMostSide);
  view.height = std::min(form.rows - std::min(view.y, form.rows - 1), kMostSide);
  view.x = std::min(view.x, form.columns - 1);
  view.y = std::min(view.y, form.rows - 1);
  view.scale = choice % 4 + 1;
  view.path = choice % static_cast<uint32_t>(form.paths.size());
  view.plane = choice % form.planes;
  view.render.invert = choice % 2 == 0;
  vexal::MatrixPainter painter(slide, view);
  if (!painter.open().empty()) return;
  uint64_t rows = 0;
  painter.paint([&](const uint8_t* bytes, uint32_t count) {
    const std::size_t size = std::size_t{painter.width()} * painter.samples() * count;
    rows += count;
    fuzz::require(size == 0 || bytes[0] + bytes[size - 1] >= 0);  // they can be read
    return std::string();
  });
  fuzz::require(rows == painter.height());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static const bool started = (fuzz::start_real_library(), true);
  if (!started || size == 0) return 0;
  const fuzz::MemoryFile file(data, size);
  vexal::show_levels({file.path()});
  vexal::Slide slide;
  if (!slide.open({file.path()}).empty()) return 0;
  for (uint32_t choice = 0; choice < 3; ++choice) paint(slide, data[size - 1] + 5 * choice);
  return 0;
}
