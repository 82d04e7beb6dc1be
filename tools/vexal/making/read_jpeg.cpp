// JPEG (ITU-T T.81) and JPEG-LS (T.87): what the stream says of itself, and where it ends.
#include <algorithm>
#include <vector>

#include "byte_reader.h"
#include "stills.h"

namespace vexal {
namespace {

struct Component {
  uint64_t id, across, down;
};

struct Stream {
  uint32_t frame_mark = 0;  // the frame header that was met
  uint32_t bits = 0;
  std::vector<Component> components{};
  bool jfif = false;
  int adobe = -1;  // its transformation; -1: none is told
  uint64_t predictor = 0;
  uint64_t point_transform = 0;
  uint64_t near = 0;
  uint64_t end = 0;
  std::string icc{};
  uint64_t turned = 1;  // by EXIF; 1: it is upright
};

constexpr uint32_t kBaseline = 0xC0;
constexpr uint32_t kExtended = 0xC1;
constexpr uint32_t kProgressive = 0xC2;
constexpr uint32_t kLossless = 0xC3;
constexpr uint32_t kJpegLs = 0xF7;
constexpr uint32_t kEnd = 0xD9;
constexpr uint32_t kScan = 0xDA;

bool is_frame_header(uint32_t mark) {
  return (mark >= 0xC0 && mark <= 0xCF && mark != 0xC4 && mark != 0xC8 && mark != 0xCC) || mark == kJpegLs;
}

std::string read_frame_header(ByteReader& reader, uint32_t mark, Still& still, Stream& stream) {
  if (stream.frame_mark != 0) return "has two frame headers";
  stream.frame_mark = mark;
  stream.bits = reader.byte();
  still.height = static_cast<uint32_t>(reader.big(2));
  still.width = static_cast<uint32_t>(reader.big(2));
  const uint32_t count = reader.byte();
  for (uint32_t i = 0; i < count; ++i) {
    const uint64_t id = reader.byte();
    const uint64_t factors = reader.byte();
    reader.skip(1);
    stream.components.push_back({id, factors >> 4, factors & 15});
  }
  return "";
}

void read_scan_header(ByteReader& reader, Stream& stream) {
  reader.skip(uint64_t{2} * reader.byte());
  const uint64_t first = reader.byte();
  const uint64_t second = reader.byte();
  const uint64_t third = reader.byte();
  stream.predictor = first;
  stream.near = std::max(stream.near, stream.frame_mark == kJpegLs ? first : 0);
  stream.point_transform = std::max(stream.point_transform, stream.frame_mark == kJpegLs ? 0 : third & 15);
  if (stream.frame_mark == kJpegLs) stream.predictor = second;
}

// The orientation among the first directory of EXIF, which is a TIFF.
uint64_t orientation_of(std::string_view tiff) {
  constexpr uint64_t kOrientation = 0x0112;
  const bool big = tiff.starts_with("MM");
  const auto number = [&](std::size_t at, std::size_t size) {
    uint64_t value = 0;
    for (std::size_t i = 0; i < size && at + size <= tiff.size(); ++i)
      value |= static_cast<uint64_t>(static_cast<unsigned char>(tiff[at + i]))
               << 8 * (big ? size - 1 - i : i);
    return value;
  };
  const uint64_t directory = number(4, 4);
  if (directory >= tiff.size()) return 1;
  const uint64_t count = number(directory, 2);
  for (uint64_t i = 0; i < count && directory + 14 + 12 * i <= tiff.size(); ++i) {
    const std::size_t entry = directory + 2 + 12 * i;
    if (number(entry, 2) == kOrientation) return number(entry + 8, 2);
  }
  return 1;
}

void read_application(ByteReader& reader, uint32_t mark, std::size_t length, Stream& stream) {
  constexpr std::size_t kMost = 65533;
  const std::string text = reader.text(std::min(length, kMost));
  using std::string_view_literals::operator""sv;
  if (mark == 0xE0 && text.starts_with("JFIF\0"sv)) stream.jfif = true;
  if (mark == 0xEE && text.starts_with("Adobe") && text.size() >= 12)
    stream.adobe = static_cast<unsigned char>(text[11]);
  if (mark == 0xE1 && text.starts_with("Exif\0\0"sv))
    stream.turned = orientation_of(std::string_view(text).substr(6));
  if (mark == 0xE2 && text.starts_with("ICC_PROFILE\0"sv) && text.size() > 14)
    stream.icc.append(text, 14);  // its pieces come in their order
}

// Onto the mark behind the entropy-coded bytes of a scan.
bool pass_scan(ByteReader& reader, bool jpeg_ls) {
  while (reader.find(0xFF)) {
    const uint64_t at = reader.at();
    reader.skip(1);
    if (reader.left() == 0) return false;
    const uint32_t next = reader.byte();
    const bool data = jpeg_ls ? next < 0x80 : next == 0;
    const bool restart = next >= 0xD0 && next <= 0xD7;
    if (data || restart) continue;
    reader.go_to(next == 0xFF ? at + 1 : at);
    if (next != 0xFF) return true;
  }
  return false;
}

// From mark to mark to the end of the image.
std::string walk(const Input& input, Still& still, Stream& stream) {
  ByteReader reader(*input.file, 2, input.size());
  bool scanned = false;
  while (reader.good()) {
    const uint64_t at = reader.at();
    if (reader.byte() != 0xFF) return "offset " + std::to_string(at) + ": no mark of a JPEG stream";
    uint32_t mark = 0xFF;
    while (mark == 0xFF && reader.good()) mark = reader.byte();
    if (mark == 1 || (mark >= 0xD0 && mark <= 0xD7)) continue;
    if (mark == kEnd) {
      stream.end = reader.at();
      return scanned && stream.frame_mark != 0 ? "" : "has no picture";
    }
    const uint64_t start = reader.at();
    const uint64_t length = reader.big(2);
    if (length < 2 || reader.left() < length - 2) break;
    std::string problem;
    if (is_frame_header(mark)) problem = read_frame_header(reader, mark, still, stream);
    if (mark == kScan) read_scan_header(reader, stream);
    if (mark >= 0xE0 && mark <= 0xEF) read_application(reader, mark, length - 2, stream);
    if (!problem.empty()) return problem;
    reader.go_to(start + length);
    if (mark != kScan) continue;
    scanned = true;
    if (!pass_scan(reader, stream.frame_mark == kJpegLs)) break;
  }
  return "is cut short: its stream has no end";
}

std::string choose_syntax(const Stream& stream, Still& still) {
  switch (stream.frame_mark) {
    case kBaseline:
    case kExtended:
      if (stream.bits != 8 && (stream.bits != 12 || stream.frame_mark == kBaseline)) break;
      still.syntax = stream.frame_mark == kBaseline ? JPEG_BASELINE : JPEG_EXTENDED_2_4;
      still.lossy_method = "ISO_10918_1";
      return "";
    case kProgressive:
      return "is a progressive JPEG, for which DICOM has no transfer syntax any more: make it a baseline "
             "one, "
             "which loses nothing (jpegtran without -progressive)";
    case kLossless:
      if (stream.bits < 2 || stream.bits > 16) break;
      still.syntax = stream.predictor == 1 ? JPEG_LOSSLESS_HIER_14 : JPEG_LOSSLESS_NON_HIER_14;
      if (stream.point_transform != 0) still.lossy_method = "ISO_10918_1";
      return "";
    case kJpegLs:
      if (stream.bits < 2 || stream.bits > 16) break;
      still.syntax = stream.near == 0 ? JPEG_LS_LOSSLESS : JPEG_LS_LOSSY;
      if (stream.near != 0) still.lossy_method = "ISO_14495_1";
      return "";
    default:
      return "is a JPEG with arithmetic coding or of several resolutions, which no transfer syntax has";
  }
  return "has " + std::to_string(stream.bits) + " bits a sample, which its kind of JPEG does not have";
}

// What the samples mean, by the marks of those who wrote the stream; without any by the names of the
// components, and what is left is as the library of all readers takes it.
bool has_luminance(const Stream& stream) {
  if (stream.jfif) return true;
  if (stream.adobe >= 0) return stream.adobe == 1;
  const std::vector<Component>& c = stream.components;
  if (c[0].id == 'R' && c[1].id == 'G' && c[2].id == 'B') return false;
  return stream.frame_mark != kLossless && stream.frame_mark != kJpegLs;
}

std::string choose_photometric(const Stream& stream, Still& still) {
  const std::vector<Component>& c = stream.components;
  if (c.size() == 1) return "";
  if (c.size() != 3)
    return "has " + std::to_string(c.size()) + " components; 1 and 3 are those of grey and of colour";
  const bool halved = c[0].across != c[1].across || c[0].down != c[1].down;
  const bool same = c[1].across == c[2].across && c[1].down == c[2].down;
  const bool luminance = has_luminance(stream);
  if (!same || (halved && !luminance))
    return "has components of different sizes that are no colour differences";
  if (halved && (c[0].across != 2 * c[1].across || (c[0].down != c[1].down && c[0].down != 2 * c[1].down)))
    return "has colour differences at an unusual part of the width";
  // The name of colour differences beside a lossy stream does not depend on how few of them it has (PS3.5
  // section 8.2.1).
  still.photometric = !luminance ? "RGB" : still.lossy_method.empty() ? "YBR_FULL" : "YBR_FULL_422";
  return "";
}

}  // namespace

std::string read_jpeg(const Input& input, Still& still) {
  Stream stream;
  if (std::string problem = walk(input, still, stream); !problem.empty()) return problem;
  if (still.height == 0) return "tells its height behind the picture alone, which is not read";
  if (std::string problem = choose_syntax(stream, still); !problem.empty()) return problem;
  if (std::string problem = choose_photometric(stream, still); !problem.empty()) return problem;
  still.samples = static_cast<uint32_t>(stream.components.size());
  still.stored = stream.bits;
  still.allocated = stream.bits <= 8 ? 8 : 16;
  still.icc_profile = std::move(stream.icc);
  still.frames.push_back(Payload::of(input.file, 0, stream.end));
  if (stream.end < input.size())
    still.told = std::to_string(input.size() - stream.end) + " bytes behind the picture are left out";
  if (stream.turned > 1 && stream.turned <= 8)
    still.told += (still.told.empty() ? "" : "; ") +
                  std::string("EXIF says that it is to be turned (orientation ") +
                  std::to_string(stream.turned) + "), which an object does not tell";
  return "";
}

}  // namespace vexal
