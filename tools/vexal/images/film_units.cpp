#include "film_units.h"

#include <algorithm>
#include <cstring>

#include "film_bits.h"

namespace vexal {
namespace {

unsigned byte_of(std::string_view text, std::size_t at) {
  return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

// Profiles of H.264 whose parameters tell of colour and depth.
bool is_high(uint64_t profile) {
  constexpr uint64_t kHigh[] = {100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134, 135};
  return std::find(std::begin(kHigh), std::end(kHigh), profile) != std::end(kHigh);
}

void skip_scaling_lists(FilmBits& bits, uint64_t chroma) {
  const int count = chroma == 3 ? 12 : 8;
  for (int i = 0; i < count; ++i) {
    if (bits.get(1) == 0) continue;
    int64_t last = 8;
    int64_t next = 8;
    for (int j = 0; j < (i < 6 ? 16 : 64) && bits.good(); ++j) {
      if (next != 0) next = (last + bits.difference() + 256) % 256;
      last = next == 0 ? last : next;
    }
  }
}

// What may follow the parameters, as far as the time (H.264 section E.1.1).
void read_h264_usability(FilmBits& bits, Film& film) {
  constexpr uint64_t kExtendedAspect = 255;
  if (bits.get(1) != 0 && bits.get(8) == kExtendedAspect) bits.skip(32);
  if (bits.get(1) != 0) bits.skip(1);
  if (bits.get(1) != 0) {
    bits.skip(4);
    if (bits.get(1) != 0) bits.skip(24);
  }
  if (bits.get(1) != 0) {
    bits.number();
    bits.number();
  }
  if (bits.get(1) == 0) return;
  const uint64_t units = bits.get(32);
  const uint64_t scale = bits.get(32);
  if (!bits.good() || units == 0 || film.rate != 0) return;
  film.rate = scale;
  film.rate_base = 2 * units;
}

void skip_profile_tier_level(FilmBits& bits, uint64_t sub_layers, Film* film) {
  bits.skip(3);
  const uint64_t profile = bits.get(5);
  bits.skip(80);
  const uint64_t level = bits.get(8);
  if (film != nullptr) {
    film->profile = static_cast<uint32_t>(profile);
    film->level = static_cast<uint32_t>(level);
  }
  bool has_profile[8] = {};
  bool has_level[8] = {};
  for (uint64_t i = 0; i < sub_layers; ++i) {
    has_profile[i] = bits.get(1) != 0;
    has_level[i] = bits.get(1) != 0;
  }
  if (sub_layers > 0) bits.skip(2 * (8 - sub_layers));
  for (uint64_t i = 0; i < sub_layers; ++i) bits.skip((has_profile[i] ? 88U : 0U) + (has_level[i] ? 8U : 0U));
}

uint32_t cropped(uint64_t size, uint64_t first, uint64_t second, uint64_t unit) {
  const uint64_t away = (first + second) * unit;
  return static_cast<uint32_t>(size > away ? size - away : 0);
}

// Frames a second by the code of a sequence header (ITU-T H.262 table 6-4).
struct Rate {
  uint64_t rate, base;
};
constexpr Rate kMpeg2Rates[] = {{0, 1},  {24000, 1001}, {24, 1},       {25, 1}, {30000, 1001},
                                {30, 1}, {50, 1},       {60000, 1001}, {60, 1}};

}  // namespace

bool read_h264_parameters(std::string_view unit, Film& film) {
  FilmBits bits(unit.substr(std::min<std::size_t>(1, unit.size())));
  film.profile = static_cast<uint32_t>(bits.get(8));
  bits.skip(1);
  film.main_compatible = bits.get(1) != 0;
  bits.skip(6);
  film.level = static_cast<uint32_t>(bits.get(8));
  bits.number();
  film.chroma = 1;
  film.bits = 8;
  if (is_high(film.profile)) {
    film.chroma = static_cast<uint32_t>(bits.number());
    if (film.chroma == 3) bits.skip(1);
    film.bits = static_cast<uint32_t>(8 + std::max(bits.number(), bits.number()));
    bits.skip(1);
    if (bits.get(1) != 0) skip_scaling_lists(bits, film.chroma);
  }
  bits.number();
  const uint64_t order = bits.number();
  if (order == 0) bits.number();
  if (order == 1) {
    bits.skip(1);
    bits.difference();
    bits.difference();
    for (uint64_t i = bits.number(); i > 0 && bits.good(); --i) bits.difference();
  }
  bits.number();
  bits.skip(1);
  const uint64_t across = bits.number() + 1;
  const uint64_t down = bits.number() + 1;
  const uint64_t fields = bits.get(1) != 0 ? 1 : 2;
  if (fields == 2) bits.skip(1);
  bits.skip(1);
  uint64_t crop[4] = {};
  if (bits.get(1) != 0) {
    for (uint64_t& side : crop) side = bits.number();
  }
  film.width = cropped(16 * across, crop[0], crop[1], film.chroma == 1 || film.chroma == 2 ? 2 : 1);
  film.height = cropped(16 * down * fields, crop[2], crop[3], (film.chroma == 1 ? 2 : 1) * fields);
  const bool whole = bits.good() && across <= 4096 && down <= 4096;
  if (whole && bits.get(1) != 0) read_h264_usability(bits, film);
  return whole && film.width != 0 && film.height != 0;
}

bool read_hevc_parameters(std::string_view unit, Film& film) {
  FilmBits bits(unit.substr(std::min<std::size_t>(2, unit.size())));
  bits.skip(4);
  const uint64_t sub_layers = bits.get(3);
  bits.skip(1);
  skip_profile_tier_level(bits, sub_layers, &film);
  bits.number();
  film.chroma = static_cast<uint32_t>(bits.number());
  if (film.chroma == 3) bits.skip(1);
  const uint64_t width = bits.number();
  const uint64_t height = bits.number();
  uint64_t crop[4] = {};
  if (bits.get(1) != 0) {
    for (uint64_t& side : crop) side = bits.number();
  }
  film.bits = static_cast<uint32_t>(8 + bits.number());
  if (!bits.good() || width > 65535 || height > 65535) return false;
  film.width = cropped(width, crop[0], crop[1], film.chroma == 1 || film.chroma == 2 ? 2 : 1);
  film.height = cropped(height, crop[2], crop[3], film.chroma == 1 ? 2 : 1);
  return film.width != 0 && film.height != 0;
}

void read_hevc_timing(std::string_view unit, Film& film) {
  FilmBits bits(unit.substr(std::min<std::size_t>(2, unit.size())));
  bits.skip(12);
  const uint64_t sub_layers = bits.get(3);
  bits.skip(17);
  skip_profile_tier_level(bits, sub_layers, nullptr);
  const bool each = bits.get(1) != 0;
  for (uint64_t i = each ? 0 : sub_layers; i <= sub_layers; ++i) {
    for (int j = 0; j < 3; ++j) bits.number();
  }
  const uint64_t layers = bits.get(6) + 1;
  const uint64_t sets = bits.number();
  bits.skip(std::min<uint64_t>(sets, 1024) * layers);
  if (bits.get(1) == 0) return;
  const uint64_t units = bits.get(32);
  const uint64_t scale = bits.get(32);
  if (!bits.good() || units == 0 || film.rate != 0) return;
  film.rate = scale;
  film.rate_base = units;
}

void FilmUnits::take(const char* data, std::size_t size) {
  std::size_t at = 0;
  while (at < size) {
    // A start code is two zeros and a one.
    const void* found = std::memchr(data + at, 1, size - at);
    const std::size_t stop =
        found != nullptr ? static_cast<std::size_t>(static_cast<const char*>(found) - data) : size;
    if (within_ && unit_.size() < kMostOfUnit)
      unit_.append(data + at, std::min(stop - at + (found != nullptr ? 1 : 0), kMostOfUnit - unit_.size()));
    unsigned zeros = 0;
    while (zeros < 2 && stop > at + zeros && data[stop - 1 - zeros] == 0) ++zeros;
    if (zeros == stop - at) zeros = std::min(2U, zeros + zeros_);
    zeros_ = found != nullptr ? 0 : zeros;
    if (found != nullptr && zeros == 2) {
      finish();
      within_ = true;
      unit_.clear();
    }
    at = found != nullptr ? stop + 1 : size;
  }
}

void FilmUnits::finish() {
  if (!within_ || unit_.empty()) return;
  if (film_.codec == FilmCodec::None) find_codec();
  if (film_.codec == FilmCodec::Mpeg2) mpeg2_unit(byte_of(unit_, 0));
  if (film_.codec == FilmCodec::H264) h264_unit();
  if (film_.codec == FilmCodec::Hevc) hevc_unit();
}

void FilmUnits::find_codec() {
  const unsigned first = byte_of(unit_, 0);
  const unsigned kind = first >> 1;
  if (first == 0xB3) {
    film_.codec = FilmCodec::Mpeg2;
  } else if (byte_of(unit_, 1) == 1 && (kind == 32 || kind == 33 || kind == 35)) {
    film_.codec = FilmCodec::Hevc;
  } else if (first < 0x80 && ((first & 31) == 7 || first == 9)) {
    film_.codec = FilmCodec::H264;
  }
}

void FilmUnits::mpeg2_unit(unsigned code) {
  const auto at = [this](std::size_t i) { return static_cast<uint32_t>(byte_of(unit_, i)); };
  if (code == 0xB3 && !has_parameters_) {
    film_.width = at(1) << 4 | at(2) >> 4;
    film_.height = (at(2) & 15) << 8 | at(3);
    const uint32_t rate = std::min<uint32_t>(at(4) & 15, 8);
    if (film_.rate == 0) {
      film_.rate = kMpeg2Rates[rate].rate;
      film_.rate_base = kMpeg2Rates[rate].base;
    }
    has_parameters_ = film_.width != 0 && film_.height != 0;
  } else if (code == 0xB5 && at(1) >> 4 == 1 && !mpeg2_extended_) {
    film_.profile = at(1) & 7;
    film_.level = at(2) >> 4;
    film_.chroma = at(2) >> 1 & 3;
    mpeg2_extended_ = true;
  } else if (code == 0) {
    fields_ += 2;
  } else if (code == 0xB5 && at(1) >> 4 == 8) {
    constexpr uint32_t kWholeFrame = 3;
    if ((at(3) & 3) != kWholeFrame) --fields_;
  }
}

void FilmUnits::h264_unit() {
  const unsigned kind = byte_of(unit_, 0) & 31;
  if (kind == 7 && !has_parameters_) has_parameters_ = read_h264_parameters(unit_, film_);
  // The first of the slices of a picture begins with its first block.
  if ((kind == 1 || kind == 5) && byte_of(unit_, 1) >= 0x80) fields_ += 2;
}

void FilmUnits::hevc_unit() {
  const unsigned kind = byte_of(unit_, 0) >> 1 & 63;
  if (kind == 32) read_hevc_timing(unit_, film_);
  if (kind == 33 && !has_parameters_) has_parameters_ = read_hevc_parameters(unit_, film_);
  if (kind < 22 && byte_of(unit_, 2) >= 0x80) fields_ += 2;
}

void FilmUnits::end() {
  finish();
  film_.frames = (fields_ + 1) / 2;
}

std::string FilmUnits::fault() const {
  if (film_.codec == FilmCodec::None) return "holds no stream of MPEG-2, H.264 or HEVC";
  if (film_.codec == FilmCodec::Mpeg2 && has_parameters_ && !mpeg2_extended_)
    return "is an MPEG-1 film, which no transfer syntax has";
  return has_parameters_ && film_.frames != 0 ? ""
                                              : "holds no whole stream: its parameters or frames are missing";
}

}  // namespace vexal
