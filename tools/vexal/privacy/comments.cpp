#include "comments.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "base/tags.h"
#include "files/fragments.h"

namespace vexal {
namespace {

constexpr uint8_t kJpegStart = 0xD8;
constexpr uint8_t kJpeg2000Start = 0x4F;
constexpr uint8_t kJpegComment = 0xFE;
constexpr uint8_t kJpegScan = 0xDA;
constexpr uint8_t kJpegEnd = 0xD9;
constexpr uint8_t kJpeg2000Comment = 0x64;
constexpr uint8_t kJpeg2000Tile = 0x90;

// What decoders go by: the colours of a JPEG or JPEG-LS stream, and a JFIF head without a picture of its own.
bool is_needed(uint8_t marker, std::size_t length, const char (&begin)[6]) {
  return (marker == 0xEE && std::memcmp(begin, "Adobe", 5) == 0 && length == 14) ||
         (marker == 0xE0 && std::memcmp(begin, "JFIF", 5) == 0 && length == 16) ||
         (marker == 0xE8 && std::memcmp(begin, "mrfx", 4) == 0 && length == 7);
}

// Boxes of a JPEG XL container (ISO/IEC 18181-2) that its image needs.
bool is_needed_box(const char* type) {
  static constexpr const char* kNeeded[] = {"JXL ", "ftyp", "jxll", "jxlc", "jxlp", "jxli", "free"};
  return std::any_of(std::begin(kNeeded), std::end(kNeeded),
                     [&](const char* needed) { return std::memcmp(type, needed, 4) == 0; });
}

// The others become room that nobody uses.
template <typename Read>
std::string cover_boxes(DicomFile& file, uint64_t start, uint64_t size, Read read) {
  uint8_t head[16] = {};
  for (uint64_t at = 0; read(at, head, 8);) {
    uint64_t length = 0;
    for (int i = 0; i < 4; ++i) length = length << 8 | head[i];
    const auto* type = reinterpret_cast<const char*>(head + 4);
    uint64_t behind = 8;
    if (length == 1 && read(at, head, sizeof head)) {
      length = 0;
      for (int i = 8; i < 16; ++i) length = length << 8 | head[i];
      behind = 16;
    }
    if (length == 0) length = size - at;
    if (length < behind) return "";
    if (!is_needed_box(type)) {
      if (length > size - at) return "a comment in its compressed frames goes from one fragment to the next";
      file.cover(start + at + 4, "free");
      file.cover(start + at + behind, std::string(length - behind, '\0'));
    }
    if (length > size - at) return "";
    at += length;
  }
  return "";
}

// The segments of a stream's head, up to its first scan or tile.
std::string cover_in(DicomFile& file, uint64_t start, uint64_t size) {
  const auto read = [&](uint64_t at, void* to, std::size_t bytes) {
    return at + bytes <= size && file.source().read_at(start + at, to, bytes) == static_cast<int64_t>(bytes);
  };
  uint8_t head[4];
  char box[4];
  if (read(4, box, sizeof box) && std::memcmp(box, "JXL ", sizeof box) == 0)
    return cover_boxes(file, start, size, read);
  if (!read(0, head, 2) || head[0] != 0xFF || (head[1] != kJpegStart && head[1] != kJpeg2000Start)) return "";
  const bool jpeg = head[1] == kJpegStart;
  for (uint64_t at = 2; read(at, head, sizeof head) && head[0] == 0xFF;) {
    const uint8_t marker = head[1];
    if (jpeg ? marker == kJpegScan || marker == kJpegEnd : marker == kJpeg2000Tile) return "";
    if (marker == 0xFF) {  // a byte of filling
      ++at;
      continue;
    }
    const std::size_t length = std::size_t{head[2]} << 8 | head[3];  // with its own two bytes
    if (length < 2) return "";
    char begin[6] = {};
    if (length > 2) read(at + 4, begin, std::min<std::size_t>(length - 2, 5));
    const bool application = jpeg && marker >= 0xE0 && marker <= 0xEF && !is_needed(marker, length, begin);
    const bool comment = marker == (jpeg ? kJpegComment : kJpeg2000Comment);
    const std::size_t behind = jpeg ? 4 : 6;  // what kind of comment it is stands first
    if ((application || comment) && at + 2 + length > size)
      return "a comment in its compressed frames goes from one fragment to the next";
    if ((application || comment) && length + 2 > behind)
      file.cover(start + at + behind, std::string(length + 2 - behind, comment ? ' ' : '\0'));
    at += 2 + length;
  }
  return "";
}

}  // namespace

std::string cover_comments(DicomFile& file) {
  const KeptValue* value = file.kept(file.id(), tags::kPixelData);
  if (value == nullptr || value->length != kUndefinedLength) return "";
  const uint64_t offset = value->offset;
  const Encapsulated items = read_items(
      [&](uint64_t at, void* buffer, std::size_t length) {
        return file.source().read_at(offset + at, buffer, length) == static_cast<int64_t>(length);
      },
      file.source().size() - offset);
  for (const Fragment& fragment : items.fragments) {
    if (std::string problem = cover_in(file, offset + fragment.data, fragment.length); !problem.empty())
      return problem;
  }
  return "";
}

}  // namespace vexal
