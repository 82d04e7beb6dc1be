// Process 14: each sample is predicted from its neighbours, and the difference coded (annex H).
#include <algorithm>
#include <bit>
#include <new>

#include "pixel/jpeg_head.h"
#include "pixel/jpeg_strips.h"
#include "pixel/thread_share.h"

namespace vx::jpeg {
namespace {

// The sample that is predicted has a on its left, b above, c above a.
template <int kSelection>
int32_t predict(int32_t a, int32_t b, int32_t c) {
  switch (kSelection) {
    case 1:
      return a;
    case 2:
      return b;
    case 3:
      return c;
    case 4:
      return a + b - c;
    case 5:
      return a + ((b - c) >> 1);
    case 6:
      return b + ((a - c) >> 1);
    default:
      return (a + b) >> 1;
  }
}

// Code and difference in one look, where both together are short.
class DifferenceTable {
 public:
  explicit DifferenceTable(const HuffmanDecoder& codes) : codes_(codes) {
    for (uint32_t bits = 0; bits < entries_.size(); ++bits) {
      const HuffmanDecoder::Entry code = codes.look(bits >> (kBits - HuffmanDecoder::kLookBits));
      const int total = code.length + code.value;
      if (code.length == 0 || total > kBits) continue;
      const uint32_t low = (bits >> (kBits - total)) & ((1U << code.value) - 1);
      entries_[bits] = {static_cast<int16_t>(extend(low, code.value)), static_cast<uint8_t>(total)};
    }
  }
  // False if the bits are no code.
  bool next(BitReader& bits, int32_t& value) const {
    bits.fill();
    const Entry entry = entries_[bits.peek(kBits)];
    if (entry.length != 0) [[likely]] {
      bits.skip(entry.length);
      value = entry.value;
      return true;
    }
    uint8_t category = 0;
    if (!bits.code(codes_, category) || category > 16) return false;
    // 16 stands for a difference of 32768 and has no bits.
    value = category == 16 ? 32768 : extend(bits.take(category), category);
    return true;
  }

 private:
  static constexpr int kBits = 12;
  struct Entry {
    int16_t value;
    uint8_t length;  // 0: look at the code alone
  };
  std::array<Entry, 1U << kBits> entries_{};
  const HuffmanDecoder& codes_;
};

template <typename Sample>
class LosslessDecoder {
 public:
  LosslessDecoder(Head& head, unsigned threads, Sample* out)
      : head_(head), threads_(threads), out_(out), stride_(head.shape.components) {}

  Fault run() {
    const Scan& scan = head_.scan;
    if (scan.start < 1 || scan.start > 7 || scan.low >= head_.shape.precision) return kUnsupported;
    for (uint32_t i = 0; i < scan.count; ++i) {
      if (!head_.dc[scan.dc[i]].valid()) return kBadTable;
    }
    tables_.reserve(scan.count);
    for (uint32_t i = 0; i < scan.count; ++i) tables_.emplace_back(head_.dc[scan.dc[i]]);
    const uint32_t columns = head_.shape.columns;
    // Only intervals of whole rows are allowed (H.1.1).
    if (head_.restart_interval % columns != 0) return kUnsupported;
    const uint32_t interval = head_.restart_interval / columns;
    if (interval == 0 || threads_ < 2) return one_by_one(interval);
    // Markers too few or too many: what comes of that is seen one by one.
    const std::size_t count = (head_.shape.rows + interval - 1) / interval;
    std::vector<const uint8_t*> begins;
    find_intervals(head_.position(), head_.position() + head_.left(), count + 1, begins);
    return begins.size() == count ? side_by_side(begins, interval) : one_by_one(interval);
  }

 private:
  Fault one_by_one(uint32_t interval) {
    BitReader bits(head_.position(), head_.left());
    const uint32_t rows = head_.shape.rows;
    if (interval == 0) interval = rows;
    for (uint32_t first = 0; first < rows; first += interval) {
      if (first != 0 && !bits.restart()) return kShort;
      if (Fault fault = decode_rows(bits, first, std::min(rows, first + interval)); fault != kNone)
        return fault;
    }
    head_.continue_at(bits.position());
    return kNone;
  }

  Fault side_by_side(const std::vector<const uint8_t*>& begins, uint32_t interval) {
    const uint8_t* const end = head_.position() + head_.left();
    const uint8_t* position = nullptr;
    std::vector<Fault> faults(begins.size(), kNone);
    run_parts(threads_, begins.size(), [&](std::size_t part) {
      BitReader bits(begins[part], static_cast<std::size_t>(end - begins[part]));
      const auto first = static_cast<uint32_t>(part) * interval;
      faults[part] = decode_rows(bits, first, std::min(head_.shape.rows, first + interval));
      if (part + 1 == begins.size()) position = bits.position();
    });
    for (const Fault fault : faults) {
      if (fault != kNone) return fault;
    }
    head_.continue_at(position);
    return kNone;
  }

  // An interval.
  Fault decode_rows(BitReader& bits, uint32_t first, uint32_t last) {
    for (uint32_t y = first; y < last; ++y) {
      if (Fault fault = row(bits, y, y == first); fault != kNone) return fault;
      if (bits.overrun()) return kShort;
    }
    return kNone;
  }

  Fault row(BitReader& bits, uint32_t y, bool first) {
    if (first) return fill_row<1>(bits, y, true);
    switch (head_.scan.start) {
      case 1:
        return fill_row<1>(bits, y, false);
      case 2:
        return fill_row<2>(bits, y, false);
      case 3:
        return fill_row<3>(bits, y, false);
      case 4:
        return fill_row<4>(bits, y, false);
      case 5:
        return fill_row<5>(bits, y, false);
      case 6:
        return fill_row<6>(bits, y, false);
      default:
        return fill_row<7>(bits, y, false);
    }
  }

