#include <atomic>
#include <stdexcept>

#include "pixel/thread_share.h"
#include "pixels.h"

namespace {

using namespace pixels;

class Rle : public PixelTest {
 protected:
  // The segments of one frame, without header.
  std::string compress(const Image& image, const std::string& frame, std::size_t piece = 0) {
    prepare(RLE, image, codecs_of(RLE));
    EXPECT_EQ(set_frame(id_, true, {.bytes = frame, .piece = piece}), VX_NORMAL_COMPLETION);
    EXPECT_EQ(VX_Close_Encapsulated_Value(id_, kPixelData), VX_NORMAL_COMPLETION);
    const std::string stored = value(id_);
    return stored.substr(12 + 8, stored.size() - 28);
  }
  std::string segments(const Image& image, const std::string& frame) {
    return compress(image, frame).substr(64);
  }
};

// On whichever thread.
TEST(RunParts, WhatAPartThrowsArrives) {
  for (const std::size_t bad : {0, 3, 15}) {
    std::atomic<int> done{0};
    const auto work = [&](std::size_t part) {
      if (part == bad) throw std::runtime_error("part");
      ++done;
    };
    EXPECT_THROW(vx::run_parts(4, 16, work), std::runtime_error);
    EXPECT_LT(done, 16);
  }
}

TEST_F(Rle, RunsAreCutAsTheRulesSay) {
  const auto row = [&](std::string bytes) {
    const int columns = static_cast<int>(bytes.size());
    if (columns % 2 != 0) bytes += '\0';
    return segments({.rows = 1, .columns = columns}, bytes);
  };
  const auto pad = [](std::string s) { return s.size() % 2 == 0 ? s : s + '\0'; };
  EXPECT_EQ(row(std::string(256, 'A')), "\201A\201A");
  EXPECT_EQ(row("AAB"), std::string("\xFF") + "A" + '\0' + "B");
  EXPECT_EQ(row("AABCDE"), pad(std::string("\5") + "AABCDE"));
  EXPECT_EQ(row("AAABC"), pad(std::string("\4") + "AAABC"));
  EXPECT_EQ(row("XAABCD"), pad(std::string("\5") + "XAABCD"));
  EXPECT_EQ(row("XYAAAB"), pad(std::string("\1") + "XY" + '\xFE' + "A" + '\0' + "B"));
  EXPECT_EQ(row("WXYZAAAA"), pad(std::string("\3") + "WXYZ" + '\xFD' + "A"));
  EXPECT_EQ(segments({.rows = 2, .columns = 4}, "AAAAAAAA"), "\375A\375A");
}

TEST_F(Rle, SegmentsByByteAndSample) {
  const auto header = [](const std::string& frame, std::size_t i) {
    uint32_t v;
    std::memcpy(&v, frame.data() + 4 * i, 4);
    return v;
  };
  const std::string grey =
      compress({.rows = 1, .columns = 4, .allocated = 16, .stored = 16}, std::string("\1\2\1\2\1\2\1\2", 8));
  EXPECT_EQ(header(grey, 0), 2U);
  EXPECT_EQ(header(grey, 1), 64U);
  EXPECT_EQ(grey.substr(64), "\xFD\2\xFD\1");
  const Image rgb{.rows = 1, .columns = 4, .samples = 3, .photometric = "RGB"};
  EXPECT_EQ(compress(rgb, "RGBRGBRGBRGB").substr(64), "\375R\375G\375B");
  Image planar = rgb;
  planar.planar = 1;
  EXPECT_EQ(compress(planar, "RRRRGGGGBBBB").substr(64), "\375R\375G\375B");
  const std::string odd = compress({.rows = 1, .columns = 2, .samples = 3, .photometric = "RGB"}, "abcdef");
  EXPECT_EQ(header(odd, 2) % 2, 0U);
}

TEST_F(Rle, RoundTripsInPiecesOfAnySize) {
  uint32_t seed = 0;
  for (const int columns : {1, 2, 7, 127, 128, 129, 300}) {
    for (const Image& kind :
         {Image{.stored = 8}, Image{.allocated = 16, .stored = 12},
          Image{.allocated = 16, .stored = 16, .is_signed = 1}, Image{.samples = 3, .photometric = "RGB"},
          Image{.samples = 3, .planar = 1, .photometric = "RGB"},
          Image{.samples = 3, .allocated = 16, .stored = 16, .photometric = "RGB"}}) {
      Image image = kind;
      image.rows = 5;
      image.columns = columns;
      image.frames = 2;
      SCOPED_TRACE(testing::Message() << columns << " x 5, " << image.photometric << image.allocated);
      const std::size_t size = image.frame_size();
      std::vector<std::string> frames{picture(image, ++seed), picture(image, ++seed)};
      for (std::string& frame : frames) frame.resize(size + size % 2);
      prepare(RLE, image, codecs_of(RLE));
      for (const std::string& frame : frames) {
        ASSERT_EQ(set_frame(id_, &frame == frames.data(), {.bytes = frame, .piece = 6, .late_last = true}),
                  VX_NORMAL_COMPLETION);
      }
      ASSERT_EQ(VX_Close_Encapsulated_Value(id_, kPixelData), VX_NORMAL_COMPLETION);
      ASSERT_TRUE(all_frames() == frames);
    }
  }
}

TEST_F(Rle, RefusalsAndBrokenFrames) {
  const Image image{.rows = 3, .columns = 40, .allocated = 16, .stored = 12};
  const std::string pixels = picture(image, 9);
  const std::string good = compress(image, pixels);
  EXPECT_EQ(set_frame(id_, true, {.bytes = pixels + "xx"}), VX_CANNOT_COMPLY);
  EXPECT_TRUE(has_log("buffer overrun on input pixel buffer.  Frame size: 240"));
  const auto status_of = [&](const std::string& stream) {
    set_value(id_, table({}) + item(stream) + kDelimiter, 11);
    std::string bytes;
    return get_frame(id_, 0, bytes);
  };
  EXPECT_EQ(status_of(good), VX_NORMAL_COMPLETION);
  EXPECT_EQ(status_of(good + std::string(2, '\0')), VX_NORMAL_COMPLETION);
  EXPECT_EQ(status_of(good.substr(0, good.size() - 6)), VX_COMPRESSION_FAILURE);
  EXPECT_TRUE(has_log("RLE frame incomplete") || has_log("RLE run incomplete"));
  // What no pixel asks for is told, be it behind the last segment or in each of an image that says less rows.
  EXPECT_EQ(count_log("behind the end of the code stream"), 0);
  EXPECT_EQ(status_of(good + "runs"), VX_NORMAL_COMPLETION);
  EXPECT_EQ(count_log("behind the end of the code stream"), 1);
  Image lower = image;
  lower.rows = 2;
  prepare(RLE, lower, codecs_of(RLE));
  EXPECT_EQ(status_of(good), VX_NORMAL_COMPLETION);
  EXPECT_EQ(count_log("behind the end of the code stream"), 2);
  // A null context answers, and nothing else happens.
  void* context = nullptr;
  EXPECT_EQ(VX_RLE_Compressor(id_, &context, 0, nullptr, nullptr, nullptr, 0, 0, 1),
            VX_CALLBACK_CANNOT_COMPLY);
  EXPECT_EQ(VX_RLE_Decompressor(id_, &context, 0, nullptr, nullptr, nullptr, 0, 0, 1),
            VX_CALLBACK_CANNOT_COMPLY);
  prepare(JPEG_BASELINE, {.rows = 2, .columns = 2}, {VX_RLE_Compressor});
  EXPECT_EQ(set_frame(id_, true, {.bytes = "abcd"}), VX_CALLBACK_CANNOT_COMPLY);
  EXPECT_TRUE(has_log("Compressor called for non RLE transfer syntax."));
}

// Three planes in an image whose label gives it two samples a pixel: no room for them.
TEST_F(Rle, PlanesThatDoNotFitTheLabel) {
  Image image{.rows = 40, .columns = 50, .samples = 3, .photometric = "RGB"};
  std::string stream = compress(image, picture(image, 6));
  stream.resize(stream.size() + stream.size() % 2);
  image.photometric = "YBR_FULL_422";
  prepare(RLE, image, kGeneral);
  set_value(id_, table({}) + item(stream) + kDelimiter, 1000);
  EXPECT_EQ(frame(0), no_frame(VX_COMPRESSION_FAILURE));
}

}  // namespace
