// The units of a video stream between its start codes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "film.h"

namespace vexal {

// Sets of parameters, without their start codes; false if one makes no sense.
bool read_h264_parameters(std::string_view unit, Film& film);
bool read_hevc_parameters(std::string_view unit, Film& film);
// Of the video parameters of HEVC: the rate.
void read_hevc_timing(std::string_view unit, Film& film);

// Takes a stream of MPEG-2, H.264 or HEVC in pieces, finds out which it is, and counts its frames.
class FilmUnits {
 public:
  explicit FilmUnits(Film& film) : film_(film) {}
  void take(const char* data, std::size_t size);
  void end();
  // Why it is no film; empty if it is one.
  std::string fault() const;

 private:
  void finish();
  void find_codec();
  void mpeg2_unit(unsigned code);
  void h264_unit();
  void hevc_unit();

  static constexpr std::size_t kMostOfUnit = 1024;

  Film& film_;
  std::string unit_{};
  bool within_ = false;
  unsigned zeros_ = 0;
  uint64_t fields_ = 0;
  bool mpeg2_extended_ = false;
  bool has_parameters_ = false;
};

}  // namespace vexal
