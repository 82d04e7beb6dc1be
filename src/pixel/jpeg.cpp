#include "pixel/jpeg.h"

#include "frame/byte_order.h"
#include "frame/limits.h"
#include "pixel/jpeg_head.h"

namespace vx::jpeg {
namespace {

bool is_frame_marker(uint8_t marker) {
  if (marker == 0xF7) return true;
  return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

}  // namespace

Fault Head::start_of_image() {
  if (left() < 2 || cursor_[0] != 0xFF || cursor_[1] != 0xD8) return kNotJpeg;
  cursor_ += 2;
  return kNone;
}

Fault Head::next(uint8_t& marker) {
  for (;;) {
    if (left() < 2) return kShort;
    if (cursor_[0] != 0xFF) return kBadMarker;
    marker = cursor_[1];
    ++cursor_;
    if (marker == 0xFF) continue;  // fill
    ++cursor_;
    if (marker == 0xD9) return kNone;
    if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7)) continue;
    if (left() < 2) return kShort;
    const std::size_t length = load16(cursor_, true);
    if (length < 2 || length > left()) return kBadMarker;
    const uint8_t* p = cursor_ + 2;
    const std::size_t n = length - 2;
    cursor_ += length;
    Fault fault = kNone;
    if (is_frame_marker(marker)) return frame(p, n, marker);
    if (marker == 0xDA) return scan_header(p, n);
    if (marker == 0xC4) fault = huffman(p, n);
    if (marker == 0xDB) fault = quantisers(p, n);
    if (marker == 0xDD) {
      if (n < 2) return kBadMarker;
      restart_interval = load16(p, true);
    }
    if (fault != kNone) return fault;
  }
}

Fault Head::frame(const uint8_t* p, std::size_t n, uint8_t marker) {
  if (shape.components != 0 || n < 6) return kBadMarker;
  shape.process = marker;
  shape.precision = p[0];
  shape.rows = load16(p + 1, true);
  shape.columns = load16(p + 3, true);
  shape.components = p[5];
  if (shape.components == 0 || shape.components > kMaxSamples) return kUnsupported;
  if (n < 6 + 3 * std::size_t{shape.components} || shape.rows == 0 || shape.columns == 0) return kBadMarker;
  for (std::size_t i = 0; i < shape.components; ++i) {
    const uint8_t* c = p + 6 + 3 * i;
    components[i] = {c[0], c[2]};
    if (shape.components > 1 && c[1] != 0x11) shape.subsampled = true;
    if (c[2] > 3) return kBadMarker;
  }
  return kNone;
}

Fault Head::scan_header(const uint8_t* p, std::size_t n) {
  scan = {};
  if (shape.components == 0 || n < 1) return kBadMarker;
  scan.count = p[0];
  if (scan.count == 0 || scan.count > shape.components || n < 4 + 2 * std::size_t{scan.count})
    return kBadMarker;
  for (std::size_t i = 0; i < scan.count; ++i) {
    const uint8_t id = p[1 + 2 * i];
    const uint8_t tables = p[2 + 2 * i];
    uint8_t index = 0;
    while (index < shape.components && components[index].id != id) ++index;
    if (index == shape.components || (tables >> 4) > 3 || (tables & 15) > 3) return kBadMarker;
    for (std::size_t j = 0; j < i; ++j) {
      if (scan.component[j] == index) return kBadMarker;
    }
    scan.component[i] = index;
    scan.dc[i] = tables >> 4;
    scan.ac[i] = tables & 15;
  }
  const uint8_t* rest = p + 1 + 2 * std::size_t{scan.count};
  scan.start = rest[0];
  scan.end = rest[1];
  scan.high = rest[2] >> 4;
  scan.low = rest[2] & 15;
  return kNone;
}

Fault Head::huffman(const uint8_t* p, std::size_t n) {
  while (n != 0) {
    if (n < 17 || (p[0] >> 4) > 1 || (p[0] & 15) > 3) return kBadTable;
    HuffmanSpec spec;
    std::size_t count = 0;
    for (std::size_t i = 1; i <= 16; ++i) {
      spec.counts[i] = p[i];
      count += p[i];
    }
    if (count > 256 || n < 17 + count) return kBadTable;
    for (std::size_t i = 0; i < count; ++i) spec.values[i] = p[17 + i];
    HuffmanDecoder& table = (p[0] >> 4 != 0 ? ac : dc)[p[0] & 15];
    if (!table.build(spec)) return kBadTable;
    p += 17 + count;
    n -= 17 + count;
  }
  return kNone;
}

