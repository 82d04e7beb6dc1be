// What vexal make makes objects of: pictures, code streams, documents and films, told apart by their content.
#include <cstdint>
#include <cstdlib>

#include "images/film.h"
#include "making/documents.h"
#include "making/stills.h"
#include "memory_file.h"

namespace {

// Pictures of more pixels than this are left to tests: they are no larger files.
constexpr uint64_t kMostPixels = 1 << 22;

void read_input(vexal::Input& input) {
  using vexal::InputKind;
  if (vexal::is_picture(input.kind)) {
    vexal::Still still;
    vexal::StillOptions options;
    options.has_background = true;
    const std::string problem = vexal::read_still(input, options, still);
    if (problem.empty() && still.frames.size() != 1) std::abort();
  } else if (vexal::is_document(input.kind)) {
    std::vector<std::pair<std::string, std::string>> attributes;
    vexal::read_document(input, attributes);
  } else {
    vexal::Film film;
    const vexal::ValueReader read = [&](uint64_t at, void* buffer, std::size_t length) {
      return input.file->read_at(at, buffer, length) == static_cast<int64_t>(length);
    };
    if (vexal::read_film(read, input.size(), film).empty()) vexal::describe_codec(film);
  }
}

// PNG and BMP say in their heads how much they unpack to.
bool is_modest(const uint8_t* data, std::size_t size) {
  const auto number = [&](std::size_t at, bool big) {
    uint64_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) value |= uint64_t{data[at + i]} << 8 * (big ? 3 - i : i);
    return value;
  };
  if (size >= 24 && data[0] == 0x89)
    return number(16, true) < 65536 && number(16, true) * number(20, true) < kMostPixels;
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (!is_modest(data, size)) return 0;
  const fuzz::MemoryFile file(data, size);
  vexal::Input input;
  if (vexal::open_input(file.path(), input).empty()) read_input(input);
  return 0;
}
