// Process 4 with 12 bits: blocks of 8 x 8 through the discrete cosine transform (annexes A and F).
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <new>

#include "pixel/jpeg_head.h"

namespace vx::jpeg {
namespace {

constexpr std::array<uint8_t, 64> kZigzag = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                                             12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                                             35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                                             58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

// Table K.1, in the order of rows.
constexpr std::array<uint8_t, 64> kLuminance = {
    16, 11,  10,  16, 24, 40, 51, 61, 12,  12,  14,  19,  26, 58, 60, 55,  14,  13,  16,  24, 40, 57,
    69, 56,  14,  17, 22, 29, 51, 87, 80,  62,  18,  22,  37, 56, 68, 109, 103, 77,  24,  35, 55, 64,
    81, 104, 113, 92, 49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98,  112, 100, 103, 99};

constexpr int32_t kMaxSample = 4095;
constexpr int32_t kMiddle = 2048;
using Block = std::array<int32_t, 64>;

// --- The inverse transform: eleven multiplications a row (Loeffler, Ligtenberg, Moschytz), in fixed point
// ---

constexpr int kFraction = 13;
constexpr int kFirstPass = 1;  // fraction bits that stay between the passes

constexpr int64_t fixed(double value) {
  return static_cast<int64_t>(value * (1 << kFraction) + 0.5);
}

// Eight values `step` apart, into the same places.
void inverse_row(int64_t* v, std::size_t step, int shift) {
  const auto at = [=](std::size_t i) -> int64_t& { return v[i * step]; };
  const int64_t turned = (at(2) + at(6)) * fixed(0.541196100);
  const int64_t even2 = turned - at(6) * fixed(1.847759065);
  const int64_t even3 = turned + at(2) * fixed(0.765366865);
  const int64_t even0 = (at(0) + at(4)) * (1 << kFraction);
  const int64_t even1 = (at(0) - at(4)) * (1 << kFraction);
  const int64_t e[4] = {even0 + even3, even1 + even2, even1 - even2, even0 - even3};
  const int64_t both = (at(7) + at(3) + at(5) + at(1)) * fixed(1.175875602);
  const int64_t z1 = -(at(7) + at(1)) * fixed(0.899976223);
  const int64_t z2 = -(at(5) + at(3)) * fixed(2.562915447);
  const int64_t z3 = both - (at(7) + at(3)) * fixed(1.961570560);
  const int64_t z4 = both - (at(5) + at(1)) * fixed(0.390180644);
  const int64_t o[4] = {at(1) * fixed(1.501321110) + z1 + z4, at(3) * fixed(3.072711026) + z2 + z3,
                        at(5) * fixed(2.053119869) + z2 + z4, at(7) * fixed(0.298631336) + z1 + z3};
  const int64_t half = int64_t{1} << (shift - 1);
  for (std::size_t i = 0; i < 4; ++i) {
    at(i) = (e[i] + o[i] + half) >> shift;
    at(7 - i) = (e[i] - o[i] + half) >> shift;
  }
}

void inverse(const Block& coefficients, std::array<uint16_t, 64>& samples) {
  std::array<int64_t, 64> work;
  std::copy(coefficients.begin(), coefficients.end(), work.begin());
  for (std::size_t x = 0; x < 8; ++x) inverse_row(work.data() + x, 8, kFraction - kFirstPass);
  for (std::size_t y = 0; y < 8; ++y) inverse_row(work.data() + 8 * y, 1, kFraction + kFirstPass + 3);
  for (std::size_t i = 0; i < 64; ++i) {
    samples[i] = static_cast<uint16_t>(std::clamp<int64_t>(work[i] + kMiddle, 0, kMaxSample));
  }
}

// The part of a block that lies in the image.
void put_block(const Head& head, std::size_t component, uint32_t x, uint32_t y, const Block& coefficients,
               uint16_t* out) {
  std::array<uint16_t, 64> samples;
  inverse(coefficients, samples);
  const uint32_t stride = head.shape.components;
  const uint32_t rows = std::min(8U, head.shape.rows - 8 * y);
  const uint32_t columns = std::min(8U, head.shape.columns - 8 * x);
  for (uint32_t r = 0; r < rows; ++r) {
    uint16_t* to =
        out + ((std::size_t{8} * y + r) * head.shape.columns + std::size_t{8} * x) * stride + component;
    for (uint32_t c = 0; c < columns; ++c, to += stride) *to = samples[8 * r + c];
  }
}

class ExtendedDecoder {
 public:
  ExtendedDecoder(Head& head, uint16_t* out) : head_(head), out_(out), bits_(head.position(), head.left()) {}

