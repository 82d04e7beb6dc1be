// Streams of JPEG with restart markers: whatever they hold, several threads make of them what one makes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "pixel/codec.h"
#include "pixel/jpeg_huffman.h"
#include "pixel/jpeg_strips.h"
#include "support.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct Case {
  const char* photometric;
  uint32_t rows, columns;
  uint32_t across, down;  // sampling factors of the first component
  uint32_t interval;
  bool cut;  // into strips
  bool lossless = false;

  uint32_t components() const { return std::strncmp(photometric, "MONO", 4) == 0 ? 1 : 3; }
  // Units of the scan in all, and blocks of each.
  uint32_t units() const {
    if (lossless) return rows * columns;
    const uint32_t wide = components() == 1 ? 8 : 8 * across;
    const uint32_t high = components() == 1 ? 8 : 8 * down;
    return (columns + wide - 1) / wide * ((rows + high - 1) / high);
  }
  uint32_t blocks() const { return lossless || components() == 1 ? components() : across * down + 2; }
  vx::ImageAttributes image() const {
    vx::ImageAttributes image;
    image.TransferSyntax = lossless ? JPEG_LOSSLESS_HIER_14 : JPEG_BASELINE;
    std::strcpy(image.PhotometricInterpretation, photometric);
    image.Rows = rows;
    image.Columns = columns;
    image.SamplesPerPixel = components();
    image.BitsAllocated = image.BitsStored = lossless ? 16 : 8;
    const bool packed = std::strcmp(photometric, "YBR_FULL_422") == 0;
    image.FrameSize = rows * columns * (packed ? 2 : components()) * (lossless ? 2 : 1);
    return image;
  }
};

// Differences at random: blocks of one colour each, or samples, then the same in each interval.
Bytes stream_of(const Case& c) {
  Bytes out;
  vx::jpeg::SegmentWriter head{out};
  head.marker(0xD8);
  head.marker(0xDB);
  head.word(67);
  head.byte(0);
  for (int i = 0; i < 64; ++i) head.byte(12);
  head.marker(c.lossless ? 0xC3 : 0xC0);
  head.word(8 + 3 * c.components());
  head.byte(c.lossless ? 16 : 8);
  head.word(c.rows);
  head.word(c.columns);
  head.byte(c.components());
  for (uint32_t i = 1; i <= c.components(); ++i) {
    head.byte(i);
    head.byte(i == 1 ? c.across << 4 | c.down : 0x11);
    head.byte(0);
  }
  vx::jpeg::HuffmanSpec differences, ends;
  differences.counts[4] = 12;
  for (uint8_t i = 0; i < 12; ++i) differences.values[i] = i;
  ends.counts[1] = 1;
  head.table(0, false, differences);
  head.table(0, true, ends);
  head.marker(0xDD);
  head.word(4);
  head.word(c.interval);
  head.marker(0xDA);
  head.word(6 + 2 * c.components());
  head.byte(c.components());
  for (uint32_t i = 1; i <= c.components(); ++i) {
    head.byte(i);
    head.byte(0);
  }
  head.byte(c.lossless ? 4 : 0);
  head.byte(c.lossless ? 0 : 63);
  head.byte(0);
  vx::jpeg::BitWriter bits(out);
  uint32_t state = c.rows;
  for (uint32_t unit = 0; unit < c.units(); ++unit) {
    if (c.interval != 0 && unit != 0 && unit % c.interval == 0) {
      bits.flush();
      head.marker(static_cast<uint8_t>(0xD0 + (unit / c.interval - 1) % 8));
      if (c.lossless) state = c.rows;
    }
    for (uint32_t block = 0; block < c.blocks(); ++block) {
      state = state * 1664525U + 1013904223U;
      const auto category = static_cast<int>(state >> 29);
      bits.put(static_cast<uint32_t>(category), 4);
      if (category != 0) bits.put((state >> 8) & ((1U << category) - 1), category);
      if (!c.lossless) bits.put(0, 1);
    }
  }
  bits.flush();
  head.marker(0xD9);
  return out;
}

