// A picture as people see it, and the files that hold it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vexal {

// What a picture is made of: rows from the top, pixels from the left, samples of a pixel together: one of
// grey, or red, green and blue.
struct PictureForm {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t samples = 1;
  uint32_t bits = 8;  // or 16 of grey or colour
  int quality = 90;   // of JPEG, 1 to 100
  double across = 0;  // mm from pixel to pixel in a row; 0 if it is not known
  double down = 0;    // and from row to row
};

struct Picture {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t samples = 1;
  uint32_t bits = 8;  // or 16, of the machine's order
  double across = 0;  // mm from pixel to pixel in a row; 0 if it is not known
  double down = 0;
  std::vector<uint8_t> bytes;
};

class PictureFormat;
class FileSink;

// Writes a picture row by row: as a JPEG or TIFF file if the name ends so (.jpg, .jpeg, .tif, .tiff), else as
// PNG. The file gets its name when all is there; dropped without commit, nothing stays. Each call gives an
// error text, empty on success; after one the others do nothing.
class PictureWriter {
 public:
  PictureWriter();
  ~PictureWriter();
  PictureWriter(const PictureWriter&) = delete;
  PictureWriter& operator=(const PictureWriter&) = delete;

  std::string open(const std::string& path, const PictureForm& form);
  // The next rows, one behind the other without a gap; samples of 16 bits in the order of the machine.
  std::string rows(const uint8_t* bytes, uint32_t count);
  std::string commit();

 private:
  std::unique_ptr<FileSink> sink_;
  std::unique_ptr<PictureFormat> format_;
  PictureForm form_;
  uint32_t written_ = 0;
  std::string problem_;
};

// All of a picture.
std::string write_picture(const Picture& picture, const std::string& path,
                          int quality = PictureForm{}.quality);

}  // namespace vexal
