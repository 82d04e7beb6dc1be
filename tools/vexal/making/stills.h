// Pictures as they become frames.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/args.h"
#include "input.h"
#include "payload.h"
#include "vexalkit.h"

namespace vexal {

struct Still {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t samples = 1;
  uint32_t allocated = 8;
  uint32_t stored = 8;
  bool is_signed = false;
  std::string photometric{"MONOCHROME2"};
  VX_TRANSFER_SYNTAX syntax = EXPLICIT_LITTLE_ENDIAN;
  std::string lossy_method{};  // of a stream that has lost something; "" for others
  std::string icc_profile{};
  std::vector<Payload> frames{};  // of one picture; raw pixels may hold several
  std::string told{};             // what of the file is not in the object; "" if all is
  uint64_t frame_bytes() const { return uint64_t{width} * height * samples * (allocated / 8); }
  // What all frames of an image have in common is the same.
  bool goes_with(const Still& other) const;
};

struct StillOptions {
  Still raw{};  // how raw pixels lie
  bool has_background = false;
  uint32_t background[3] = {};  // red, green and blue, to 255; grey takes the red
  std::shared_ptr<Spill> unpacked = std::make_shared<Spill>();  // the pixels of all pictures
  bool read(const Args& args);                                  // false after a line on standard error
};
#define VEXAL_STILL_OPTIONS                                                                                 \
  {"--size", "W,H", "the input is raw pixels, in little endian, sample by sample, frame by frame"},         \
      {"--bits", "N", "of raw pixels: bits of a sample that are used, 2 to 16 (default 8)"},                \
      {"--samples", "1|3", "of raw pixels: samples of a pixel (default 1)"},                                \
      {"--signed", nullptr, "of raw pixels: samples are signed"},                                           \
      {"--photometric", "NAME", "of raw pixels: MONOCHROME1, MONOCHROME2, RGB or YBR_FULL"}, {              \
    "--background", "R,G,B", "what shines through transparent pixels, 0 to 255 each; else they are refused" \
  }

// Error texts, empty on success.
std::string read_still(const Input& input, const StillOptions& options, Still& still);
// The frames no longer need the file that they lie in.
std::string lay_down(Still& still, const StillOptions& options);
std::string read_png(const Input& input, const StillOptions& options, Still& still);
std::string read_bmp(const Input& input, const StillOptions& options, Still& still);
std::string read_jpeg(const Input& input, Still& still);
std::string read_jpeg2000(const Input& input, Still& still);

// Rows of a picture on their way into a frame.
class RowSink {
 public:
  RowSink(const StillOptions& options, Still& still) : options_(options), still_(still) {}
  // `channels` of `bytes` bytes each, in little endian; of 2 or 4 the last is alpha. An error text, empty on
  // success.
  std::string begin(uint32_t channels, uint32_t bytes);
  std::string row(const uint8_t* data);
  void end();

 private:
  bool flatten(const uint8_t* data);

  const StillOptions& options_;
  Still& still_;
  uint32_t channels_ = 1;
  uint32_t bytes_ = 1;
  uint64_t start_ = 0;  // of its frame in what is laid down
  std::vector<uint8_t> flat_{};
};

}  // namespace vexal
