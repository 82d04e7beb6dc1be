// Native frames in items, as they are and deflated: every layout there and back, and what is broken.
#include <zlib.h>

#include "pixels.h"

namespace {

using namespace pixels;

class NativeFrames : public PixelTest {
 protected:
  // A value of frames that others made.
  void hold(VX_TRANSFER_SYNTAX syntax, const Image& image, const std::vector<std::string>& frames,
            std::size_t piece = 5000) {
    prepare(syntax, image, kGeneral);
    std::string value = table({});
    for (const std::string& frame : frames) value += item(frame + std::string(frame.size() % 2, '\0'));
    set_value(id_, value + kDelimiter, piece);
  }
  static std::string deflate(const std::string& bytes, int window_bits) {
    z_stream stream{};
    ::deflateInit2(&stream, 9, Z_DEFLATED, window_bits, 8, Z_DEFAULT_STRATEGY);
    std::string packed(::deflateBound(&stream, bytes.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    ::deflate(&stream, Z_FINISH);
    ::deflateEnd(&stream);
    packed.resize(stream.total_out);
    return packed;
  }
};

TEST_F(NativeFrames, EveryLayoutComesBackAsItWas) {
  const Image odd{.rows = 3, .columns = 5, .frames = 3};
  std::vector<Image> images{odd};
  for (const int bytes : {2, 3, 4, 8}) {
    images.push_back(odd);
    images.back().allocated = 8 * bytes;
    images.back().stored = 12;
    images.back().is_signed = bytes % 2;
  }
  for (const char* photometric : {"RGB", "YBR_FULL", "YBR_FULL_422"}) {
    for (const int planar : {0, 1}) {
      images.push_back({.rows = 3, .columns = 6, .samples = 3, .planar = planar, .frames = 2});
      images.back().photometric = photometric;
    }
  }
  uint32_t seed = 0;
  for (const VX_TRANSFER_SYNTAX syntax : {ENCAPSULATED_UNCOMPRESSED, DEFLATED_IMAGE_FRAMES}) {
    for (const Image& image : images) {
      for (const std::size_t piece : {std::size_t{0}, std::size_t{4}}) {
        SCOPED_TRACE(testing::Message() << syntax << ' ' << image.photometric << ' ' << image.allocated);
        prepare(syntax, image, kGeneral);
        std::vector<std::string> frames;
        for (int i = 0; i < image.frames; ++i) {
          frames.push_back(picture(image, ++seed));
          frames[i].resize(frames[i].size() + frames[i].size() % 2);
          ASSERT_EQ(set_frame(id_, i == 0, {.bytes = frames[i], .piece = piece, .late_last = piece != 0}),
                    VX_NORMAL_COMPLETION);
        }
        ASSERT_EQ(VX_Close_Encapsulated_Value(id_, kPixelData), VX_NORMAL_COMPLETION);
        EXPECT_EQ(all_frames(), frames);
        EXPECT_EQ(frame(image.frames - 1), frames.back());
        if (syntax == DEFLATED_IMAGE_FRAMES) continue;
        std::string items;
        for (const std::string& one : frames) items += item(one);
        EXPECT_TRUE(value(id_).ends_with(items + kDelimiter));
      }
    }
  }
}

TEST_F(NativeFrames, WhatDoesNotFitIsRefusedAndWhatIsSloppyIsTold) {
  const Image image{.rows = 7, .columns = 9};
  const std::string pixels = picture(image, 3);
  const std::string raw = deflate(pixels, -MAX_WBITS);
  const std::string wrapped = deflate(pixels, MAX_WBITS);
  const std::string bomb = deflate(std::string(1 << 24, 'x'), -MAX_WBITS);
  struct Case {
    VX_TRANSFER_SYNTAX syntax;
    std::string frame;
    bool good;
    const char* told;
  };
  const Case cases[] = {
      {ENCAPSULATED_UNCOMPRESSED, pixels, true, ""},
      {ENCAPSULATED_UNCOMPRESSED, pixels.substr(0, 62), false, "the data ends before the image"},
      {ENCAPSULATED_UNCOMPRESSED, pixels + "abc", false, "the data goes on behind the image"},
      {DEFLATED_IMAGE_FRAMES, raw, true, ""},
      {DEFLATED_IMAGE_FRAMES, deflate(pixels + '\0', -MAX_WBITS), true, ""},
      {DEFLATED_IMAGE_FRAMES, wrapped, true, "has the header of zlib"},
      {DEFLATED_IMAGE_FRAMES, raw + std::string("\0garbage", 8), true,
       "bytes behind the end of the code stream"},
      {DEFLATED_IMAGE_FRAMES, deflate(pixels.substr(1), -MAX_WBITS), false, "the data ends before the image"},
      {DEFLATED_IMAGE_FRAMES, deflate(pixels + "ab", -MAX_WBITS), false, "the data goes on behind the image"},
      {DEFLATED_IMAGE_FRAMES, bomb, false, "the data goes on behind the image"},
  };
  for (const Case& c : cases) {
    for (const std::size_t piece : {5000, 3}) {
      SCOPED_TRACE(testing::Message() << c.syntax << ' ' << c.told << ' ' << piece);
      clear_log();
      hold(c.syntax, image, {c.frame}, piece);
      EXPECT_EQ(frame(0), c.good ? pixels + '\0' : no_frame(VX_COMPRESSION_FAILURE));
      EXPECT_TRUE(*c.told == '\0' || has_log(c.told));
    }
  }
  // Each end that comes too early, and each byte that is another: refused, or the frame as it was made.
  for (std::size_t size = 0; size < raw.size(); ++size) {
    hold(DEFLATED_IMAGE_FRAMES, image, {raw.substr(0, size)});
    const bool pad = raw.find_first_not_of('\0', size) == std::string::npos;
    EXPECT_EQ(frame(0) == pixels + '\0', pad) << size;
  }
  for (std::size_t at = 0; at < wrapped.size(); ++at) {
    std::string changed = wrapped;
    changed[at] = static_cast<char>(changed[at] ^ 0x55);
    hold(DEFLATED_IMAGE_FRAMES, image, {changed});
    frame(0);
  }
}

}  // namespace
