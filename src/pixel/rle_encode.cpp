// RLE frames in the making: rows of byte planes in PackBits.
#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "frame/byte_order.h"
#include "pixel/rle.h"
#include "pixel/rle_layout.h"
#include "pixel/thread_share.h"

namespace vx {

bool make_layout(const ImageAttributes& image, RleLayout& layout) {
  const uint32_t width = image.sample_bytes();
  const uint32_t samples = image.SamplesPerPixel;
  layout.segments = image.BitsAllocated == 1 ? 1 : samples * width;
  layout.pixels = image.plane_bytes();
  if (samples == 0 || layout.segments > kMaxRleSegments) return false;
  if (uint64_t{layout.segments} * layout.pixels != image.FrameSize) return false;
  const bool planar = image.PlanarConfiguration != 0;
  for (uint32_t i = 0; i < layout.segments; ++i) {
    const uint32_t sample = i / width;
    const uint32_t byte = width - 1 - i % width;  // the most significant one first
    layout.planes[i] = planar ? RlePlane{sample * layout.pixels * width + byte, width}
                              : RlePlane{sample * width + byte, samples * width};
  }
  return true;
}

namespace {

constexpr uint32_t kMaxRun = 128;

class Packer {
 public:
  explicit Packer(uint8_t* out) : begin_(out), out_(out) {}
  void row(const uint8_t* bytes, uint32_t size);
  uint32_t size() const { return static_cast<uint32_t>(out_ - begin_); }

