// Code streams of JPEG 2000 and its high-throughput form: what their heads say, threads, and what is refused.
#include "pixel/codec.h"
#include "pixels.h"

namespace {

using namespace pixels;

using Bytes = std::vector<uint8_t>;

vx::ImageAttributes grey(VX_TRANSFER_SYNTAX syntax, uint32_t rows, uint32_t columns) {
  vx::ImageAttributes image;
  image.TransferSyntax = syntax;
  std::strcpy(image.PhotometricInterpretation, "MONOCHROME2");
  image.Rows = rows;
  image.Columns = columns;
  image.BitsAllocated = 16;
  image.BitsStored = 12;
  image.SamplesPerPixel = 1;
  image.FrameSize = rows * columns * 2;
  return image;
}

Bytes pixels_of(const vx::ImageAttributes& image) {
  const std::string made = picture({.rows = static_cast<int>(image.Rows),
                                    .columns = static_cast<int>(image.Columns),
                                    .allocated = 16,
                                    .stored = static_cast<int>(image.BitsStored)},
                                   7);
  return {made.begin(), made.end()};
}

Bytes compressed(const vx::ImageAttributes& image, const vx::CodecSettings& settings = {}) {
  Bytes stream;
  EXPECT_EQ(vx::codec_for(image.TransferSyntax)->compress(image, settings, pixels_of(image).data(), stream),
            vx::kCodecDone);
  return stream;
}

int decompress(const vx::ImageAttributes& image, const Bytes& stream, Bytes& frame, unsigned threads = 1) {
  vx::CodecResult result;
  frame.assign(image.FrameSize, 0);
  vx::DecodeSettings settings;
  settings.threads = threads;
  return vx::codec_for(image.TransferSyntax)
      ->decompress(image, settings, stream.data(), stream.size(), frame.data(), result);
}

uint32_t number(const Bytes& bytes, std::size_t at, std::size_t width) {
  uint32_t value = 0;
  for (std::size_t i = 0; i < width; ++i) value = value << 8 | bytes[at + i];
  return value;
}

// Where the content of a segment of the head begins, behind its length; 0 if there is none.
std::size_t segment(const Bytes& stream, uint32_t marker) {
  for (std::size_t at = 2; at + 4 <= stream.size() && number(stream, at, 2) != 0xFF90;
       at += 2 + number(stream, at + 2, 2)) {
    if (number(stream, at, 2) == marker) return at + 4;
  }
  return 0;
}

// Bits 14 of the capabilities and a CAP segment; by resolution; a table of the one tile part; and so many
// halvings that 64 x 64 are reached, but none of a single sample.
TEST(HighThroughput, HeadsKeepToTheTransferSyntax) {
  struct Case {
    uint32_t rows, columns, halvings;
  };
  for (const Case& c :
       {Case{1, 1, 0}, {2, 1, 1}, {5, 7, 3}, {64, 64, 5}, {512, 300, 5}, {3, 2049, 6}, {8200, 5, 8}}) {
    const vx::ImageAttributes image = grey(HTJ2K_LOSSLESS_RPCL, c.rows, c.columns);
    const Bytes stream = compressed(image);
    EXPECT_EQ(number(stream, segment(stream, 0xFF51), 2) & 0x4000, 0x4000U);
    EXPECT_NE(segment(stream, 0xFF50), 0U);
    const std::size_t coding = segment(stream, 0xFF52);
    EXPECT_EQ(stream[coding + 1], 2) << "resolution, position, component, layer";
    EXPECT_EQ(stream[coding + 5], c.halvings) << c.rows << 'x' << c.columns;
    EXPECT_EQ(stream[coding + 9], 1) << "without loss";
    const std::size_t lengths = segment(stream, 0xFF55);
    ASSERT_NE(lengths, 0U);
    EXPECT_EQ(number(stream, lengths + 7, 2), 0xFF90U) << "the tile stands behind its table";
    EXPECT_EQ(number(stream, lengths + 3, 4), stream.size() - 2 - (lengths + 7)) << "all but its end";
    Bytes back;
    ASSERT_EQ(decompress(image, stream, back), vx::kCodecDone);
    EXPECT_EQ(back, pixels_of(image));
  }
}

// The loss grows, and the stream shrinks, with each step down.
TEST(HighThroughput, QualityIsALoss) {
  const vx::ImageAttributes image = grey(HTJ2K, 65, 66);
  const Bytes pixels = pixels_of(image);
  std::size_t size = compressed(grey(HTJ2K_LOSSLESS, 65, 66)).size();
  int worst = 0;
  for (const int quality : {90, 60, 30, 1}) {
    vx::CodecSettings settings;
    settings.lossless = false;
    settings.quality = quality;
    const Bytes stream = compressed(image, settings);
    EXPECT_LT(stream.size(), size) << quality;
    size = stream.size();
    Bytes back;
    ASSERT_EQ(decompress(image, stream, back), vx::kCodecDone);
    int apart = 0;
    for (std::size_t i = 0; i < pixels.size(); i += 2)
      apart = std::max(apart, std::abs(back[i] + 256 * back[i + 1] - pixels[i] - 256 * pixels[i + 1]));
    EXPECT_GT(apart, worst) << quality;
    worst = apart;
    if (quality == 90) {
      EXPECT_LE(apart, 4);
    }
  }
}

// Up to 24 bits in 32, each of them proved: noise, and what the transform makes the most of. What stands
// above them can not be kept.
TEST(HighThroughput, WideSamplesComeBack) {
  for (uint32_t stored = 9; stored <= 24; ++stored) {
    for (const uint32_t samples : {1U, 3U}) {
      vx::ImageAttributes image = grey(HTJ2K_LOSSLESS, 38, 40);
      image.BitsAllocated = 32;
      image.BitsStored = stored;
      image.SamplesPerPixel = samples;
      std::strcpy(image.PhotometricInterpretation, samples == 3 ? "RGB" : "MONOCHROME2");
      image.PixelRepresentation = stored % 2;
      image.FrameSize = 38 * 40 * 4 * samples;
      Bytes pixels(image.FrameSize);
      uint32_t state = stored;
      for (std::size_t i = 0; i < pixels.size() / 4; ++i) {
        state = state * 1664525U + 1013904223U;
        const std::size_t x = i / samples % 40, y = i / samples / 40;
        const uint32_t board = (x + y + i % samples) % 2 != 0 ? 0x80000000U : 0x7FFFFFFFU;
        const uint32_t sample = y < 10 ? state : board;
        const int shift = static_cast<int>(32 - stored);
        const uint32_t value = image.PixelRepresentation != 0
                                   ? static_cast<uint32_t>(static_cast<int32_t>(sample) >> shift)
                                   : sample >> shift;
        std::memcpy(&pixels[4 * i], &value, 4);
      }
      Bytes stream, back;
      ASSERT_EQ(vx::kHtj2kCodec.compress(image, {}, pixels.data(), stream), vx::kCodecDone);
      ASSERT_EQ(decompress(image, stream, back), vx::kCodecDone);
      EXPECT_TRUE(back == pixels) << stored << " bits, " << samples;
      pixels[3] = 0x55;
      EXPECT_EQ(vx::kHtj2kCodec.compress(image, {}, pixels.data(), stream), vx::kCodecHighBits);
    }
  }
}

TEST(Jpeg2000, ThreadsChangeNothing) {
  const vx::ImageAttributes image = grey(JPEG_2000_LOSSLESS_ONLY, 300, 260);
  vx::CodecSettings settings;
  const Bytes stream = compressed(image, settings);
  settings.threads = 3;
  EXPECT_EQ(compressed(image, settings), stream);
  Bytes back;
  ASSERT_EQ(decompress(image, stream, back, 3), vx::kCodecDone);
  EXPECT_EQ(back, pixels_of(image));
}

// Multi-component: a frame with a stream of its own is one of JPEG 2000; what changes the samples behind the
// decoder's back, and what holds several frames, is refused by name.
TEST(Jpeg2000, ExtensionsAndCollectionsAreRefused) {
  vx::ImageAttributes image = grey(JPEG_2000_LOSSLESS_ONLY, 9, 10);
  const Bytes stream = compressed(image);
  Bytes back;
  for (const VX_TRANSFER_SYNTAX syntax :
       {JPEG_2000_LOSSLESS_ONLY, JPEG_2000_MC_LOSSLESS_ONLY, JPEG_2000_MC}) {
    image.TransferSyntax = syntax;
    ASSERT_EQ(decompress(image, stream, back), vx::kCodecDone);
    EXPECT_EQ(back, pixels_of(image));
    for (const int marker : {0x72, 0x74, 0x75, 0x77, 0x79}) {
      Bytes extended = stream;
      const uint8_t added[] = {0xFF, static_cast<uint8_t>(marker), 0, 4, 0, 0};
      extended.insert(extended.begin() + static_cast<long>(segment(stream, 0xFF52)) - 4, added, added + 6);
      EXPECT_EQ(decompress(image, extended, back), vx::kCodecExtensions);
    }
  }
  vx::ImageAttributes colour = grey(JPEG_2000_LOSSLESS_ONLY, 9, 10);
  colour.SamplesPerPixel = 3;
  colour.FrameSize *= 3;
  Bytes three;
  Bytes samples(colour.FrameSize, 1);
  ASSERT_EQ(vx::kJpeg2000Codec.compress(colour, {}, samples.data(), three), vx::kCodecDone);
  EXPECT_EQ(decompress(image, three, back), vx::kCodecCollection);
}

}  // namespace
