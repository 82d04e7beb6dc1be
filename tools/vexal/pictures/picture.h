// A picture as people see it, and the files that hold it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vexal {

// Rows from the top, pixels from the left, samples of a pixel together: one of grey, or red, green and blue.
struct Picture {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t samples = 1;
  std::vector<uint8_t> bytes;
};

// A picture as a PNG file. An error text, empty on success.
std::string write_png(const Picture& picture, const std::string& path);

}  // namespace vexal
