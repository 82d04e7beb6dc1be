#include "films.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "images/film.h"

namespace vexal {
namespace {

// What streams a transfer syntax takes (PS3.5 section 8.2.5 to 8.2.11): of a profile up to a level, in the
// order of preference. Levels of MPEG-2 fall as they rise.
struct Row {
  FilmCodec codec;
  uint32_t profile;
  uint32_t first_level, last_level;
  VX_TRANSFER_SYNTAX syntax;
};
constexpr Row kRows[] = {
    {FilmCodec::Mpeg2, 4, 8, 10, MPEG2_MPML},
    {FilmCodec::Mpeg2, 5, 8, 10, MPEG2_MPML},
    {FilmCodec::Mpeg2, 4, 4, 7, MPEG2_MPHL},
    {FilmCodec::H264, 100, 0, 41, MPEG4_AVC_H264_HP_LEVEL_4_1},
    {FilmCodec::H264, 100, 42, 42, MPEG4_AVC_H264_HP_LEVEL_4_2_2D},
    {FilmCodec::H264, 77, 0, 41, MPEG4_AVC_H264_HP_LEVEL_4_1},  // which readers of the high profile read
    {FilmCodec::H264, 77, 42, 42, MPEG4_AVC_H264_HP_LEVEL_4_2_2D},
    {FilmCodec::H264, 128, 0, 42, MPEG4_AVC_H264_STEREO_HP_LEVEL_4_2},
    {FilmCodec::Hevc, 1, 0, 153, HEVC_H265_MP_LEVEL_5_1},
};

constexpr const char* kMethods[] = {"", "ISO_13818_2", "ISO_14496_10", "ISO_23008_2"};

std::string choose_syntax(const Film& film, VX_TRANSFER_SYNTAX& syntax) {
  constexpr uint32_t kBaseProfile = 66;
  constexpr uint32_t kMainProfile = 77;
  const bool as_main = film.codec == FilmCodec::H264 && film.profile == kBaseProfile && film.main_compatible;
  const uint32_t profile = as_main ? kMainProfile : film.profile;
  const auto* row = std::find_if(std::begin(kRows), std::end(kRows), [&](const Row& r) {
    return r.codec == film.codec && r.profile == profile && film.level >= r.first_level &&
           film.level <= r.last_level;
  });
  const std::string what = "is " + describe_codec(film);
  if (film.bits > 8) return what + ", of " + std::to_string(film.bits) + " bits; the classes of films have 8";
  if (row == std::end(kRows)) return what + ", which no transfer syntax has";
  if (film.chroma != 1 || film.bits != 8) return what + ", with other colour than 4:2:0 of 8 bits";
  syntax = row->syntax;
  return "";
}

std::string number_text(const char* form, double value) {
  char text[32];
  std::snprintf(text, sizeof text, form, value);
  return text;
}

}  // namespace

bool FilmOptions::read(const Args& args) {
  if (!args.has("--rate")) return true;
  const std::string text = args.get("--rate");
  char* end = nullptr;
  const double first = std::strtod(text.c_str(), &end);
  const double second = *end == '/' ? std::strtod(end + 1, &end) : 1;
  constexpr double kMost = 100000;
  if (text.empty() || *end != '\0' || !(first > 0) || !(second > 0) || first > kMost * kMost ||
      second > kMost || first / second > kMost || first / second < 0.001) {
    complain("--rate %s: give frames a second", text.c_str());
    return false;
  }
  constexpr double kParts = 1000000;
  rate = static_cast<uint64_t>(first * kParts);
  rate_base = static_cast<uint64_t>(second * kParts);
  return true;
}

std::string describe_film(const Input& input, const FilmOptions& options, VX_TRANSFER_SYNTAX& syntax,
                          std::vector<std::pair<std::string, std::string>>& attributes) {
  Film film;
  const ValueReader read = [&](uint64_t offset, void* buffer, std::size_t length) {
    return input.file->read_at(offset, buffer, length) == static_cast<int64_t>(length);
  };
  if (std::string problem = read_film(read, input.size(), film); !problem.empty()) return problem;
  if (std::string problem = choose_syntax(film, syntax); !problem.empty()) return problem;
  if (film.rate == 0) {
    film.rate = options.rate;
    film.rate_base = options.rate_base;
  }
  if (film.rate == 0) return "does not tell its frames a second: give --rate";
  if (film.frames > INT32_MAX) return "has too many frames";
  const double rate = static_cast<double>(film.rate) / static_cast<double>(film.rate_base);
  const double pixels = 3.0 * film.width * film.height * static_cast<double>(film.frames);
  attributes = {{"SamplesPerPixel", "3"},
                {"PhotometricInterpretation", "YBR_PARTIAL_420"},
                {"PlanarConfiguration", "0"},
                {"Rows", std::to_string(film.height)},
                {"Columns", std::to_string(film.width)},
                {"BitsAllocated", "8"},
                {"BitsStored", "8"},
                {"HighBit", "7"},
                {"PixelRepresentation", "0"},
                {"NumberOfFrames", std::to_string(film.frames)},
                {"FrameIncrementPointer", "(0018,1063)"},
                {"FrameTime", number_text("%.6g", 1000 / rate)},
                {"CineRate", number_text("%.0f", std::max(1.0, rate))},
                {"LossyImageCompression", "01"},
                {"LossyImageCompressionRatio",
                 number_text("%.2f", std::max(0.01, pixels / static_cast<double>(input.size())))},
                {"LossyImageCompressionMethod", kMethods[static_cast<std::size_t>(film.codec)]},
                {"EncapsulatedPixelDataValueTotalLength", std::to_string(input.size())}};
  return "";
}

}  // namespace vexal
