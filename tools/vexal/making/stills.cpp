#include "stills.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <tuple>

namespace vexal {
namespace {

constexpr uint32_t kMostSide = 65535;

// Numbers parted by commas: as many as there are places. False if the text is anything else.
bool read_numbers(const std::string& text, uint32_t low, uint32_t high, uint32_t* places, std::size_t count) {
  std::size_t start = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t end = i + 1 < count ? text.find(',', start) : text.size();
    if (end == std::string::npos || end == start || end - start > 9) return false;
    uint32_t value = 0;
    for (std::size_t at = start; at < end; ++at) {
      if (text[at] < '0' || text[at] > '9') return false;
      value = value * 10 + static_cast<uint32_t>(text[at] - '0');
    }
    if (value < low || value > high) return false;
    places[i] = value;
    start = end + 1;
  }
  return true;
}

constexpr const char* kRawOnly[] = {"--bits", "--samples", "--signed", "--photometric"};

struct Photometric {
  const char* name;
  uint32_t samples;
};
constexpr Photometric kPhotometrics[] = {{"MONOCHROME2", 1}, {"MONOCHROME1", 1}, {"RGB", 3}, {"YBR_FULL", 3}};

bool read_raw_form(const Args& args, Still& raw) {
  uint32_t size[2] = {};
  if (!args.has("--size")) {
    for (const char* option : kRawOnly) {
      if (!args.has(option)) continue;
      complain("%s is for raw pixels, which --size tells of", option);
      return false;
    }
    return true;
  }
  if (!read_numbers(args.get("--size"), 1, kMostSide, size, 2)) {
    complain("--size %s: give W,H, each 1 to %u", args.get("--size").c_str(), kMostSide);
    return false;
  }
  long bits = 8;
  long samples = 1;
  if (!args.number("--bits", 2, 16, bits) || !args.number("--samples", 1, 3, samples)) return false;
  raw.width = size[0];
  raw.height = size[1];
  raw.stored = static_cast<uint32_t>(bits);
  raw.allocated = bits <= 8 ? 8 : 16;
  raw.samples = static_cast<uint32_t>(samples);
  raw.is_signed = args.has("--signed");
  raw.photometric = args.get("--photometric", samples == 3 ? "RGB" : "MONOCHROME2");
  const bool known = std::any_of(std::begin(kPhotometrics), std::end(kPhotometrics), [&](const auto& row) {
    return raw.photometric == row.name && raw.samples == row.samples;
  });
  if (!known) complain("--photometric %s does not go with --samples %ld", raw.photometric.c_str(), samples);
  if (known && raw.is_signed && samples == 3) complain("--signed goes with one sample");
  return known && (!raw.is_signed || samples == 1);
}

// Bits above those that are stored are zeros, or the sign; anything else is another form.
bool fits_bits(const uint8_t* data, std::size_t size, const Still& form) {
  for (std::size_t i = 0; i + form.allocated / 8 <= size; i += form.allocated / 8) {
    const uint32_t value = form.allocated == 8 ? data[i] : data[i] | static_cast<uint32_t>(data[i + 1]) << 8;
    const uint32_t up = value << (32 - form.stored);
    const uint32_t back = form.is_signed
                              ? static_cast<uint32_t>(static_cast<int32_t>(up) >> (32 - form.stored))
                              : up >> (32 - form.stored);
    if ((back & (0xFFFFFFFFU >> (32 - form.allocated))) != value) return false;
  }
  return true;
}

std::string read_raw(const Input& input, const StillOptions& options, Still& still) {
  still = options.raw;
  const uint64_t frame = still.frame_bytes();
  if (input.size() % frame != 0)
    return "has " + std::to_string(input.size()) + " bytes, not a multiple of the " + std::to_string(frame) +
           " of a frame";
  if (still.stored != still.allocated) {
    std::vector<uint8_t> block(1 << 18);
    for (uint64_t at = 0; at < input.size(); at += block.size()) {
      const int64_t got = input.file->read_at(at, block.data(), block.size());
      if (got <= 0) return "can not read";
      if (!fits_bits(block.data(), static_cast<std::size_t>(got), still))
        return "has samples beyond " + std::to_string(still.stored) + " bits";
    }
  }
  for (uint64_t at = 0; at < input.size(); at += frame)
    still.frames.push_back(Payload::of(input.file, at, frame));
  return "";
}

}  // namespace

bool Still::goes_with(const Still& other) const {
  const auto form = [](const Still& s) {
    return std::tie(s.width, s.height, s.samples, s.allocated, s.stored, s.is_signed, s.photometric, s.syntax,
                    s.icc_profile);
  };
  return form(*this) == form(other);
}

