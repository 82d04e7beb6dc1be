// What pixels are, and how people want to see them.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

namespace vexal {

struct ImageDescription {
  uint32_t rows = 0;
  uint32_t columns = 0;
  uint32_t samples = 1;
  uint32_t allocated = 0;
  uint32_t stored = 0;
  uint32_t high = 0;
  bool is_signed = false;
  uint32_t planar = 0;
  uint32_t frames = 1;
  std::string photometric;
  bool real = false;  // floating point
  std::size_t pixels() const { return std::size_t{rows} * columns; }
};

struct RenderOptions {
  std::optional<double> center;
  std::optional<double> width;
  int window = 1;   // which of the image's own; 0: the whole range of its values
  int voi_lut = 0;  // which of the image's own is used in place of a window; 0: none if there is a window
  bool invert = false;
  bool overlays = true;
  bool shutters = true;
  bool icc = true;
  uint32_t bits = 8;  // or 16, of grey
};

// Which of a frame's samples is which of a pixel's.
class SampleOrder {
 public:
  // `planar`: the samples of a colour lie together. Frames of two thirds of the size have Y, Y, Cb and Cr for
  // two pixels.
  SampleOrder(const ImageDescription& image, bool planar, std::size_t frame_bytes)
      : pixels_(image.pixels()), samples_(image.samples), planar_(planar) {
    packed_ = samples_ == 3 && image.allocated >= 8 && frame_bytes < pixels_ * 3 * (image.allocated / 8);
  }
  std::size_t at(std::size_t pixel, std::size_t sample) const {
    if (packed_) return pixel / 2 * 4 + (sample == 0 ? pixel % 2 : sample + 1);
    return planar_ ? sample * pixels_ + pixel : samples_ * pixel + sample;
  }
  // The number of samples.
  std::size_t end() const { return packed_ ? (pixels_ + 1) / 2 * 4 : samples_ * pixels_; }
  bool plain() const { return !packed_ && (!planar_ || samples_ == 1); }

 private:
  std::size_t pixels_;
  std::size_t samples_;
  bool planar_;
  bool packed_;
};

// Samples of a frame as they are stored, by their number.
class StoredSamples {
 public:
  StoredSamples(const ImageDescription& image, const char* frame)
      : data_(frame),
        allocated_(image.allocated),
        shift_(image.real ? 0 : image.high + 1 - image.stored),
        unused_(image.real ? 0 : 32 - image.stored),
        signed_(image.is_signed),
        real_(image.real) {}

  // The stored bits alone.
  uint32_t bits(std::size_t index) const {
    if (allocated_ == 1) return (static_cast<uint8_t>(data_[index / 8]) >> (index % 8)) & 1U;
    if (allocated_ == 8) return cut(load<uint8_t>(index));
    return cut(allocated_ == 16 ? load<uint16_t>(2 * index) : load<uint32_t>(4 * index));
  }
  // Calls visit(index, bits) for the first `count` samples.
  template <typename Visit>
  void each(std::size_t count, Visit visit) const {
    if (allocated_ == 8) {
      for (std::size_t i = 0; i < count; ++i) visit(i, cut(load<uint8_t>(i)));
    } else if (allocated_ == 16) {
      for (std::size_t i = 0; i < count; ++i) visit(i, cut(load<uint16_t>(2 * i)));
    } else {
      for (std::size_t i = 0; i < count; ++i) visit(i, bits(i));
    }
  }
  // What these bits stand for.
  int64_t whole(uint32_t bits) const {
    return signed_ ? static_cast<int32_t>(bits << unused_) >> unused_ : int64_t{bits};
  }
  double value(std::size_t index) const {
    if (!real_) return static_cast<double>(whole(bits(index)));
    return allocated_ == 32 ? static_cast<double>(load<float>(4 * index)) : load<double>(8 * index);
  }

 private:
  template <typename Number>
  Number load(std::size_t at) const {
    Number number;
    std::memcpy(&number, data_ + at, sizeof number);
    return number;
  }
  uint32_t cut(uint32_t raw) const { return (raw >> shift_) << unused_ >> unused_; }
  const char* data_;
  uint32_t allocated_;
  uint32_t shift_;
  uint32_t unused_;
  bool signed_;
  bool real_;
};

}  // namespace vexal