Fault Head::quantisers(const uint8_t* p, std::size_t n) {
  while (n != 0) {
    const std::size_t width = (p[0] >> 4) != 0 ? 2 : 1;
    if ((p[0] >> 4) > 1 || (p[0] & 15) > 3 || n < 1 + 64 * width) return kBadTable;
    auto& table = quantisation[p[0] & 15];
    for (std::size_t i = 0; i < 64; ++i) {
      table[i] = width == 2 ? load16(p + 1 + 2 * i, true) : p[1 + i];
      if (table[i] == 0) return kBadTable;
    }
    p += 1 + 64 * width;
    n -= 1 + 64 * width;
  }
  return kNone;
}

Fault query(const uint8_t* data, std::size_t size, Shape& shape) {
  Head head(data, size);
  if (Fault fault = head.start_of_image(); fault != kNone) return fault;
  uint8_t marker = 0;
  const Fault fault = head.next(marker);
  if (fault != kNone) return fault;
  if (!is_frame_marker(marker)) return kBadMarker;
  shape = head.shape;
  return kNone;
}

Fault decode(const uint8_t* data, std::size_t size, Shape& shape, bool wide, void* out, unsigned threads) {
  Head head(data, size);
  if (Fault fault = head.start_of_image(); fault != kNone) return fault;
  uint8_t marker = 0;
  if (Fault fault = head.next(marker); fault != kNone) return fault;
  const Shape& found = head.shape;
  if (!is_frame_marker(marker) || found.rows != shape.rows || found.columns != shape.columns ||
      found.components != shape.components || found.precision != shape.precision) {
    return kBadMarker;
  }
  if (found.subsampled) return kUnsupported;
  if (found.process == 0xC2 && found.precision == 12 && wide) {
    const Fault fault = decode_progressive12(head, out);
    shape = found;
    shape.ends_well = fault == kNone;
    return fault;
  }
  uint32_t done = 0;  // a bit for each component
  while (done != (1U << found.components) - 1) {
    if (Fault fault = head.next(marker); fault != kNone) return fault;
    if (marker != 0xDA) return kShort;
    for (uint32_t i = 0; i < head.scan.count; ++i) {
      const uint32_t bit = 1U << head.scan.component[i];
      if ((done & bit) != 0) return kBadMarker;
      done |= bit;
    }
    Fault fault = kUnsupported;
    if (found.process == 0xC3) {
      if (found.precision < 2 || found.precision > 16 || (!wide && found.precision > 8)) return kUnsupported;
      fault = decode_lossless(head, wide, threads, out);
    } else if (found.process == 0xC1 && found.precision == 12 && wide) {
      fault = decode_extended12(head, out);
    }
    if (fault != kNone) return fault;
  }
  shape = found;
  shape.ends_well = head.next(marker) == kNone && marker == 0xD9;
  return kNone;
}

bool has_too_many_scans(const uint8_t* data, std::size_t size) {
  int scans = 0;
  for (std::size_t i = 0; i + 1 < size; ++i) {
    if (data[i] == 0xFF && data[i + 1] == 0xDA && ++scans > kMaxScans) return true;
  }
  return false;
}

std::size_t find_end(const uint8_t* data, std::size_t size, std::size_t& from) {
  // Segments have lengths: what looks like a marker inside them is none.
  std::size_t at = from == 0 ? 2 : from;
  while (at + 2 <= size) {
    if (data[at] != 0xFF) {
      const void* found = std::memchr(data + at, 0xFF, size - at);
      at = found != nullptr ? static_cast<std::size_t>(static_cast<const uint8_t*>(found) - data) : size;
      continue;
    }
    const uint8_t marker = data[at + 1];
    if (marker == 0xFF) {
      ++at;
      continue;
    }
    if (marker == 0xD9) return at + 2;
    if (marker == 0 || marker == 1 || (marker >= 0xD0 && marker <= 0xD8) || marker < 0xC0) {
      at += 2;
      continue;
    }
    if (at + 4 > size) break;
    const std::size_t length = load16(data + at + 2, true);
    if (length < 2) {
      at += 2;
      continue;
    }
    if (length + 2 > size - at) break;
    at += 2 + length;
  }
  from = at < size ? at : size;
  return 0;
}

}  // namespace vx::jpeg
