// Hostile streams: whatever is cut, changed or claimed ends in a status, soon and in little memory.
#include <sys/resource.h>

#include <chrono>
#include <memory>

#include "pixel/codec.h"
#include "pixel/jpegxl.h"
#include "pixel/rle.h"
#include "pixels.h"

namespace {

using namespace pixels;

vx::ImageAttributes attributes_of(VX_TRANSFER_SYNTAX syntax, const Image& image) {
  vx::ImageAttributes made;
  made.TransferSyntax = syntax;
  image.photometric.copy(made.PhotometricInterpretation, 20);
  made.Rows = static_cast<uint32_t>(image.rows);
  made.Columns = static_cast<uint32_t>(image.columns);
  made.BitsAllocated = static_cast<uint32_t>(image.allocated);
  made.BitsStored = static_cast<uint32_t>(image.stored);
  made.SamplesPerPixel = static_cast<uint32_t>(image.samples);
  made.PlanarConfiguration = static_cast<uint32_t>(image.planar);
  made.PixelRepresentation = static_cast<uint32_t>(image.is_signed);
  made.FrameSize = static_cast<uint32_t>(image.frame_size());
  return made;
}

// Of the process; a sanitizer's own memory tells nothing.
long peak_kib() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return 0;
#endif
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

// Decodes into a frame with a guard behind it, and keeps the longest time.
class Victim {
 public:
  Victim(VX_TRANSFER_SYNTAX syntax, const Image& image)
      : image_(attributes_of(syntax, image)), frame_(image_.FrameSize + kGuard.size()) {}

  std::string compress(const std::string& pixels) {
    const auto* from = reinterpret_cast<const uint8_t*>(pixels.data());
    std::vector<uint8_t> out;
    if (image_.TransferSyntax == RLE) {
      uint32_t size = 0;
      out.resize(vx::rle_bound(image_));
      EXPECT_TRUE(vx::rle_encode(image_, from, 1, out.data(), size));
      std::vector<uint8_t> shared(out.size());
      uint32_t shared_size = 0;
      EXPECT_TRUE(vx::rle_encode(image_, from, 3, shared.data(), shared_size));
      out.resize(size);
      shared.resize(shared_size);
      EXPECT_EQ(out, shared);
    } else if (image_.TransferSyntax == JPEG_XL_RECOMPRESSION) {
      std::vector<uint8_t> jpeg;
      EXPECT_EQ(vx::kJpegCodec.compress(image_, {}, from, jpeg), vx::kCodecDone);
      EXPECT_EQ(vx::jpegxl::from_jpeg(jpeg.data(), jpeg.size(), 1, out), vx::kCodecDone);
    } else {
      const vx::CodecSettings settings{.lossless = image_.TransferSyntax != JPEG_XL};
      EXPECT_EQ(vx::codec_for(image_.TransferSyntax)->compress(image_, settings, from, out), vx::kCodecDone);
    }
    return {out.begin(), out.end()};
  }

  bool decode(const std::string& stream) {
    // A buffer of exactly the size: what reads beyond it is seen by the sanitizers.
    const auto data = std::make_unique<uint8_t[]>(stream.size());
    std::memcpy(data.get(), stream.data(), stream.size());
    std::memcpy(frame_.data() + image_.FrameSize, kGuard.data(), kGuard.size());
    const auto start = std::chrono::steady_clock::now();
    const bool done = image_.TransferSyntax == RLE ? decode_rle(data.get(), stream.size())
                                                   : decode_other(data.get(), stream.size());
    longest_ = std::max(longest_, std::chrono::steady_clock::now() - start);
    EXPECT_EQ(std::memcmp(frame_.data() + image_.FrameSize, kGuard.data(), kGuard.size()), 0);
    return done;
  }
  std::chrono::steady_clock::duration longest() const { return longest_; }

 private:
  static constexpr std::string_view kGuard = "nobody writes here";

  bool decode_rle(const uint8_t* data, std::size_t size) {
    vx::RleDecoder decoder;
    EXPECT_EQ(decoder.begin(image_, frame_.data()), nullptr);
    const bool side_by_side = decoder.take_whole(data, static_cast<uint32_t>(size), 2);
    const std::vector<uint8_t> shared = frame_;
    EXPECT_EQ(decoder.begin(image_, frame_.data()), nullptr);
    const bool done = decoder.take(data, static_cast<uint32_t>(size)) == nullptr && decoder.done();
    EXPECT_TRUE(!side_by_side || (done && frame_ == shared));
    return done;
  }
  bool decode_other(const uint8_t* data, std::size_t size) {
    const vx::Codec& codec = *vx::codec_for(image_.TransferSyntax);
    std::size_t from = 0;
    EXPECT_LE(codec.find_end(data, size, from), size);
    vx::CodecResult result;
    const int status = codec.decompress(image_, {}, data, size, frame_.data(), result);
    EXPECT_STRNE(vx::codec_text(status), "unknown error") << status;
    return status == vx::kCodecDone;
  }