  Fault run() {
    // A sequential scan holds whole blocks, whatever some writers say in its header.
    const Scan& scan = head_.scan;
    for (uint32_t i = 0; i < scan.count; ++i) {
      if (!head_.dc[scan.dc[i]].valid() || !head_.ac[scan.ac[i]].valid()) return kBadTable;
      if (head_.quantisation[head_.components[scan.component[i]].quantisation][0] == 0) return kBadTable;
    }
    const uint32_t across = (head_.shape.columns + 7) / 8;
    const uint32_t down = (head_.shape.rows + 7) / 8;
    uint32_t unit = 0;
    for (uint32_t y = 0; y < down; ++y) {
      for (uint32_t x = 0; x < across; ++x, ++unit) {
        if (head_.restart_interval != 0 && unit != 0 && unit % head_.restart_interval == 0) {
          if (!bits_.restart()) return kShort;
          last_dc_.fill(0);
        }
        for (uint32_t i = 0; i < scan.count; ++i) {
          if (Fault fault = block(i, x, y); fault != kNone) return fault;
        }
      }
      if (bits_.overrun()) return kShort;
    }
    head_.continue_at(bits_.position());
    return kNone;
  }

 private:
  Fault block(uint32_t i, uint32_t x, uint32_t y) {
    const Scan& scan = head_.scan;
    const std::size_t component = scan.component[i];
    const auto& steps = head_.quantisation[head_.components[component].quantisation];
    Block coefficients{};
    uint8_t symbol = 0;
    bits_.fill();
    if (!bits_.code(head_.dc[scan.dc[i]], symbol) || symbol > 15) return kBadCode;
    // Wraps like the 16 bits that a coefficient has.
    last_dc_[component] = static_cast<int16_t>(last_dc_[component] + extend(bits_.take(symbol), symbol));
    coefficients[0] = last_dc_[component] * steps[0];
    for (std::size_t k = 1; k < 64; ++k) {
      bits_.fill();
      if (!bits_.code(head_.ac[scan.ac[i]], symbol)) return kBadCode;
      const int size = symbol & 15;
      const std::size_t run = symbol >> 4;
      if (size == 0) {
        if (run != 15) break;
        k += 15;
        continue;
      }
      k += run;
      if (k > 63) return kBadCode;
      coefficients[kZigzag[k]] = extend(bits_.take(size), size) * steps[k];
    }
    put_block(head_, component, x, y, coefficients, out_);
    return kNone;
  }

  Head& head_;
  uint16_t* out_;
  BitReader bits_;
  std::array<int32_t, 4> last_dc_{};
};

// --- Progressive streams (annex G): coefficients gather over any number of scans ---

class ProgressiveDecoder {
 public:
  explicit ProgressiveDecoder(Head& head)
      : head_(head), across_((head.shape.columns + 7) / 8), down_((head.shape.rows + 7) / 8) {
    coefficients_.resize(std::size_t{across_} * down_ * 64 * head.shape.components);
  }

  Fault scan() {
    const Scan& scan = head_.scan;
    const bool dc = scan.start == 0;
    if (scan.end > 63 || scan.start > scan.end || scan.low > 13) return kBadMarker;
    if (dc ? scan.end != 0 : scan.count != 1) return kBadMarker;
    for (uint32_t i = 0; i < scan.count; ++i) {
      const bool has_table =
          dc ? scan.high != 0 || head_.dc[scan.dc[i]].valid() : head_.ac[scan.ac[i]].valid();
      if (!has_table) return kBadTable;
    }
    BitReader bits(head_.position(), head_.left());
    last_dc_.fill(0);
    end_of_band_ = 0;
    const uint32_t units = across_ * down_;
    for (uint32_t unit = 0; unit < units; ++unit) {
      if (head_.restart_interval != 0 && unit != 0 && unit % head_.restart_interval == 0) {
        if (!bits.restart()) return kShort;
        last_dc_.fill(0);
        end_of_band_ = 0;
      }
      for (uint32_t i = 0; i < scan.count; ++i) {
        int16_t* block = at(scan.component[i], unit);
        Fault fault = kNone;
        if (dc) {
          fault = scan.high == 0 ? first_dc(bits, i, block) : refine_dc(bits, block);
        } else {
          fault = scan.high == 0 ? first_ac(bits, block) : refine_ac(bits, block);
        }
        if (fault != kNone) return fault;
      }
      if (bits.overrun()) return kShort;
    }
    head_.continue_at(bits.position());
    return kNone;
  }