class JpegStrips : public support::LibraryTest {
 protected:
  static int decode(const vx::ImageAttributes& image, const Bytes& stream, vx::DecodeSettings settings,
                    Bytes& frame, uint32_t& missing) {
    vx::CodecResult result;
    frame.assign(image.FrameSize, 0xAA);
    const int status = vx::codec_for(image.TransferSyntax)
                           ->decompress(image, settings, stream.data(), stream.size(), frame.data(), result);
    missing = result.missing_bytes;
    // A frame that is refused is nobody's.
    if (status != vx::kCodecDone && status != vx::kCodecDataShort && status != vx::kCodecBadEnd)
      frame.clear();
    return status;
  }
  static int decode_both(const vx::ImageAttributes& image, const Bytes& stream, Bytes& frame) {
    vx::DecodeSettings settings;
    settings.to_rgb = image.FrameSize == image.Rows * image.Columns * 3;
    uint32_t missing = 0, missing_of_several = 0;
    Bytes several;
    const int status = decode(image, stream, settings, frame, missing);
    settings.threads = 3;
    EXPECT_EQ(decode(image, stream, settings, several, missing_of_several), status);
    EXPECT_TRUE(several == frame);
    EXPECT_EQ(missing_of_several, missing);
    return status;
  }
};

constexpr Case kCases[] = {
    {"MONOCHROME2", 250, 90, 1, 1, 12, true},  // a row of units
    {"MONOCHROME2", 250, 90, 1, 1, 36, true},
    {"MONOCHROME2", 250, 90, 1, 1, 5, true},  // no rows
    {"MONOCHROME2", 250, 90, 2, 2, 4, true},
    {"MONOCHROME2", 250, 90, 1, 1, 0, false},
    {"MONOCHROME2", 250, 90, 1, 1, 371, false},  // the numbers do not come round
    {"RGB", 250, 90, 1, 1, 12, true},
    {"YBR_FULL", 250, 90, 2, 1, 6, true},
    {"YBR_FULL_422", 250, 90, 2, 1, 3, true},
    {"YBR_FULL", 700, 90, 2, 2, 6, true},  // colour is smoothed over the borders
    {"RGB", 700, 90, 1, 2, 6, true},
    {"YBR_FULL_422", 700, 90, 2, 2, 3, true},
    {"YBR_FULL", 250, 90, 2, 2, 6, false},  // the borders would be most of it
    {"MONOCHROME2", 33, 40, 1, 1, 40, true, true},
    {"MONOCHROME2", 33, 40, 1, 1, 160, true, true},
    {"RGB", 33, 40, 1, 1, 80, true, true},
};

TEST_F(JpegStrips, ThreadsChangeNothing) {
  for (const Case& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.photometric << ' ' << c.across << 'x' << c.down << ", "
                                    << c.interval);
    const vx::ImageAttributes image = c.image();
    const Bytes stream = stream_of(c);
    Bytes frame;
    ASSERT_EQ(decode_both(image, stream, frame), vx::kCodecDone);
    vx::jpeg::Strips strips;
    if (!c.lossless) {
      EXPECT_EQ(vx::jpeg::find_strips(stream.data(), stream.size(), 12, strips), c.cut);
    }
    if (c.lossless) {  // nothing is taken from what stands in front of a marker
      const std::size_t size = std::size_t{c.interval} * c.components() * 2;
      const Bytes first(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(size));
      EXPECT_TRUE(std::equal(first.begin(), first.end(), frame.begin() + static_cast<std::ptrdiff_t>(size)));
    }
    if (!c.cut) continue;
    // Broken at places all over it: each is told of alike, and what is left of the image is the same.
    int broken = 0;
    for (std::size_t at = 2; at < stream.size(); at += stream.size() / 60 + 1) {
      const Bytes cut(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(at));
      broken += decode_both(image, cut, frame) != vx::kCodecDone ? 1 : 0;
      for (const int change : {0x01, 0x80, 0xFF}) {
        Bytes changed = stream;
        changed[at] = static_cast<uint8_t>(changed[at] ^ change);
        broken += decode_both(image, changed, frame) != vx::kCodecDone ? 1 : 0;
      }
    }
    EXPECT_GT(broken, 60);
    // Markers that are missing, twice there, and out of their order.
    for (std::size_t at = stream.size() / 3; at + 2 < stream.size(); ++at) {
      if (stream[at] != 0xFF || stream[at + 1] < 0xD0 || stream[at + 1] > 0xD7) continue;
      Bytes less = stream, more = stream, other = stream;
      const auto marker = static_cast<std::ptrdiff_t>(at);
      less.erase(less.begin() + marker, less.begin() + marker + 2);
      more.insert(more.begin() + marker, stream.begin() + marker, stream.begin() + marker + 2);
      other[at + 1] ^= 1;
      for (const Bytes& changed : {less, more, other}) decode_both(image, changed, frame);
      break;
    }
  }
}

}  // namespace