  template <int kSelection>
  Fault fill_row(BitReader& bits, uint32_t y, bool first) {
    const Scan& scan = head_.scan;
    const std::size_t width = std::size_t{head_.shape.columns} * stride_;
    Sample* const line = out_ + y * width;
    const Sample* const above = line - (first ? 0 : width);
    const uint32_t shift = scan.low;
    const uint32_t mask = shift == 0 ? 0xFFFFU : 0xFFFFU >> shift;
    const int32_t origin = 1 << (head_.shape.precision - shift - 1);
    for (std::size_t x = 0; x < width; x += stride_) {
      for (uint32_t i = 0; i < scan.count; ++i) {
        const std::size_t at = x + scan.component[i];
        int32_t value = 0;
        if (!tables_[i].next(bits, value)) return bits.overrun() ? kShort : kBadCode;
        int32_t prediction = origin;
        if (x != 0) {
          const int32_t a = line[at - stride_] >> shift;
          if constexpr (kSelection == 1) {
            prediction = a;
          } else {
            prediction = predict<kSelection>(a, above[at] >> shift, above[at - stride_] >> shift);
          }
        } else if (!first) {
          prediction = above[at] >> shift;
        }
        line[at] = static_cast<Sample>((static_cast<uint32_t>(prediction + value) & mask) << shift);
      }
    }
    return kNone;
  }

  Head& head_;
  const unsigned threads_;
  Sample* out_;
  std::vector<DifferenceTable> tables_;  // of the components of the scan
  const std::size_t stride_;
};

// The same walk twice: to count, and to write.
template <typename Sample, typename Take>
void each_difference(const Source& source, Take take) {
  const auto* line = static_cast<const Sample*>(source.samples);
  const std::size_t stride = source.components;
  const std::size_t width = source.columns * stride;
  const int32_t origin = 1 << (source.precision - 1);
  for (uint32_t y = 0; y < source.rows; ++y, line += width) {
    for (std::size_t at = 0; at < stride; ++at) take(line[at] - (y == 0 ? origin : (line - width)[at]));
    for (std::size_t at = stride; at < width; ++at) take(line[at] - line[at - stride]);
  }
}

// Differences count modulo 65536.
int category_of(int32_t& value) {
  const auto narrow = static_cast<int16_t>(value);
  value = narrow;
  if (narrow == INT16_MIN) return 16;
  return static_cast<int>(std::bit_width(static_cast<uint32_t>(narrow < 0 ? -narrow : narrow)));
}

template <typename Sample>
void write_scan(const Source& source, std::vector<uint8_t>& out) {
  std::array<uint32_t, 256> counts{};
  each_difference<Sample>(source,
                          [&](int32_t value) { ++counts[static_cast<std::size_t>(category_of(value))]; });
  HuffmanSpec spec;
  best_table(counts, spec);
  HuffmanCodes codes;
  assign_codes(spec, codes);
  SegmentWriter head{out};
  head.marker(0xD8);
  head.marker(0xC3);
  head.word(8 + 3 * source.components);
  head.byte(source.precision);
  head.word(source.rows);
  head.word(source.columns);
  head.byte(source.components);
  for (uint32_t i = 1; i <= source.components; ++i) {
    head.byte(i);
    head.byte(0x11);
    head.byte(0);
  }
  head.table(0, false, spec);
  head.marker(0xDA);
  head.word(6 + 2 * source.components);
  head.byte(source.components);
  for (uint32_t i = 1; i <= source.components; ++i) {
    head.byte(i);
    head.byte(0);
  }
  head.byte(1);
  head.byte(0);
  head.byte(0);
  BitWriter bits(out);
  each_difference<Sample>(source, [&](int32_t value) {
    const int n = category_of(value);
    const auto at = static_cast<std::size_t>(n);
    if (n == 16) return bits.put(codes.code[at], codes.length[at]);
    const auto low = static_cast<uint32_t>(value < 0 ? value - 1 : value) & ((1U << n) - 1);
    bits.put((static_cast<uint32_t>(codes.code[at]) << n) | low, codes.length[at] + n);
  });
  bits.flush();
  head.marker(0xD9);
}

}  // namespace

Fault decode_lossless(Head& head, bool wide, unsigned threads, void* out) try {
  if (wide) return LosslessDecoder(head, threads, static_cast<uint16_t*>(out)).run();
  return LosslessDecoder(head, threads, static_cast<uint8_t*>(out)).run();
} catch (const std::bad_alloc&) {
  return kMemory;
}

Fault encode_lossless(const Source& source, std::vector<uint8_t>& out) try {
  if (source.precision < 2 || source.precision > 16 || (!source.wide && source.precision > 8))
    return kUnsupported;
  if (source.rows == 0 || source.columns == 0 || source.components == 0) return kUnsupported;
  if (source.rows > UINT16_MAX || source.columns > UINT16_MAX || source.components > 4) return kTooLarge;
  out.clear();
  const std::size_t samples = std::size_t{source.rows} * source.columns * source.components;
  out.reserve(samples * (source.wide ? 2 : 1) * 3 / 4 + 1024);
  if (source.wide) {
    write_scan<uint16_t>(source, out);
  } else {
    write_scan<uint8_t>(source, out);
  }
  return kNone;
} catch (const std::bad_alloc&) {
  return kMemory;
}

}  // namespace vx::jpeg