  vx::ImageAttributes image_;
  std::vector<uint8_t> frame_;
  std::chrono::steady_clock::duration longest_{};
};

class Hostile : public PixelTest {};

struct Case {
  VX_TRANSFER_SYNTAX syntax;
  Image image;
};
const Image kGrey16{.rows = 5, .columns = 7, .allocated = 16, .stored = 12, .is_signed = 1};
const Image kPlain12{.rows = 8, .columns = 9, .allocated = 16, .stored = 12};
const Image kGrey8{.rows = 8, .columns = 9};
const Image kColour{.rows = 4, .columns = 6, .samples = 3, .photometric = "RGB"};
const Case kCases[] = {{RLE, kGrey16},
                       {RLE, kColour},
                       {JPEG_BASELINE, kGrey8},
                       {JPEG_BASELINE, kColour},
                       {JPEG_EXTENDED_2_4, kPlain12},
                       {JPEG_LOSSLESS_HIER_14, kGrey16},
                       {JPEG_LOSSLESS_HIER_14, kColour},
                       {JPEG_LS_LOSSLESS, kGrey16},
                       {JPEG_LS_LOSSLESS, kColour},
                       {JPEG_2000_LOSSLESS_ONLY, kGrey16},
                       {JPEG_2000_LOSSLESS_ONLY, kColour},
                       {HTJ2K_LOSSLESS, kGrey16},
                       {HTJ2K_LOSSLESS_RPCL, kColour},
                       {JPEG_XL_LOSSLESS, kGrey16},
                       {JPEG_XL_LOSSLESS, kColour},
                       {JPEG_XL, kColour},
                       {JPEG_XL_RECOMPRESSION, kColour}};

TEST_F(Hostile, EveryCutAndEveryByteOfEveryCodec) {
  const long before = peak_kib();
  for (const Case& c : kCases) {
    SCOPED_TRACE(testing::Message() << "syntax " << c.syntax << ' ' << c.image.photometric);
    Victim victim(c.syntax, c.image);
    const std::string good = victim.compress(picture(c.image, 8));
    ASSERT_TRUE(victim.decode(good));
    for (std::size_t size = 0; size < good.size(); ++size) victim.decode(good.substr(0, size));
    std::string wrong = good;
    const bool slow =
        c.syntax >= JPEG_XL_LOSSLESS ||
        (c.image.samples == 3 && (c.syntax == JPEG_2000_LOSSLESS_ONLY || c.syntax == HTJ2K_LOSSLESS_RPCL));
    for (std::size_t at = 0; at < good.size(); ++at) {
      for (int value = 0; value < 256; value += slow ? 15 : 1) {
        wrong[at] = static_cast<char>(value);
        victim.decode(wrong);
      }
      wrong[at] = good[at];
    }
    EXPECT_LT(victim.longest(), std::chrono::seconds(2));
  }
  EXPECT_LT(peak_kib() - before, 64 * 1024);
}

// An image of gigabytes in some hundred bytes, the sizes in the stream agreeing with those of the object.
TEST_F(Hostile, SizesThatNobodyHas) {
  const Image small{.rows = 64, .columns = 64};
  for (const VX_TRANSFER_SYNTAX syntax : {RLE, JPEG_BASELINE, JPEG_LOSSLESS_HIER_14, JPEG_LS_LOSSLESS,
                                          JPEG_2000_LOSSLESS_ONLY, HTJ2K_LOSSLESS}) {
    std::string stream = Victim(syntax, small).compress(std::string(small.frame_size(), '\0'));
    for (const int side : {12000, 46000, 65535}) {
      const std::string word{static_cast<char>(side >> 8), static_cast<char>(side)};
      std::string large = stream;
      // Rows and columns stand behind the precision of a JPEG frame, and in the SIZ segment twice, as image
      // and as tile.
      const std::size_t marker = large.find(std::string("\xFF") + (syntax == JPEG_BASELINE      ? '\xC0'
                                                                   : syntax == JPEG_LS_LOSSLESS ? '\xF7'
                                                                                                : '\xC3'));
      if (syntax == JPEG_2000_LOSSLESS_ONLY || syntax == HTJ2K_LOSSLESS) {
        for (const std::size_t at : {10, 14, 26, 30}) large.replace(at, 2, word);
      } else if (syntax != RLE) {
        large.replace(marker + 5, 4, word + word);
      }
      SCOPED_TRACE(testing::Message() << "syntax " << syntax << ", " << side);
      prepare(syntax, {.rows = side, .columns = side}, kGeneral);
      set_value(id_, table({}) + item(large) + kDelimiter, large.size() + 100);
      const long before = peak_kib();
      const auto start = std::chrono::steady_clock::now();
      EXPECT_EQ(frame(0), no_frame(VX_COMPRESSION_FAILURE));
      EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
      EXPECT_LT(peak_kib() - before, 32 * 1024);
    }
    // The stream may claim what it likes where the object does not.
    prepare(syntax, {.rows = 3, .columns = 3}, kGeneral);
    set_value(id_, table({}) + item(stream) + kDelimiter, 1000);
    EXPECT_EQ(frame(0), no_frame(VX_COMPRESSION_FAILURE));
  }
}

}  // namespace
