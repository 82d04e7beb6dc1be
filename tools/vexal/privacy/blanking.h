// Parts of the pixels that identify, made black.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "base/args.h"
#include "files/files.h"

namespace vexal {

class RecodedPixels;

// In pixels of each frame, from its upper left corner.
struct Region {
  uint32_t x = 0;
  uint32_t y = 0;
  uint32_t width = 0;
  uint32_t height = 0;
};

class Blanking {
 public:
  // --blank and --blank-ultrasound. False after a line on standard error.
  bool read(const Args& args);
  // Whether pixels of the object go.
  bool concerns(int32_t object) const;
  // Hands a copy of the file to `take`, in a transfer syntax and with its regions black: once, and only if
  // that is possible. What is compressed is decompressed and compressed again. The copy lies beside `beside`
  // for so long. An error text, empty on success.
  using Taker = std::function<std::string(DicomFile& copy, RecodedPixels& pixels)>;
  std::string apply(DicomFile& file, VX_TRANSFER_SYNTAX syntax, const std::string& beside, unsigned threads,
                    const Taker& take) const;

 private:
  bool blanks_ultrasound(int32_t object) const;
  std::string mask_of(int32_t object, std::vector<bool>& black) const;
  std::string blank_copy(DicomFile& copy, const std::string& path) const;

  std::vector<Region> regions_;
  bool ultrasound_ = false;
};

}  // namespace vexal
