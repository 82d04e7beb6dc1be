#include "pixel/jpeg2000_stream.h"

#include <algorithm>
#include <cstring>

#include "frame/byte_order.h"
#include "frame/limits.h"
#include "pixel/codec_jpeg2000.h"

namespace vx {
namespace {

// Markers of ISO/IEC 15444-1 annex A, but for those of extensions: ISO/IEC 15444-2 annex A.
constexpr uint16_t kStart = 0xFF4F;
constexpr uint16_t kSize = 0xFF51;
constexpr uint16_t kCodingDefault = 0xFF52;
constexpr uint16_t kCodingComponent = 0xFF53;
constexpr uint16_t kFirstExtension = 0xFF72;
constexpr uint16_t kLastExtension = 0xFF79;
constexpr uint16_t kTilePart = 0xFF90;
constexpr uint16_t kTileData = 0xFF93;
constexpr uint16_t kStreamEnd = 0xFFD9;
constexpr uint32_t kCodeStreamBox = 0x6A703263U;
constexpr std::size_t kTilePartHead = 12;

// Those that the library reads by their lengths. In others it looks for these.
constexpr uint8_t kKnown[] = {0x50, 0x51, 0x52, 0x53, 0x55, 0x57, 0x58, 0x59,
                              0x5C, 0x5D, 0x5E, 0x5F, 0x60, 0x61, 0x63, 0x64};
bool is_known(uint16_t marker) {
  return std::find(std::begin(kKnown), std::end(kKnown), marker & 0xFF) != std::end(kKnown);
}

// What the segments of a stream say, those of its head and those of its tile parts.
struct Traits {
  bool extensions = false;
  bool high_throughput = false;
  bool marked_packets = false;  // by SOP or EPH
  bool layers = false;          // more than one
  bool unknown = false;         // segments are
  bool broken = false;
  bool markers = false;  // stand among the bytes of packets
};

void read_segment(uint16_t marker, const uint8_t* content, std::size_t size, Traits& traits) {
  if (marker >= kFirstExtension && marker <= kLastExtension) traits.extensions = true;
  if (!is_known(marker)) traits.unknown = true;
  constexpr uint8_t kHighThroughputBlocks = 0x40;
  if (marker == kCodingDefault && size >= 10) {
    traits.marked_packets = traits.marked_packets || (content[0] & 0x06) != 0;
    traits.layers = traits.layers || load16(content + 2, true) != 1;
    traits.high_throughput = traits.high_throughput || (content[8] & kHighThroughputBlocks) != 0;
  } else if (marker == kCodingComponent) {
    // Behind the number of the component, of one byte or two, and the style: levels, block sizes, block
    // style.
    for (const std::size_t at : {std::size_t{5}, std::size_t{6}})
      traits.high_throughput =
          traits.high_throughput || (size > at && (content[at] & kHighThroughputBlocks) != 0);
  }
}

// A run of segments from `at` to the marker that ends it, where `at` is left. False: there is none.
bool read_segments(const uint8_t* data, std::size_t size, std::size_t& at, uint16_t end, Traits& traits) {
  while (size - at >= 4) {
    const uint16_t marker = load16(data + at, true);
    if (marker == end) return true;
    const std::size_t length = load16(data + at + 2, true);
    if (marker < 0xFF00 || length < 2 || length + 2 > size - at) break;
    read_segment(marker, data + at + 4, length - 2, traits);
    at += length + 2;
  }
  traits.broken = true;
  return false;
}

// Bytes of packets never look like markers above FF8F.
bool has_marker(const uint8_t* data, std::size_t size) {
  const uint8_t* const end = data + size;
  for (const uint8_t* at = data; end - at >= 2; ++at) {
    at = static_cast<const uint8_t*>(std::memchr(at, 0xFF, static_cast<std::size_t>(end - at) - 1));
    if (at == nullptr) return false;
    if (at[1] > 0x8F) return true;
  }
  return false;
}

// Where the bytes of packets end that begin at `at`, in a tile part of a length that may be wrong.
std::size_t end_of_part(const uint8_t* data, std::size_t size, std::size_t start, std::size_t at) {
  const std::size_t length = load32(data + start + 6, true);
  if (length != 0 && length <= size - start && start + length >= at) return start + length;
  std::size_t end = size;
  while (end > at && data[end - 1] == 0) --end;  // pads
  return end - at >= 2 && load16(data + end - 2, true) == kStreamEnd ? end - 2 : end;
}

Traits walk(const uint8_t* data, std::size_t size) {
  Traits traits;
  std::size_t at = 2;
  if (!read_segments(data, size, at, kTilePart, traits)) return traits;
  while (size - at >= kTilePartHead && load16(data + at, true) == kTilePart) {
    const std::size_t start = at;
    at += kTilePartHead;
    if (!read_segments(data, size, at, kTileData, traits)) return traits;
    at += 2;
    const std::size_t end = end_of_part(data, size, start, at);
    traits.markers = traits.markers || has_marker(data + at, end - at);
    at = end;
  }
  const bool ends = size - at >= 2 && load16(data + at, true) == kStreamEnd;
  traits.broken = traits.broken || (!ends && has_marker(data + at, size - at));
  return traits;
}

}  // namespace

void jpeg2000::unwrap(const uint8_t*& data, std::size_t& size) {
  static constexpr uint8_t kSignature[] = {0, 0, 0, 12, 'j', 'P', ' ', ' '};
  if (size < sizeof kSignature || std::memcmp(data, kSignature, sizeof kSignature) != 0) return;
  std::size_t at = 0;
  while (size - at >= 8) {
    const uint64_t length = load32(data + at, true);
    if (load32(data + at + 4, true) == kCodeStreamBox) {
      const std::size_t head = length == 1 ? 16 : 8;
      if (size - at < head) return;
      data += at + head;
      size -= at + head;
      return;
    }
    if (length < 8 || length > size - at) return;
    at += static_cast<std::size_t>(length);
  }
}

int jpeg2000::read_size_segment(const uint8_t* data, std::size_t size, StreamHead& head) {
  if (size < 4 || load16(data, true) != kStart || load16(data + 2, true) != kSize) return kCodecNotAStream;
  if (size < 4 + 38 + 3) return kCodecShort;
  const uint8_t* p = data + 4;
  const uint32_t components = load16(p + 36, true);
  if (components == 0 || components > kMaxSamples) return kCodecUnsupported;
  if (size - 4 < 38 + 3 * std::size_t{components}) return kCodecShort;
  const uint64_t x1 = load32(p + 4, true);
  const uint64_t y1 = load32(p + 8, true);
  const uint64_t x0 = load32(p + 12, true);
  const uint64_t y0 = load32(p + 16, true);
  const uint64_t tile_x = load32(p + 20, true);
  const uint64_t tile_y = load32(p + 24, true);
  if (x1 <= x0 || y1 <= y0 || tile_x == 0 || tile_y == 0) return kCodecBadMarker;
  if (x1 - x0 > UINT16_MAX || y1 - y0 > UINT16_MAX) return kCodecTooLarge;
  // The library keeps kilobytes for each tile.
  const uint64_t tiles = ((x1 + tile_x - 1) / tile_x) * ((y1 + tile_y - 1) / tile_y);
  if (tiles > 64 && tiles > (x1 - x0) * (y1 - y0) / 1024) return kCodecTooLarge;
  head.tiles = tiles;
  head.image = {static_cast<uint32_t>(y1 - y0), static_cast<uint32_t>(x1 - x0), components,
                (p[38] & 0x7FU) + 1U};
  head.is_signed = (p[38] & 0x80U) != 0;
  for (std::size_t i = 0; i < components; ++i) {
    const uint8_t* c = p + 38 + 3 * i;
    if (c[0] != p[38] || c[1] != 1 || c[2] != 1) return kCodecUnsupported;
  }
  return kCodecDone;
}

// Blocks of high throughput end the process in the library behind the codec if a marker begins in them, which
// only a damaged stream has. Where packets are marked, or blocks lie in pieces, that can not be seen.
int jpeg2000::inspect(const uint8_t* data, std::size_t size) {
  const Traits traits = walk(data, size);
  if (traits.extensions) return kCodecExtensions;
  if (traits.broken) return kCodecBadMarker;
  if (traits.unknown) return kCodecUnsupported;
  // Where packets are marked, stray markers can not be told from others.
  if (!traits.high_throughput) return traits.markers && !traits.marked_packets ? kCodecDamaged : kCodecDone;
  if (traits.marked_packets || traits.layers) return kCodecUnsupported;
  return traits.markers ? kCodecBadCode : kCodecDone;
}

int jpeg2000::query(const uint8_t* data, std::size_t size, CodecHead& head) {
  unwrap(data, size);
  StreamHead found;
  const int status = read_size_segment(data, size, found);
  head = found.image;
  head.is_signed = found.is_signed ? 1 : 0;
  return status;
}

// From tile part to tile part by their lengths.
std::size_t jpeg2000::find_end(const uint8_t* data, std::size_t size, std::size_t& from) {
  std::size_t at = from;
  while (size - at >= 2) {
    const uint16_t marker = load16(data + at, true);
    if (marker == kStreamEnd) return at + 2;
    if (marker == kStart) {
      at += 2;
    } else if (marker == kTilePart) {
      if (size - at < 12) break;
      const std::size_t length = load32(data + at + 6, true);
      if (length < 14) {  // unknown, or broken: only the end of the data tells
        at = size;
        break;
      }
      if (length > size - at) break;
      at += length;
    } else if ((marker >> 8) == 0xFF) {
      if (size - at < 4) break;
      const std::size_t length = load16(data + at + 2, true);
      if (length + 2 > size - at) break;
      at += 2 + length;
    } else {
      at = size;
      break;
    }
  }
  from = at;
  return 0;
}

}  // namespace vx
