// Every bit of a frame comes back from a lossless codec, whatever stands above Bits Stored; or the codec says
// that it does not take it.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "pixel/codec.h"
#include "pixel/pixels.h"
#include "support.h"

namespace {

using namespace vx;

constexpr VX_TRANSFER_SYNTAX kLossless[] = {
    JPEG_LOSSLESS_HIER_14, JPEG_LS_LOSSLESS, JPEG_2000_LOSSLESS_ONLY,   HTJ2K_LOSSLESS,
    HTJ2K_LOSSLESS_RPCL,   JPEG_XL_LOSSLESS, ENCAPSULATED_UNCOMPRESSED, DEFLATED_IMAGE_FRAMES};

// What a sample has above Bits Stored.
enum class Above { Nothing, Sign, One, Anything };

class Lossless : public support::LibraryTest {
 protected:
  static std::vector<uint8_t> samples(const ImageAttributes& image, Above above, uint32_t seed) {
    std::vector<uint8_t> frame(image.FrameSize);
    const uint32_t width = image.sample_bytes();
    for (std::size_t i = 0; i + width <= frame.size(); i += width) {
      seed = seed * 1664525U + 1013904223U;
      const uint32_t mask = image.BitsStored == 32 ? ~0U : (1U << image.BitsStored) - 1;
      uint32_t value = (seed >> 4) & mask;
      if (above == Above::Sign && (value & (mask / 2 + 1)) != 0) value |= ~mask;
      if (above == Above::One && i == width * 5) value |= mask + 1;
      if (above == Above::Anything) value = seed;
      std::memcpy(frame.data() + i, &value, width);
    }
    return frame;
  }
  // True if it was taken.
  bool comes_back(ImageAttributes image, Above above) {
    const Codec& codec = *codec_for(image.TransferSyntax);
    if (!codec.load()) return false;
    const std::vector<uint8_t> frame = samples(image, above, ++seed_);
    std::vector<uint8_t> stream;
    if (codec.compress(image, {}, frame.data(), stream) != kCodecDone) return false;
    std::vector<uint8_t> back(frame.size());
    CodecResult result;
    EXPECT_EQ(codec.decompress(image, {}, stream.data(), stream.size(), back.data(), result), kCodecDone);
    EXPECT_EQ(back, frame);
    return true;
  }

  uint32_t seed_ = 7;
};

TEST_F(Lossless, EveryBitComesBack) {
  for (const VX_TRANSFER_SYNTAX syntax : kLossless) {
    int taken = 0;
    for (const uint32_t allocated : {8U, 16U}) {
      for (uint32_t stored = 2; stored <= allocated; ++stored) {
        for (const uint32_t is_signed : {0U, 1U}) {
          for (const uint32_t colours : {1U, 3U}) {
            ImageAttributes image;
            image.TransferSyntax = syntax;
            std::strcpy(image.PhotometricInterpretation, colours == 1 ? "MONOCHROME2" : "RGB");
            image.Rows = 5;
            image.Columns = 7;
            image.BitsAllocated = allocated;
            image.BitsStored = stored;
            image.SamplesPerPixel = colours;
            image.PixelRepresentation = is_signed;
            image.FrameSize = image.Rows * image.Columns * colours * (allocated / 8);
            for (const Above above : {Above::Nothing, Above::Sign, Above::One, Above::Anything}) {
              SCOPED_TRACE(testing::Message() << syntax << ": " << stored << " of " << allocated
                                              << (is_signed != 0 ? " signed, " : ", ") << colours
                                              << ", above " << static_cast<int>(above));
              taken += comes_back(image, above) ? 1 : 0;
            }
          }
        }
      }
    }
    EXPECT_TRUE(taken > 100 || !codec_for(syntax)->load()) << syntax << " takes " << taken;
  }
}

}  // namespace