 private:
  void flush(const uint8_t* bytes, uint32_t literals, uint32_t copies) {
    if (literals != 0) {
      *out_++ = static_cast<uint8_t>(literals - 1);
      std::memcpy(out_, bytes, literals);
      out_ += literals;
    }
    if (copies != 0) {
      *out_++ = static_cast<uint8_t>(257 - copies);
      *out_++ = bytes[literals];
    }
  }
  uint8_t* begin_;
  uint8_t* out_;
};

// How many of the bytes from `p` on, at most `most`, differ from the one before them.
uint32_t count_changes(const uint8_t* p, uint32_t most) {
  constexpr uint64_t kLow = 0x0101010101010101U;
  uint32_t n = 0;
  while (n + 8 <= most) {
    uint64_t here;
    uint64_t before;
    std::memcpy(&here, p + n, sizeof here);
    std::memcpy(&before, p + n - 1, sizeof before);
    const uint64_t difference = here ^ before;
    const uint64_t equal = (difference - kLow) & ~difference & (kLow << 7);
    if (equal != 0) return n + static_cast<uint32_t>(std::countr_zero(equal)) / 8;
    n += 8;
  }
  while (n < most && p[n] != p[static_cast<std::ptrdiff_t>(n) - 1]) ++n;
  return n;
}
// How many are equal to the one before `p`.
uint32_t count_equal(const uint8_t* p, uint32_t most) {
  uint32_t n = 0;
  while (n + 8 <= most) {
    uint64_t here;
    uint64_t before;
    std::memcpy(&here, p + n, sizeof here);
    std::memcpy(&before, p + n - 1, sizeof before);
    if (here != before) return n + static_cast<uint32_t>(std::countr_zero(here ^ before)) / 8;
    n += 8;
  }
  while (n < most && p[n] == p[-1]) ++n;
  return n;
}

// Every `stride`-th byte.
void gather(const uint8_t* from, uint32_t stride, uint32_t count, uint8_t* to) {
  if (stride == 2) {  // with a constant step the compiler moves many at once
    for (uint32_t i = 0; i < count; ++i) to[i] = from[2 * std::size_t{i}];
    return;
  }
  for (uint32_t i = 0; i < count; ++i, from += stride) to[i] = *from;
}

// Bytes, at most `most`, at which nothing is decided: short of a full scratch and of the row's last byte.
inline uint32_t pass_stretch(const uint8_t* bytes, uint32_t most, uint32_t held, uint32_t& tail,
                             uint32_t& marked) {
  uint32_t passed = 0;
  if (tail == 1) {
    passed = count_changes(bytes, most);
    if (passed != 0) marked = 0;
  } else if (tail > 4 && tail == held) {
    passed = count_equal(bytes, most);
    tail += passed;
  }
  return passed;
}

// One row; a run never crosses its end. `held` bytes from `start` on are not written yet: among them `marked`
// that will be a replicate run, and behind those `tail` equal ones.
void Packer::row(const uint8_t* bytes, uint32_t size) {
  uint32_t start = 0;
  uint32_t held = 0;
  uint32_t tail = 0;
  uint32_t marked = 0;
  for (uint32_t i = 0; i < size; ++i) {
    if (i + 1 < size && held < kMaxRun - 1) {
      const uint32_t passed =
          pass_stretch(bytes + i, std::min(kMaxRun - 1 - held, size - 1 - i), held, tail, marked);
      held += passed;
      i += passed;
    }
    bool full = false;
    ++held;
    if (held == 1) {
      tail = 1;
    } else if (bytes[i] == bytes[i - 1] && tail != 0) {
      ++tail;
      full = (tail == 4 && held >= 5) || (tail == 3 && marked > 0);
    } else {
      if (tail >= 4 || (tail == 3 && marked != 0)) {
        marked = tail;
        full = true;
      } else if (tail == 3) {
        marked = 3;
      } else {
        marked = tail == 2 && held == 3 && marked == 0 ? 2 : 0;
      }
      tail = 1;
    }
    if (held == kMaxRun && !full) {
      if (marked == 0) {
        if (tail > 2) marked = tail;
        tail = 0;
      } else {
        marked = 0;
      }
      full = true;
    }
    if (i + 1 == size) {
      if (tail >= 2) {
        marked = tail;
        tail = 0;
      } else if (marked == 0) {
        tail = 0;
      }
      full = true;
    }
    if (!full) continue;
    flush(bytes + start, held - marked - tail, marked);
    start += held - tail;
    held = tail;
    marked = 0;
  }
  if (held != 0) flush(bytes + start, held, 0);
}

}  // namespace

namespace {

// Rows of single bits need not end at a byte: then the plane is one row.
struct RowShape {
  uint32_t rows;
  uint32_t bytes;  // of each byte plane
};
RowShape rows_of(const ImageAttributes& image) {
  if (image.BitsAllocated != 1) return {image.Rows, image.Columns};
  const uint64_t bits = uint64_t{image.Columns} * image.SamplesPerPixel;
  if (bits % 8 != 0) return {1, image.FrameSize};
  return {image.Rows, static_cast<uint32_t>(bits / 8)};
}
// A literal run that no replicate run pays for has at least 126 bytes; a row may end with two short runs.
uint64_t bound_of_row(const RowShape& shape) {
  return uint64_t{shape.bytes} + shape.bytes / 64 + 4;
}

}  // namespace

uint64_t rle_bound(const ImageAttributes& image) {
  const RowShape shape = rows_of(image);
  return kRleHeaderBytes +
         (bound_of_row(shape) * shape.rows + 1) * image.SamplesPerPixel * image.sample_bytes();
}

namespace {

// Rows of one segment, packed by one thread.
struct Band {
  uint32_t segment;
  uint32_t first;  // row
  uint32_t rows;
  uint64_t place;  // in the output, with room for the most that they can take
  uint32_t size;   // 0: there was no memory
};

bool pack_band(const RowShape& shape, const RlePlane& plane, bool gathers, const uint8_t* frame, Band& band,
               uint8_t* out) {
  const std::size_t step = std::size_t{plane.stride} * shape.bytes;
  const uint8_t* from = frame + plane.start + step * band.first;
  std::unique_ptr<uint8_t[]> row;
  if (gathers) {
    row.reset(new (std::nothrow) uint8_t[shape.bytes]);
    if (row == nullptr) return false;
  }
  Packer packer(out);
  for (uint32_t y = 0; y < band.rows; ++y, from += step) {
    if (gathers) gather(from, plane.stride, shape.bytes, row.get());
    packer.row(gathers ? row.get() : from, shape.bytes);
  }
  band.size = packer.size();
  return true;
}

// As many as keep the threads busy to the end; each but with its segment's others makes the output that one
// alone would.
std::vector<Band> make_bands(const RleLayout& layout, const RowShape& shape, uint64_t row_bound,
                             unsigned threads) {
  constexpr uint32_t kBandsOfThread = 4;
  const uint32_t each =
      threads <= 1 ? 1
                   : std::min(shape.rows, (threads * kBandsOfThread + layout.segments - 1) / layout.segments);
  std::vector<Band> bands;
  bands.reserve(std::size_t{each} * layout.segments);
  for (uint32_t segment = 0; segment < layout.segments; ++segment) {
    const uint64_t start = kRleHeaderBytes + (row_bound * shape.rows + 1) * segment;
    for (uint32_t i = 0; i < each; ++i) {
      const auto first = static_cast<uint32_t>(uint64_t{shape.rows} * i / each);
      const auto end = static_cast<uint32_t>(uint64_t{shape.rows} * (i + 1) / each);
      bands.push_back({segment, first, end - first, start + row_bound * first, 0});
    }
  }
  return bands;
}

}  // namespace

bool rle_encode(const ImageAttributes& image, const uint8_t* frame, unsigned threads, uint8_t* out,
                uint32_t& size) try {
  RleLayout layout;
  if (!make_layout(image, layout)) return false;
  const RowShape shape = rows_of(image);
  std::vector<Band> bands = make_bands(layout, shape, bound_of_row(shape), threads);
  std::memset(out, 0, kRleHeaderBytes);
  store32(out, layout.segments, false);
  uint64_t total = kRleHeaderBytes;
  const auto pack = [&](Band& band, uint64_t place) {
    return pack_band(shape, layout.planes[band.segment], layout.segments > 1, frame, band, out + place);
  };
  if (threads > 1) {
    std::atomic<bool> failed{false};
    run_parts(threads, bands.size(), [&](std::size_t i) {
      if (!pack(bands[i], bands[i].place)) failed = true;
    });
    if (failed) return false;
  }
  for (std::size_t i = 0; i < bands.size(); ++i) {
    Band& band = bands[i];
    if (band.first == 0)
      store32(out + 4 + 4 * std::size_t{band.segment}, static_cast<uint32_t>(total), false);
    if (threads > 1) {
      std::memmove(out + total, out + band.place, band.size);
    } else if (!pack(band, total)) {
      return false;
    }
    total += band.size;
    const bool ends = i + 1 == bands.size() || bands[i + 1].first == 0;
    if (ends && total % 2 != 0) out[total++] = 0;
  }
  size = static_cast<uint32_t>(total);
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

}  // namespace vx
