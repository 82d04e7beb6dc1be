// The segments in front of a scan; inside the JPEG codec only.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "pixel/jpeg_huffman.h"

namespace vx::jpeg {

struct Component {
  uint8_t id = 0;
  uint8_t quantisation = 0;
};

struct Scan {
  uint32_t count = 0;
  std::array<uint8_t, 4> component{};  // index into the frame's
  std::array<uint8_t, 4> dc{};
  std::array<uint8_t, 4> ac{};
  uint8_t start = 0;  // selection value of lossless, first coefficient of DCT
  uint8_t end = 0;
  uint8_t high = 0;
  uint8_t low = 0;  // point transform
};

// Reads segments one after the other and keeps what they say.
class Head {
 public:
  Head(const uint8_t* data, std::size_t size) : cursor_(data), end_(data + size) {}

  Fault start_of_image();
  // Up to and with the next start of frame, start of scan (its data follows), or end of image: the marker.
  Fault next(uint8_t& marker);
  // Goes on behind the data of a scan.
  void continue_at(const uint8_t* position) { cursor_ = position; }
  const uint8_t* position() const { return cursor_; }
  std::size_t left() const { return static_cast<std::size_t>(end_ - cursor_); }

  Shape shape;
  std::array<Component, 4> components{};
  Scan scan;
  uint32_t restart_interval = 0;
  std::array<HuffmanDecoder, 4> dc;
  std::array<HuffmanDecoder, 4> ac;
  std::array<std::array<uint16_t, 64>, 4> quantisation{};  // in zigzag order; 0: not given

 private:
  Fault frame(const uint8_t* p, std::size_t n, uint8_t marker);
  Fault scan_header(const uint8_t* p, std::size_t n);
  Fault huffman(const uint8_t* p, std::size_t n);
  Fault quantisers(const uint8_t* p, std::size_t n);

  const uint8_t* cursor_;
  const uint8_t* end_;
};

Fault decode_lossless(Head& head, bool wide, unsigned threads, void* out);
Fault decode_extended12(Head& head, void* out);
// All scans, up to and with the end of image.
Fault decode_progressive12(Head& head, void* out);

}  // namespace vx::jpeg
