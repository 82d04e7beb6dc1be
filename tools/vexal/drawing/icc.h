// Colours of one device as colours of another.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vexal {

// Pixels of red, green and blue, as an ICC profile means them, become those of sRGB.
class ToSrgb {
 public:
  ToSrgb() = default;
  ~ToSrgb();
  ToSrgb(const ToSrgb&) = delete;
  ToSrgb& operator=(const ToSrgb&) = delete;

  // An error text, empty on success. Without it, all pixels stay as they are.
  std::string open(const std::string& profile);
  // Several threads may do so at once.
  void apply(uint8_t* pixels, std::size_t count) const;

 private:
  void* transform_ = nullptr;
};

}  // namespace vexal