  Fault finish(uint16_t* out) {
    for (uint32_t c = 0; c < head_.shape.components; ++c) {
      const auto& steps = head_.quantisation[head_.components[c].quantisation];
      if (steps[0] == 0) return kBadTable;
      for (uint32_t y = 0; y < down_; ++y) {
        for (uint32_t x = 0; x < across_; ++x) {
          const int16_t* from = at(c, y * across_ + x);
          Block block{};
          for (std::size_t k = 0; k < 64; ++k) block[kZigzag[k]] = from[k] * steps[k];
          put_block(head_, c, x, y, block, out);
        }
      }
    }
    return kNone;
  }

 private:
  // In zigzag order.
  int16_t* at(uint32_t component, uint32_t unit) {
    return coefficients_.data() + (std::size_t{component} * across_ * down_ + unit) * 64;
  }
  int16_t scaled(int32_t value) const { return static_cast<int16_t>(value * (1 << head_.scan.low)); }

  Fault first_dc(BitReader& bits, uint32_t i, int16_t* block) {
    uint8_t n = 0;
    bits.fill();
    if (!bits.code(head_.dc[head_.scan.dc[i]], n) || n > 15) return kBadCode;
    int32_t& last = last_dc_[head_.scan.component[i]];
    last = static_cast<int16_t>(last + extend(bits.take(n), n));
    block[0] = scaled(last);
    return kNone;
  }
  Fault refine_dc(BitReader& bits, int16_t* block) {
    bits.fill();
    if (bits.take(1) != 0) block[0] = static_cast<int16_t>(block[0] | (1 << head_.scan.low));
    return kNone;
  }
  Fault first_ac(BitReader& bits, int16_t* block) {
    if (end_of_band_ != 0) {
      --end_of_band_;
      return kNone;
    }
    for (uint32_t k = head_.scan.start; k <= head_.scan.end; ++k) {
      uint8_t symbol = 0;
      bits.fill();
      if (!bits.code(head_.ac[head_.scan.ac[0]], symbol)) return kBadCode;
      const int n = symbol & 15;
      const int run = symbol >> 4;
      if (n == 0 && run != 15) {
        end_of_band_ = (1U << run) - 1 + bits.take(run);
        break;
      }
      k += static_cast<uint32_t>(run);
      if (n == 0) continue;
      if (k > head_.scan.end) return kBadCode;
      block[k] = scaled(extend(bits.take(n), n));
    }
    return kNone;
  }
  // One more bit of a coefficient that is known not to be zero.
  void refine(BitReader& bits, int16_t& value) const {
    const int step = 1 << head_.scan.low;
    bits.fill();
    if (bits.take(1) == 0 || (std::abs(value) & step) != 0) return;
    value = static_cast<int16_t>(value < 0 ? value - step : value + step);
  }
  Fault refine_ac(BitReader& bits, int16_t* block) {
    uint32_t k = head_.scan.start;
    const uint32_t end = head_.scan.end;
    for (; end_of_band_ == 0 && k <= end; ++k) {
      uint8_t symbol = 0;
      bits.fill();
      if (!bits.code(head_.ac[head_.scan.ac[0]], symbol) || (symbol & 15) > 1) return kBadCode;
      int zeros = symbol >> 4;
      int32_t fresh = 0;
      if ((symbol & 15) != 0) {
        fresh = bits.take(1) != 0 ? 1 : -1;
      } else if (zeros != 15) {
        end_of_band_ = (1U << zeros) + bits.take(zeros);
        break;
      }
      // Zeros are counted; what is not zero is refined on the way.
      for (; k <= end; ++k) {
        if (block[k] != 0) {
          refine(bits, block[k]);
        } else if (--zeros < 0) {
          break;
        }
      }
      if (fresh != 0) {
        if (k > end) return kBadCode;
        block[k] = scaled(fresh);
      }
    }
    if (end_of_band_ != 0) {
      for (; k <= end; ++k) {
        if (block[k] != 0) refine(bits, block[k]);
      }
      --end_of_band_;
    }
    return kNone;
  }