bool StillOptions::read(const Args& args) {
  has_background = args.has("--background");
  if (has_background && !read_numbers(args.get("--background"), 0, 255, background, 3)) {
    complain("--background %s: give R,G,B, each 0 to 255", args.get("--background").c_str());
    return false;
  }
  return read_raw_form(args, raw);
}

std::string read_still(const Input& input, const StillOptions& options, Still& still) {
  std::string problem;
  switch (input.kind) {
    case InputKind::Raw:
      problem = read_raw(input, options, still);
      break;
    case InputKind::Png:
      problem = read_png(input, options, still);
      break;
    case InputKind::Bmp:
      problem = read_bmp(input, options, still);
      break;
    case InputKind::Jpeg:
      problem = read_jpeg(input, still);
      break;
    default:
      problem = read_jpeg2000(input, still);
  }
  if (!problem.empty()) return problem;
  if (still.width == 0 || still.height == 0) return "has no pixels";
  if (still.width > kMostSide || still.height > kMostSide)
    return "is " + std::to_string(still.width) + " x " + std::to_string(still.height) +
           " pixels; a frame has at most 65535 each way";
  return "";
}

std::string lay_down(Still& still, const StillOptions& options) {
  constexpr uint64_t kPiece = 256 * 1024;
  std::vector<char> piece;
  for (Payload& frame : still.frames) {
    const uint64_t start = options.unpacked->size();
    for (uint64_t at = 0; at < frame.size(); at += piece.size()) {
      piece.resize(static_cast<std::size_t>(std::min(kPiece, frame.size() - at)));
      if (!frame.read_at(at, piece.data(), piece.size())) return "can not be read to its end";
      if (std::string problem = options.unpacked->append(piece.data(), piece.size()); !problem.empty())
        return problem;
    }
    frame = Payload::of(options.unpacked, start, frame.size());
  }
  return "";
}

std::string RowSink::begin(uint32_t channels, uint32_t bytes) {
  channels_ = channels;
  bytes_ = bytes;
  start_ = options_.unpacked->size();
  still_.samples = channels >= 3 ? 3 : 1;
  still_.allocated = still_.stored = 8 * bytes;
  still_.photometric = still_.samples == 3 ? "RGB" : "MONOCHROME2";
  if (still_.width > kMostSide || still_.height > kMostSide || still_.width == 0 || still_.height == 0)
    return "is " + std::to_string(still_.width) + " x " + std::to_string(still_.height) +
           " pixels; a frame has 1 to 65535 each way";
  if (still_.frame_bytes() >= kUndefinedLength) return "has more than the 4 GiB of a value";
  if (channels % 2 == 0) flat_.resize(std::size_t{still_.width} * still_.samples * bytes);
  return "";
}

// Takes the alpha channel off a row; false if something is transparent and nothing is said to shine through.
bool RowSink::flatten(const uint8_t* data) {
  const uint32_t most = bytes_ == 1 ? 0xFF : 0xFFFF;
  const auto value = [&](const uint8_t* at) {
    return bytes_ == 1 ? at[0] : at[0] | static_cast<uint32_t>(at[1]) << 8;
  };
  uint8_t* out = flat_.data();
  for (uint32_t x = 0; x < still_.width; ++x, data += std::size_t{channels_} * bytes_) {
    const uint32_t alpha = value(data + std::size_t{still_.samples} * bytes_);
    if (alpha != most && !options_.has_background) return false;
    for (uint32_t s = 0; s < still_.samples; ++s, out += bytes_) {
      const uint64_t behind = uint64_t{options_.background[s]} * (most / 255);
      const uint64_t mixed =
          (uint64_t{value(data + std::size_t{s} * bytes_)} * alpha + behind * (most - alpha) + most / 2) /
          most;
      out[0] = static_cast<uint8_t>(mixed);
      if (bytes_ == 2) out[1] = static_cast<uint8_t>(mixed >> 8);
    }
  }
  return true;
}

std::string RowSink::row(const uint8_t* data) {
  if (flat_.empty()) return options_.unpacked->append(data, std::size_t{still_.width} * channels_ * bytes_);
  if (!flatten(data)) return "has transparent pixels: --background tells what shines through";
  return options_.unpacked->append(flat_.data(), flat_.size());
}

void RowSink::end() {
  still_.frames.push_back(Payload::of(options_.unpacked, start_, options_.unpacked->size() - start_));
}

}  // namespace vexal
