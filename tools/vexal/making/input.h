// What an object can be made of, told by its content.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "files/files.h"

namespace vexal {

enum class InputKind {
  Unknown,
  Raw,  // samples, as options describe them
  Png,
  Bmp,
  Jpeg,
  Jpeg2000,
  Jp2,
  Pdf,
  Cda,
  Stl,
  Obj,
  Mtl,
  Video
};

struct Input {
  std::string path{};
  std::shared_ptr<FileSource> file{};
  InputKind kind = InputKind::Unknown;
  uint64_t size() const { return file->size(); }
};

// Opens a file and tells what it is. An error text, empty on success.
std::string open_input(const std::string& path, Input& input);
const char* name_of(InputKind kind);
bool is_picture(InputKind kind);
bool is_document(InputKind kind);

}  // namespace vexal
