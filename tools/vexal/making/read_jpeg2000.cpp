// JPEG 2000 (ITU-T T.800): a code stream alone or in a JP2 file; with high throughput (T.814) too.
#include <vector>

#include "byte_reader.h"
#include "stills.h"

namespace vexal {
namespace {

constexpr uint64_t kSize = 0xFF51;
constexpr uint64_t kCapabilities = 0xFF50;
constexpr uint64_t kCoding = 0xFF52;
constexpr uint64_t kComponentCoding = 0xFF53;
constexpr uint64_t kTilePart = 0xFF90;
constexpr uint64_t kEnd = 0xFFD9;

struct CodeStream {
  uint64_t begin = 0;
  uint64_t end = 0;
  uint64_t colours = 0;  // 16 sRGB, 17 grey, 18 YCC as JP2 has them; 0: not told
  bool high_throughput = false;
  bool reversible = true;
  bool transforms_colour = false;
  std::string icc{};
};

// --- JP2 ---

struct Box {
  std::string name;
  uint64_t content, end;
};

bool next_box(ByteReader& reader, uint64_t limit, Box& box) {
  if (reader.at() + 8 > limit) return false;
  const uint64_t start = reader.at();
  uint64_t length = reader.big(4);
  box.name = reader.text(4);
  if (length == 1) length = reader.big(8);
  box.content = reader.at();
  box.end = length == 0 ? limit : start + length;
  return reader.good() && box.end >= box.content && box.end <= limit;
}

std::string read_head_box(ByteReader& reader, const Box& head, CodeStream& stream) {
  Box box;
  reader.go_to(head.content);
  while (next_box(reader, head.end, box)) {
    if (box.name == "pclr") return "has a palette, which a transfer syntax has no form for";
    if (box.name == "colr") {
      const uint32_t method = reader.byte();
      reader.skip(2);
      if (method == 1 && stream.colours == 0) stream.colours = reader.big(4);
      if (method == 2 && stream.icc.empty())
        stream.icc = reader.text(static_cast<std::size_t>(box.end - reader.at()));
    }
    reader.go_to(box.end);
  }
  return "";
}

std::string find_code_stream(const Input& input, CodeStream& stream) {
  ByteReader reader(*input.file, 0, input.size());
  Box box;
  while (next_box(reader, input.size(), box)) {
    if (box.name == "jp2h") {
      if (std::string problem = read_head_box(reader, box, stream); !problem.empty()) return problem;
    }
    if (box.name == "jp2c") {
      if (stream.end != 0) return "has several code streams";
      stream.begin = box.content;
      stream.end = box.end;
    }
    reader.go_to(box.end);
  }
  return stream.end != 0 ? "" : "has no whole code stream: it is cut short";
}

// --- Code stream ---

std::string read_size(ByteReader& reader, Still& still) {
  reader.skip(2);
  const uint64_t right = reader.big(4);
  const uint64_t bottom = reader.big(4);
  const uint64_t left = reader.big(4);
  const uint64_t top = reader.big(4);
  if (left >= right || top >= bottom) return "has no pixels";
  still.width = static_cast<uint32_t>(right - left);
  still.height = static_cast<uint32_t>(bottom - top);
  reader.skip(16);
  still.samples = static_cast<uint32_t>(reader.big(2));
  if (still.samples != 1 && still.samples != 3)
    return "has " + std::to_string(still.samples) + " components; 1 and 3 are those of grey and of colour";
  for (uint32_t i = 0; i < still.samples; ++i) {
    const uint32_t depth = reader.byte();
    const bool whole = reader.byte() == 1 && reader.byte() == 1;
    if (!whole) return "has components of different sizes";
    if (i == 0) {
      still.stored = (depth & 0x7F) + 1;
      still.is_signed = depth >= 0x80;
    } else if (still.stored != (depth & 0x7F) + 1 || still.is_signed != (depth >= 0x80)) {
      return "has components of different depths";
    }
  }
  if (still.stored > 16) return "has " + std::to_string(still.stored) + " bits a sample; up to 16 are made";
  if (still.is_signed && still.samples == 3) return "has colours with a sign";
  still.allocated = still.stored <= 8 ? 8 : 16;
  return "";
}

// Tile by tile to the end of the stream; the reader stands behind the mark of the first.
std::string pass_tiles(ByteReader& reader, CodeStream& stream) {
  uint64_t mark = kTilePart;
  while (mark == kTilePart) {
    const uint64_t start = reader.at() - 2;
    reader.skip(4);
    const uint64_t length = reader.big(4);
    if (!reader.good()) break;
    if (length == 0) {  // to the end, which can only be looked for there
      reader.go_to(std::max(stream.end, start + 2) - 2);
    } else if (length < 14) {
      return "offset " + std::to_string(start) + ": a tile without a head";
    } else {
      reader.go_to(start + length);
    }
    if (reader.at() + 2 > stream.end) break;
    mark = reader.big(2);
  }
  if (mark != kEnd || !reader.good()) return "is cut short: its code stream has no end";
  stream.end = reader.at();
  return "";
}

std::string walk(const Input& input, CodeStream& stream, Still& still) {
  ByteReader reader(*input.file, stream.begin, stream.end);
  bool sized = false;
  bool coded = false;
  if (reader.big(2) != 0xFF4F) return "has no code stream of JPEG 2000";
  while (reader.good()) {
    const uint64_t mark = reader.big(2);
    if (mark == kTilePart) return sized && coded ? pass_tiles(reader, stream) : "has no whole main head";
    const uint64_t start = reader.at();
    const uint64_t length = reader.big(2);
    if (mark < 0xFF00 || length < 2 || reader.left() < length - 2) break;
    if (mark == kSize) {
      if (std::string problem = read_size(reader, still); !problem.empty()) return problem;
      sized = true;
    } else if (mark == kCapabilities) {
      stream.high_throughput = (reader.big(4) & 0x00020000) != 0;
    } else if (mark == kCoding) {
      reader.skip(4);
      stream.transforms_colour = reader.byte() != 0;
      reader.skip(4);
      stream.reversible = stream.reversible && reader.byte() == 1;
      coded = true;
    } else if (mark == kComponentCoding) {
      reader.skip(still.samples < 257 ? 6 : 7);
      stream.reversible = stream.reversible && reader.byte() == 1;
    }
    reader.go_to(start + length);
  }
  return "is cut short: its code stream has no end";
}

}  // namespace

std::string read_jpeg2000(const Input& input, Still& still) {
  CodeStream stream;
  stream.end = input.kind == InputKind::Jp2 ? 0 : input.size();
  if (input.kind == InputKind::Jp2) {
    if (std::string problem = find_code_stream(input, stream); !problem.empty()) return problem;
  }
  const uint64_t room = stream.end;
  if (std::string problem = walk(input, stream, still); !problem.empty()) return problem;
  still.syntax = stream.high_throughput ? (stream.reversible ? HTJ2K_LOSSLESS : HTJ2K)
                                        : (stream.reversible ? JPEG_2000_LOSSLESS_ONLY : JPEG_2000);
  if (!stream.reversible) still.lossy_method = stream.high_throughput ? "ISO_15444_15" : "ISO_15444_1";
  if (still.samples == 3) {
    constexpr uint64_t kLuminance = 18;
    still.photometric = stream.transforms_colour       ? (stream.reversible ? "YBR_RCT" : "YBR_ICT")
                        : stream.colours == kLuminance ? "YBR_FULL"
                                                       : "RGB";
  }
  still.icc_profile = std::move(stream.icc);
  still.frames.push_back(Payload::of(input.file, stream.begin, stream.end - stream.begin));
  if (stream.end < room)
    still.told = std::to_string(room - stream.end) + " bytes behind the picture are left out";
  return "";
}

}  // namespace vexal
