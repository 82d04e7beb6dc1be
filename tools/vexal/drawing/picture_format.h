// The forms of picture files, for the writer in front of them.
#pragma once

#include <memory>
#include <string>

#include "files/files.h"
#include "picture.h"

namespace vexal {

// One file being written: begin, all rows, end. The sink outlives it.
class PictureFormat {
 public:
  PictureFormat() = default;
  PictureFormat(const PictureFormat&) = delete;
  PictureFormat& operator=(const PictureFormat&) = delete;
  virtual ~PictureFormat() = default;
  // An error text, empty on success.
  virtual std::string begin(FileSink& sink, const PictureForm& form) = 0;
  virtual bool rows(const uint8_t* bytes, uint32_t count) = 0;
  virtual bool end() = 0;
};

std::unique_ptr<PictureFormat> make_png();
std::unique_ptr<PictureFormat> make_jpeg();
std::unique_ptr<PictureFormat> make_tiff();

}  // namespace vexal