  Head& head_;
  const uint32_t across_;
  const uint32_t down_;
  std::vector<int16_t> coefficients_;
  std::array<int32_t, 4> last_dc_{};
  uint32_t end_of_band_ = 0;
};

// --- Encoding ---

// Row u, column x: the weight of sample x in coefficient u.
const std::array<float, 64>& cosines() {
  static const std::array<float, 64> table = [] {
    std::array<float, 64> made;
    for (std::size_t u = 0; u < 8; ++u) {
      const double scale = u == 0 ? std::sqrt(0.125) : 0.5;
      for (std::size_t x = 0; x < 8; ++x) {
        made[8 * u + x] = static_cast<float>(
            scale * std::cos(static_cast<double>((2 * x + 1) * u) * 3.14159265358979323846 / 16));
      }
    }
    return made;
  }();
  return table;
}

// Samples of a block, its middle taken off, into coefficients in the order of rows.
void forward(const std::array<float, 64>& samples, std::array<float, 64>& coefficients) {
  const auto& weights = cosines();
  std::array<float, 64> rows;
  for (std::size_t y = 0; y < 8; ++y) {
    for (std::size_t u = 0; u < 8; ++u) {
      float sum = 0;
      for (std::size_t x = 0; x < 8; ++x) sum += samples[8 * y + x] * weights[8 * u + x];
      rows[8 * y + u] = sum;
    }
  }
  for (std::size_t v = 0; v < 8; ++v) {
    for (std::size_t u = 0; u < 8; ++u) {
      float sum = 0;
      for (std::size_t y = 0; y < 8; ++y) sum += rows[8 * y + u] * weights[8 * v + y];
      coefficients[8 * v + u] = sum;
    }
  }
}

class ExtendedEncoder {
 public:
  ExtendedEncoder(const Source& source, int factor) : source_(source) {
    for (std::size_t i = 0; i < 64; ++i) {
      steps_[i] = static_cast<uint8_t>(
          std::clamp((int64_t{kLuminance[kZigzag[i]]} * factor + 16) / 32, int64_t{1}, int64_t{255}));
    }
  }

  void run(std::vector<uint8_t>& out) {
    transform();
    std::array<uint32_t, 256> dc_counts{};
    std::array<uint32_t, 256> ac_counts{};
    walk([&](bool ac, uint32_t symbol, uint32_t, int) { ++(ac ? ac_counts : dc_counts)[symbol]; });
    HuffmanSpec dc;
    HuffmanSpec ac;
    best_table(dc_counts, dc);
    best_table(ac_counts, ac);
    head(out, dc, ac);
    HuffmanCodes codes[2];
    assign_codes(dc, codes[0]);
    assign_codes(ac, codes[1]);
    BitWriter bits(out);
    walk([&](bool is_ac, uint32_t symbol, uint32_t low, int n) {
      const HuffmanCodes& table = codes[is_ac ? 1 : 0];
      bits.put((static_cast<uint32_t>(table.code[symbol]) << n) | low, table.length[symbol] + n);
    });
    bits.flush();
    SegmentWriter{out}.marker(0xD9);
  }

 private:
  void head(std::vector<uint8_t>& out, const HuffmanSpec& dc, const HuffmanSpec& ac) const {
    SegmentWriter segment{out};
    segment.marker(0xD8);
    segment.marker(0xDB);
    segment.word(67);
    segment.byte(0);
    out.insert(out.end(), steps_.begin(), steps_.end());
    segment.marker(0xC1);
    segment.word(11);
    segment.byte(12);
    segment.word(source_.rows);
    segment.word(source_.columns);
    for (const uint32_t v : {1U, 1U, 0x11U, 0U}) segment.byte(v);
    segment.table(0, false, dc);
    segment.table(0, true, ac);
    segment.marker(0xDA);
    segment.word(8);
    for (const uint32_t v : {1U, 1U, 0U, 0U, 63U, 0U}) segment.byte(v);
  }

