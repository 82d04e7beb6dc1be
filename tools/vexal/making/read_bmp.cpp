#include <algorithm>
#include <bit>
#include <vector>

#include "byte_reader.h"
#include "stills.h"

namespace vexal {
namespace {

constexpr uint64_t kFileHeader = 14;
constexpr uint64_t kOldHeader = 12;  // with sides of 16 bits and three bytes a colour

struct Bitmap {
  uint64_t pixels = 0;  // where they begin
  uint64_t header = 0;  // its size
  int64_t width = 0;
  int64_t height = 0;  // negative: the first row is the upper one
  uint64_t bits = 0;
  uint64_t compression = 0;
  uint64_t colours = 0;
  uint32_t masks[4] = {};  // red, green, blue, alpha
  std::vector<uint32_t> palette{};
};

constexpr uint64_t kPlain = 0;
constexpr uint64_t kMasks = 3;
constexpr uint64_t kMasksWithAlpha = 6;

void read_palette(ByteReader& reader, Bitmap& map) {
  const uint64_t all = uint64_t{1} << map.bits;
  const uint64_t count = map.colours == 0 ? all : std::min(map.colours, all);
  map.palette.assign(all, 0);
  for (uint64_t i = 0; i < count; ++i)
    map.palette[i] = static_cast<uint32_t>(reader.little(map.header == kOldHeader ? 3 : 4)) & 0xFFFFFF;
}

std::string read_header(const Input& input, Bitmap& map) {
  ByteReader reader(*input.file, 10, input.size());
  map.pixels = reader.little(4);
  map.header = reader.little(4);
  const bool old = map.header == kOldHeader;
  map.width = old ? static_cast<int64_t>(reader.little(2)) : static_cast<int32_t>(reader.little(4));
  map.height = old ? static_cast<int64_t>(reader.little(2)) : static_cast<int32_t>(reader.little(4));
  reader.skip(2);
  map.bits = reader.little(2);
  if (!old) {
    map.compression = reader.little(4);
    reader.skip(12);
    map.colours = reader.little(4);
    reader.skip(4);
  }
  if (map.compression == kMasks || map.compression == kMasksWithAlpha) {
    const int count = map.compression == kMasksWithAlpha || map.header >= 56 ? 4 : 3;
    for (int i = 0; i < count; ++i) map.masks[i] = static_cast<uint32_t>(reader.little(4));
  }
  if (map.bits <= 8) {
    reader.go_to(kFileHeader + map.header);
    read_palette(reader, map);
  }
  return reader.good() ? "" : "ends within its head";
}

std::string fault_of(const Bitmap& map) {
  const bool by_masks = map.compression == kMasks || map.compression == kMasksWithAlpha;
  if (!by_masks && map.compression != kPlain) return "is a compressed BMP, which is not read";
  if (map.bits != 1 && map.bits != 4 && map.bits != 8 && map.bits != 24 && map.bits != 32)
    return "has " + std::to_string(map.bits) + " bits a pixel; 1, 4, 8, 24 and 32 are read";
  if (map.width <= 0 || map.height == 0) return "has no pixels";
  if (!by_masks) return "";
  for (int i = 0; i < 4; ++i) {
    const uint32_t mask = map.masks[i];
    const bool whole_byte =
        mask != 0 && mask >> std::countr_zero(mask) == 0xFF && std::countr_zero(mask) % 8 == 0;
    if (map.bits != 32 || (!whole_byte && (i < 3 || mask != 0)))
      return "has colours of other widths than a byte";
  }
  return "";
}

bool is_grey(const Bitmap& map) {
  return !map.palette.empty() && std::all_of(map.palette.begin(), map.palette.end(), [](uint32_t colour) {
    return (colour & 0xFF) == (colour >> 8 & 0xFF) && (colour & 0xFF) == colour >> 16;
  });
}

// A row as samples behind each other: grey, or red, green, blue and perhaps alpha.
void convert_row(const Bitmap& map, uint32_t channels, const uint8_t* in, uint8_t* out) {
  for (uint64_t x = 0; x < static_cast<uint64_t>(map.width); ++x, out += channels) {
    uint32_t pixel = 0;
    if (map.bits <= 8) {
      const uint64_t bit = x * map.bits;
      const auto index = in[bit / 8] >> (8 - map.bits - bit % 8) & ((1U << map.bits) - 1);
      pixel = map.palette[index];
    } else {
      for (uint64_t i = 0; i < map.bits / 8; ++i)
        pixel |= static_cast<uint32_t>(in[x * map.bits / 8 + i]) << (8 * i);
    }
    constexpr uint32_t kUsual[4] = {0xFF0000, 0xFF00, 0xFF, 0};
    const uint32_t* masks = map.masks[0] != 0 ? map.masks : kUsual;
    for (uint32_t i = 0; i < channels; ++i)
      out[i] = static_cast<uint8_t>((pixel & masks[i]) >> std::countr_zero(masks[i]));
  }
}

}  // namespace

std::string read_bmp(const Input& input, const StillOptions& options, Still& still) {
  Bitmap map;
  if (std::string problem = read_header(input, map); !problem.empty()) return problem;
  if (std::string problem = fault_of(map); !problem.empty()) return problem;
  still.width = static_cast<uint32_t>(map.width);
  still.height = static_cast<uint32_t>(map.height < 0 ? -map.height : map.height);
  const uint32_t channels = is_grey(map) ? 1 : map.masks[3] != 0 ? 4 : 3;
  RowSink sink(options, still);
  if (std::string problem = sink.begin(channels, 1); !problem.empty()) return problem;
  const uint64_t stride = (still.width * map.bits + 31) / 32 * 4;
  if (map.pixels > input.size() || stride * still.height > input.size() - map.pixels)
    return "is cut short: it has " + std::to_string(input.size()) + " bytes, and its pixels end at " +
           std::to_string(map.pixels + stride * still.height);
  std::vector<uint8_t> in(stride);
  std::vector<uint8_t> out(std::size_t{still.width} * channels);
  for (uint32_t y = 0; y < still.height; ++y) {
    const uint64_t line = map.height < 0 ? y : still.height - 1 - y;
    if (input.file->read_at(map.pixels + line * stride, in.data(), in.size()) !=
        static_cast<int64_t>(in.size()))
      return "can not read";
    convert_row(map, channels, in.data(), out.data());
    if (std::string problem = sink.row(out.data()); !problem.empty()) return problem;
  }
  sink.end();
  return "";
}

}  // namespace vexal