  // All coefficients, quantised, block by block in zigzag order.
  void transform() {
    const auto* samples = static_cast<const uint16_t*>(source_.samples);
    const uint32_t across = (source_.columns + 7) / 8;
    const uint32_t down = (source_.rows + 7) / 8;
    coefficients_.resize(std::size_t{across} * down * 64);
    int16_t* to = coefficients_.data();
    for (uint32_t by = 0; by < down; ++by) {
      for (uint32_t bx = 0; bx < across; ++bx, to += 64) {
        std::array<float, 64> block;
        std::array<float, 64> transformed;
        for (uint32_t i = 0; i < 64; ++i) {
          const std::size_t y = std::min(8 * by + i / 8, source_.rows - 1);
          const std::size_t x = std::min(8 * bx + i % 8, source_.columns - 1);
          block[i] = static_cast<float>(samples[y * source_.columns + x]) - kMiddle;
        }
        forward(block, transformed);
        for (std::size_t k = 0; k < 64; ++k) {
          to[k] = static_cast<int16_t>(std::lround(transformed[kZigzag[k]] / static_cast<float>(steps_[k])));
        }
      }
    }
  }

  // Every symbol with the bits behind it.
  template <typename Take>
  void walk(Take take) const {
    const auto emit = [&](bool ac, uint32_t run, int value) {
      const auto n = static_cast<int>(std::bit_width(static_cast<uint32_t>(value < 0 ? -value : value)));
      const auto low = static_cast<uint32_t>(value < 0 ? value - 1 : value) & ((1U << n) - 1);
      take(ac, (run << 4) | static_cast<uint32_t>(n), low, n);
    };
    int last = 0;
    for (std::size_t at = 0; at < coefficients_.size(); at += 64) {
      const int16_t* block = coefficients_.data() + at;
      emit(false, 0, block[0] - last);
      last = block[0];
      uint32_t run = 0;
      for (std::size_t k = 1; k < 64; ++k) {
        if (block[k] == 0) {
          ++run;
          continue;
        }
        for (; run > 15; run -= 16) take(true, 0xF0, 0, 0);
        emit(true, run, block[k]);
        run = 0;
      }
      if (run != 0) take(true, 0, 0, 0);
    }
  }

  const Source& source_;
  std::array<uint8_t, 64> steps_{};
  std::vector<int16_t> coefficients_;
};

}  // namespace

Fault decode_extended12(Head& head, void* out) {
  return ExtendedDecoder(head, static_cast<uint16_t*>(out)).run();
}

Fault decode_progressive12(Head& head, void* out) try {
  ProgressiveDecoder decoder(head);
  for (int scans = 0;; ++scans) {
    uint8_t marker = 0;
    if (Fault fault = head.next(marker); fault != kNone) return scans == 0 ? fault : kShort;
    if (marker == 0xD9) return scans == 0 ? kShort : decoder.finish(static_cast<uint16_t*>(out));
    if (marker != 0xDA) return kBadMarker;
    // Each scan costs the whole image, however few bytes it has.
    if (scans == kMaxScans) return kUnsupported;
    if (Fault fault = decoder.scan(); fault != kNone) return fault;
  }
} catch (const std::bad_alloc&) {
  return kMemory;
}

Fault encode_extended12(const Source& source, int factor, std::vector<uint8_t>& out) try {
  if (!source.wide || source.components != 1 || source.precision > 12) return kUnsupported;
  if (source.rows == 0 || source.columns == 0) return kUnsupported;
  if (source.rows > UINT16_MAX || source.columns > UINT16_MAX) return kTooLarge;
  out.clear();
  ExtendedEncoder(source, std::max(factor, 0)).run(out);
  return kNone;
} catch (const std::bad_alloc&) {
  return kMemory;
}

}  // namespace vx::jpeg
