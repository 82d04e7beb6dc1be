// The standard compressor: what it refuses, what comes back, and hostile streams.
#include <cmath>

#include "pixel/codec.h"
#include "pixel/jpeg.h"
#include "pixels.h"

namespace {

using namespace pixels;

class Standard : public PixelTest {
 protected:
  void use(VX_TRANSFER_SYNTAX syntax, const Image& image) { prepare(syntax, image, codecs_of(syntax)); }
  // One frame through the compressor and back.
  VX_STATUS there_and_back(const std::string& frame, std::size_t piece, std::string& back) {
    VX_STATUS status = set_frame(id_, true, {.bytes = frame, .piece = piece, .late_last = piece != 0});
    if (status != VX_NORMAL_COMPLETION) return status;
    EXPECT_EQ(VX_Close_Encapsulated_Value(id_, kPixelData), VX_NORMAL_COMPLETION);
    return get_frame(id_, 0, back);
  }
  std::string stream() {
    const std::string stored = value(id_);
    return stored.substr(12 + 8, stored.size() - 28);
  }
};

double root_mean_square(const std::string& a, const std::string& b, std::size_t width) {
  double sum = 0;
  for (std::size_t i = 0; i + width <= a.size(); i += width) {
    uint16_t x = 0, y = 0;
    std::memcpy(&x, a.data() + i, width);
    std::memcpy(&y, b.data() + i, width);
    sum += (static_cast<double>(x) - y) * (static_cast<double>(x) - y);
  }
  return std::sqrt(sum / (static_cast<double>(a.size()) / static_cast<double>(width)));
}

TEST_F(Standard, RefusesWhatTheSyntaxDoesNotTake) {
  struct Case {
    VX_TRANSFER_SYNTAX syntax;
    Image image;
    const char* text;
  };
  const Image grey16{.rows = 4, .columns = 4, .allocated = 16, .stored = 12};
  const Image packed{.rows = 2, .columns = 2, .samples = 3, .photometric = "YBR_FULL_422"};
  const Image rgb16{
      .rows = 2, .columns = 2, .samples = 3, .allocated = 16, .stored = 16, .photometric = "RGB"};
  const Image nine{.rows = 4, .columns = 4, .allocated = 16, .stored = 9};
  const Image wide8{.rows = 4, .columns = 4, .allocated = 16, .stored = 8};
  const Case cases[] = {
      {JPEG_BASELINE, grey16, "BASELINE requires bits stored = 8"},
      {JPEG_BASELINE, wide8, "No support for LOSSY bits allocated=16, bits stored=8. VX_Standard_Compressor"},
      {JPEG_EXTENDED_2_4, nine, "EXTENDED_2_4 requires bits stored = 8,10,or 12"},
      {JPEG_LOSSLESS_HIER_14, packed, "LOSSLESS YBR_FULL_422 not supported"},
      {JPEG_LS_LOSSLESS, packed, "JLS YBR_FULL_422 not supported"},
      {JPEG_LS_LOSSLESS, rgb16,
       "JPEG-LS: RGB requires 3 samples per pixel, 8 bits allocated and 8 bits stored."},
      {JPEG_2000, packed, "J2K YBR_FULL_422 not supported"},
      {JPEG_2000, rgb16, "JPEG_2000 RGB requires 3 samples per pixel, 8 bits allocated and 8 bits stored."},
      {JPEG_2000_MC, grey16, "Transfer syntax unsupported by VX_Standard_Compressor: "},
  };
  for (const Case& c : cases) {
    use(c.syntax, c.image);
    const std::string frame(c.image.frame_size(), '\0');
    EXPECT_EQ(set_frame(id_, true, {.bytes = frame}), VX_CALLBACK_CANNOT_COMPLY);
    EXPECT_TRUE(has_log(c.text)) << c.text;
    clear_log();
  }
  use(JPEG_BASELINE, {.rows = 4, .columns = 4});
  EXPECT_EQ(set_frame(id_, true, {.bytes = "too short"}), VX_CALLBACK_DATA_SIZE_UNEVEN);
  EXPECT_EQ(set_frame(id_, true, {.bytes = "short!"}), VX_CALLBACK_CANNOT_COMPLY);
  EXPECT_TRUE(has_log("Frame size: 16, bytes processed: 6"));
  void* context = nullptr;
  EXPECT_EQ(VX_Standard_Compressor(id_, &context, 0, nullptr, nullptr, nullptr, 0, 0, 1),
            VX_CALLBACK_CANNOT_COMPLY);
}

TEST_F(Standard, LosslessSyntaxesGiveBackEveryBit) {
  uint32_t seed = 100;
  for (const VX_TRANSFER_SYNTAX syntax : {JPEG_LOSSLESS_HIER_14, JPEG_LS_LOSSLESS, JPEG_2000_LOSSLESS_ONLY,
                                          JPEG_2000, HTJ2K_LOSSLESS, HTJ2K_LOSSLESS_RPCL, JPEG_XL_LOSSLESS}) {
    std::vector<Image> images{{.stored = 8},
                              {.samples = 3, .photometric = "RGB"},
                              {.samples = 3, .planar = 1, .photometric = "RGB"},
                              {.stored = 7},
                              {.is_signed = 1},
                              {.allocated = 16, .stored = 2}};
    for (int stored = 9; stored <= 16; ++stored) {
      for (const int sign : {0, 1}) images.push_back({.allocated = 16, .stored = stored, .is_signed = sign});
    }
    if (syntax == JPEG_XL_LOSSLESS) {
      images.push_back({.samples = 3, .photometric = "YBR_FULL"});
      images.push_back({.samples = 3, .allocated = 16, .stored = 16, .photometric = "RGB"});
    }
    for (Image image : images) {
      for (const auto& [rows, columns] : {std::pair{1, 1}, {1, 37}, {37, 1}, {33, 31}}) {
        image.rows = rows;
        image.columns = columns;
        SCOPED_TRACE(testing::Message()
                     << "syntax " << syntax << ", " << image.photometric << ' ' << image.stored << '/'
                     << image.allocated << " signed " << image.is_signed << ' ' << rows << 'x' << columns);
        use(syntax, image);
        std::string frame = picture(image, ++seed);
        std::string expected = frame;
        if (image.planar == 1) {
          const std::size_t plane = frame.size() / 3;
          for (std::size_t i = 0; i < frame.size(); ++i) expected[i] = frame[i % 3 * plane + i / 3];
        }
        frame.resize(frame.size() + frame.size() % 2);
        expected.resize(frame.size());
        std::string back;
        ASSERT_EQ(there_and_back(frame, rows == 33 ? 10 : 0, back), VX_NORMAL_COMPLETION);
        ASSERT_TRUE(back == expected);
      }
    }
  }
}

TEST_F(Standard, HeadsTellWhatTheirStreamsHold) {
  const Image grey{.rows = 5, .columns = 7, .allocated = 16, .stored = 12};
  Image with_sign = grey;
  with_sign.is_signed = 1;
  const Image colour{.rows = 6, .columns = 4, .samples = 3, .photometric = "RGB"};
  for (const VX_TRANSFER_SYNTAX syntax : {JPEG_LOSSLESS_HIER_14, JPEG_LS_LOSSLESS, JPEG_2000}) {
    for (const Image& image : {grey, with_sign, colour}) {
      use(syntax, image);
      std::string back;
      ASSERT_EQ(there_and_back(picture(image, 4), 0, back), VX_NORMAL_COMPLETION);
      const std::string held = stream();
      CodeStreamObj told{};
      ASSERT_EQ(VX_Describe_Code_Stream(syntax, held.data(), static_cast<uint32_t>(held.size()), &told),
                VX_NORMAL_COMPLETION);
      EXPECT_EQ(told.Rows, image.rows);
      EXPECT_EQ(told.Columns, image.columns);
      EXPECT_EQ(told.SamplesPerPixel, image.samples);
      EXPECT_EQ(told.BitsPerSample, image.stored);
      EXPECT_EQ(told.IsSigned, syntax == JPEG_2000 ? image.is_signed : -1);
      EXPECT_EQ(VX_Describe_Code_Stream(syntax, held.data(), 9, &told), VX_COMPRESSION_FAILURE);
      EXPECT_EQ(VX_Describe_Code_Stream(syntax, held.data(), 9, nullptr), VX_NULL_POINTER_PARM);
      for (const VX_TRANSFER_SYNTAX silent :
           {RLE, ENCAPSULATED_UNCOMPRESSED, DEFLATED_IMAGE_FRAMES, MPEG2_MPML})
        EXPECT_EQ(VX_Describe_Code_Stream(silent, held.data(), 9, &told), VX_INVALID_TRANSFER_SYNTAX);
    }
  }
}

TEST_F(Standard, BitsAboveTheImageAreKeptOrRefused) {
  const Image image{.rows = 8, .columns = 8, .allocated = 16, .stored = 12};
  std::string frame = picture(image, 5);
  frame[1] = static_cast<char>(frame[1] | 0x40);  // an overlay
  for (const VX_TRANSFER_SYNTAX syntax :
       {JPEG_LOSSLESS_HIER_14, JPEG_LS_LOSSLESS, JPEG_2000_LOSSLESS_ONLY, HTJ2K_LOSSLESS, JPEG_XL_LOSSLESS}) {
    use(syntax, image);
    std::string back;
    ASSERT_EQ(there_and_back(frame, 0, back), VX_NORMAL_COMPLETION);
    EXPECT_TRUE(back == frame);
    // Signed samples, with their sign above Bits Stored and without it.
    use(syntax, {.rows = 1, .columns = 6, .stored = 2, .is_signed = 1});
    const std::string low("\0\1\2\3\xFE\xFF", 6);
    ASSERT_EQ(there_and_back(low, 0, back), VX_NORMAL_COMPLETION);
    EXPECT_TRUE(back == low);
  }
  for (const VX_TRANSFER_SYNTAX syntax : {JPEG_EXTENDED_2_4, JPEG_XL}) {
    use(syntax, image);
    clear_log();
    EXPECT_EQ(set_frame(id_, true, {.bytes = frame}), VX_CALLBACK_CANNOT_COMPLY);
    EXPECT_TRUE(has_log("samples have bits above Bits Stored"));
  }
}

TEST_F(Standard, LossySyntaxesStayNear) {
  set_bool(VX_CFG_COMPRESSION_WHEN_J2K_USE_LOSSY, true);
  set_bool(VX_CFG_COMPRESSION_J2K_LOSSY_USE_QUALITY, false);
  set_int(VX_CFG_COMPRESSION_J2K_LOSSY_RATIO, 4);
  set_int(VX_CFG_COMPRESSION_LUM_FACTOR, 4);
  set_int(VX_CFG_COMPRESSION_CHROM_FACTOR, 4);
  struct Case {
    VX_TRANSFER_SYNTAX syntax;
    Image image;
    double limit;
  };
  const Case cases[] = {
      {JPEG_BASELINE, {.rows = 40, .columns = 33}, 3},
      {JPEG_BASELINE, {.rows = 16, .columns = 34, .samples = 3, .photometric = "YBR_FULL_422"}, 8},
      {JPEG_EXTENDED_2_4, {.rows = 40, .columns = 33}, 3},
      {JPEG_EXTENDED_2_4, {.rows = 40, .columns = 33, .allocated = 16, .stored = 12}, 4},
      {JPEG_EXTENDED_2_4, {.rows = 40, .columns = 33, .allocated = 16, .stored = 10}, 4},
      {JPEG_EXTENDED_2_4, {.rows = 40, .columns = 33, .allocated = 16, .stored = 12, .is_signed = 1}, 40},
      {JPEG_EXTENDED_2_4, {.rows = 40, .columns = 33, .allocated = 16, .stored = 10, .is_signed = 1}, 40},
      {JPEG_LS_LOSSY, {.rows = 40, .columns = 33, .allocated = 16, .stored = 12}, 10},
      {JPEG_LS_LOSSY, {.rows = 40, .columns = 33, .allocated = 16, .stored = 2}, 1},
      {JPEG_LS_LOSSY, {.rows = 40, .columns = 33, .is_signed = 1}, 0},  // samples at the ends of their range
      {JPEG_2000, {.rows = 40, .columns = 33, .allocated = 16, .stored = 12}, 200},
      {HTJ2K, {.rows = 40, .columns = 33}, 1.5},
      {HTJ2K, {.rows = 1, .columns = 34, .samples = 3, .photometric = "RGB"}, 1},
      {HTJ2K, {.rows = 2, .columns = 33, .allocated = 16, .stored = 12}, 1},
      {HTJ2K, {.rows = 7, .columns = 2, .allocated = 16, .stored = 16}, 3},
      {JPEG_XL, {.rows = 40, .columns = 33}, 5},
      {JPEG_XL, {.rows = 40, .columns = 33, .allocated = 16, .stored = 12}, 80},
      {JPEG_XL, {.rows = 40, .columns = 33, .allocated = 16, .stored = 12, .is_signed = 1}, 0},
      {JPEG_XL, {.rows = 40, .columns = 33, .samples = 3, .photometric = "RGB"}, 25},
      {JPEG_XL, {.rows = 40, .columns = 33, .samples = 3, .photometric = "YBR_FULL"}, 12},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "syntax " << c.syntax << ' ' << c.image.stored << ' '
                                    << c.image.photometric);
    use(c.syntax, c.image);
    const std::string frame = picture(c.image, 3);
    std::string back;
    ASSERT_EQ(there_and_back(frame, 0, back), VX_NORMAL_COMPLETION);
    ASSERT_EQ(back.size(), frame.size());
    for (std::size_t i = 1; c.image.allocated == 16 && c.image.is_signed == 0 && i < back.size(); i += 2)
      ASSERT_LT(static_cast<uint8_t>(back[i]), 1 << std::max(c.image.stored - 8, 0)) << "above Bits Stored";
    EXPECT_LE(root_mean_square(frame, back, static_cast<std::size_t>(c.image.allocated / 8)), c.limit);
    EXPECT_LT(value(id_).size(), frame.size() + 400);
  }
}

// A scan header that does not tell of the whole block, as one writer leaves it.
TEST_F(Standard, ASequentialScanIsWholeWhateverItsHeaderSays) {
  const Image image{.rows = 20, .columns = 21, .allocated = 16, .stored = 12};
  use(JPEG_EXTENDED_2_4, image);
  std::string back;
  ASSERT_EQ(there_and_back(picture(image, 9), 0, back), VX_NORMAL_COMPLETION);
  std::string stored = value(id_);
  const std::size_t scan = stored.find(std::string("\xFF\xDA\0\x08\x01\x01\0\0\x3F\0", 10));
  ASSERT_NE(scan, std::string::npos);
  stored[scan + 8] = 0;
  set_value(id_, stored, 100);
  EXPECT_TRUE(frame(0) == back);
}

// Tiles at the edge of their picture are smaller than a frame in some files; in other objects that is a
// fault.
TEST_F(Standard, ATileFillsItsFrame) {
  Image tile{.rows = 3, .columns = 4, .samples = 3, .photometric = "RGB"};
  for (const VX_TRANSFER_SYNTAX syntax :
       {JPEG_LOSSLESS_HIER_14, JPEG_LS_LOSSLESS, JPEG_2000_LOSSLESS_ONLY, HTJ2K_LOSSLESS, JPEG_XL_LOSSLESS}) {
    prepare(syntax, tile, kGeneral);
    const std::string pixels = picture(tile, 8);
    std::string back;
    ASSERT_EQ(there_and_back(pixels, 0, back), VX_NORMAL_COMPLETION);
    VX_Set_Value_From_Int(id_, 0x00280010, 5);
    VX_Set_Value_From_Int(id_, 0x00280011, 6);
    EXPECT_EQ(get_frame(id_, 0, back), VX_COMPRESSION_FAILURE);
    VX_Add_Nonstandard_Attribute(id_, 0x00480006, VX_VR_UL);
    VX_Set_Value_From_Int(id_, 0x00480006, 100);
    ASSERT_EQ(get_frame(id_, 0, back), VX_NORMAL_COMPLETION) << syntax;
    ASSERT_EQ(back.size(), 90U);
    for (std::size_t i = 0; i < 90; ++i) {
      const std::size_t y = std::min<std::size_t>(i / 18, 2);
      const std::size_t x = std::min<std::size_t>(i % 18 / 3, 3);
      EXPECT_EQ(back[i], pixels[(y * 4 + x) * 3 + i % 3]);
    }
    VX_Delete_Attribute(id_, 0x00480006);
  }
}

// Fragments, pieces, tables and what stands behind the last frame: the same frames come out of every layout.
TEST_F(Standard, FramesInEveryLayout) {
  Image image{.rows = 50, .columns = 51, .allocated = 16, .stored = 12, .is_signed = 1};
  const std::vector<std::string> frames{picture(image, 1), picture(image, 2)};
  for (const VX_TRANSFER_SYNTAX syntax : {RLE, JPEG_LOSSLESS_HIER_14, JPEG_LS_LOSSLESS,
                                          JPEG_2000_LOSSLESS_ONLY, HTJ2K_LOSSLESS_RPCL, JPEG_XL_LOSSLESS}) {
    std::vector<std::string> streams;
    image.frames = 1;
    for (const std::string& pixels : frames) {
      prepare(syntax, image, codecs_of(syntax));
      std::string back;
      ASSERT_EQ(there_and_back(pixels, 0, back), VX_NORMAL_COMPLETION);
      streams.push_back(stream());
      ASSERT_GT(streams.back().size(), 1100U);  // more than one fragment of 1 KiB
    }
    image.frames = 2;
    prepare(syntax, image, codecs_of(syntax));
    for (const std::size_t fragment : {1, 2, 7, 63, 64, 1024, 100000}) {
      std::string body;
      std::vector<uint32_t> starts;
      for (const std::string& one : streams) {
        starts.push_back(static_cast<uint32_t>(body.size()));
        for (std::size_t at = 0; at < one.size();) {
          const bool rest = one.size() - at <= fragment + 1;  // a pad does not stand alone
          body += item(one.substr(at, rest ? fragment + 1 : fragment));
          at += rest ? fragment + 1 : fragment;
        }
      }
      for (const std::string& layout :
           {table({}) + body + kDelimiter, table(starts) + body + kDelimiter, table(starts) + body,
            table({0, 0}) + body + kDelimiter, table({0, 0xFFFFFFF0U}) + body + kDelimiter,
            table({}) + body + item(std::string(6, '\0')) + kDelimiter,
            table(starts) + body + item(std::string(2, '\0')) + item("") + kDelimiter}) {
        for (const std::size_t piece :
             {std::size_t{1}, std::size_t{3}, std::size_t{8}, std::size_t{1000}, layout.size()}) {
          SCOPED_TRACE(testing::Message()
                       << "syntax " << syntax << ", fragments of " << fragment << ", pieces of " << piece
                       << ", table of " << (static_cast<int>(layout[4]) & 0xFF) << ", " << layout.size()
                       << " bytes");
          set_value(id_, layout, piece);
          ASSERT_TRUE(all_frames() == frames);
          ASSERT_TRUE(frame(1) == frames[1]);
          ASSERT_EQ(frame(2), no_frame(VX_NO_MORE_VALUES));
        }
      }
    }
  }
}

// The end of a frame may come with no data, and the codec must have had its say by then.
TEST_F(Standard, ALastCallWithoutData) {
  set_int(VX_CFG_IGNORE_JPEG_BAD_SUFFIX, 1);
  for (const VX_TRANSFER_SYNTAX syntax :
       {RLE, JPEG_BASELINE, JPEG_EXTENDED_2_4, JPEG_LOSSLESS_HIER_14, JPEG_LS_LOSSLESS, JPEG_LS_LOSSY,
        JPEG_2000_LOSSLESS_ONLY, HTJ2K_LOSSLESS}) {
    SCOPED_TRACE(testing::Message() << "syntax " << syntax);
    const Image image{.rows = 9, .columns = 11};
    const auto [compressor, decompressor] = codecs_of(syntax);
    prepare(syntax, image, codecs_of(syntax));
    VX_Add_Standard_Attribute(id_, kPixelData);
    // In one call, and in two of which the second has no data; with every byte, and short of its end marker.
    const auto run = [&](VX_COMPRESSION_CALLBACK codec, const std::string& in, bool late, std::string& out) {
      void* context = nullptr;
      void* bytes = nullptr;
      uint32_t size = 0;
      out.clear();
      const auto call = [&](std::size_t n, int first, int last) {
        size = 0;
        const VX_STATUS status =
            codec(id_, &context, static_cast<uint32_t>(n), n != 0 ? const_cast<char*>(in.data()) : nullptr,
                  &size, &bytes, first, last, 0);
        out.append(static_cast<char*>(bytes), status == VX_NORMAL_COMPLETION ? size : 0);
        return status;
      };
      VX_STATUS status = call(in.size(), 1, late ? 0 : 1);
      if (late && status == VX_NORMAL_COMPLETION) status = call(0, 0, 1);
      if (context != nullptr) codec(id_, &context, 0, nullptr, &size, &bytes, 0, 0, 1);
      EXPECT_EQ(context, nullptr);
      return status;
    };
    const std::string frame = picture(image, 4) + '\0';
    std::string packed, late, back, late_back, cut_back;
    ASSERT_EQ(run(compressor, frame, false, packed), VX_NORMAL_COMPLETION);
    ASSERT_EQ(run(compressor, frame, true, late), VX_NORMAL_COMPLETION);
    EXPECT_TRUE(packed == late);
    ASSERT_EQ(run(decompressor, packed, false, back), VX_NORMAL_COMPLETION);
    ASSERT_EQ(run(decompressor, packed, true, late_back), VX_NORMAL_COMPLETION);
    EXPECT_EQ(back.size(), frame.size());
    EXPECT_TRUE(late_back == back);
    if (syntax == RLE) continue;
    const std::size_t end = packed.rfind('\xD9') - 1;
    for (const std::size_t pads : {0, 1, 2}) {
      const std::string cut = packed.substr(0, end) + std::string(pads, '\0');
      ASSERT_EQ(run(decompressor, cut, true, cut_back), VX_NORMAL_COMPLETION) << pads;
      EXPECT_TRUE(cut_back == back);
    }
  }
}

// Differences of every predictor and point transform, coded here by the rules of annex H.
class LosslessStream {
 public:
  LosslessStream(const Image& image, int selection, int shift, int interval_rows)
      : image_(image), selection_(selection), shift_(shift), interval_(interval_rows) {}
  std::string encode(const std::vector<uint16_t>& samples) {
    out_ = std::string("\xFF\xD8\xFF\xC3", 4);
    const int n = image_.samples;
    word(8 + 3 * n);
    byte(image_.stored);
    word(image_.rows);
    word(image_.columns);
    byte(n);
    for (int i = 0; i < n; ++i) out_ += std::string{static_cast<char>(10 + i), 0x11, 0};
    // All 17 categories have codes of 5 bits.
    out_ += std::string("\xFF\xC4", 2);
    word(19 + 17);
    byte(0);
    for (int i = 1; i <= 16; ++i) byte(i == 5 ? 17 : 0);
    for (int i = 0; i < 17; ++i) byte(i);
    if (interval_ != 0) {
      out_ += std::string("\xFF\xDD\0\4", 4);
      word(interval_ * image_.columns);
    }
    out_ += std::string("\xFF\xDA", 2);
    word(6 + 2 * n);
    byte(n);
    for (int i = 0; i < n; ++i) out_ += std::string{static_cast<char>(10 + i), 0};
    byte(selection_);
    byte(0);
    byte(shift_);
    const auto at = [&](int y, int x, int c) {
      return samples[static_cast<std::size_t>((y * image_.columns + x) * n + c)] >> shift_;
    };
    for (int y = 0; y < image_.rows; ++y) {
      const bool restarts = interval_ != 0 && y != 0 && y % interval_ == 0;
      if (restarts) {
        flush();
        out_ += std::string{'\xFF', static_cast<char>(0xD0 + (y / interval_ - 1) % 8)};
      }
      const bool first = y == 0 || restarts;
      for (int x = 0; x < image_.columns; ++x) {
        for (int c = 0; c < n; ++c) {
          int prediction = 1 << (image_.stored - shift_ - 1);
          if (first && x > 0) prediction = at(y, x - 1, c);
          if (!first && x == 0) prediction = at(y - 1, x, c);
          if (!first && x > 0) {
            const int a = at(y, x - 1, c), b = at(y - 1, x, c), d = at(y - 1, x - 1, c);
            const int table[] = {0, a, b, d, a + b - d, a + ((b - d) >> 1), b + ((a - d) >> 1), (a + b) >> 1};
            prediction = table[selection_];
          }
          put(at(y, x, c) - prediction);
        }
      }
    }
    flush();
    return out_ + std::string("\xFF\xD9", 2);
  }

 private:
  void byte(int v) { out_ += static_cast<char>(v); }
  void word(int v) {
    byte(v >> 8);
    byte(v);
  }
  void bit(int b) {
    bits_ = bits_ << 1 | b;
    if (++count_ < 8) return;
    byte(bits_);
    if ((bits_ & 0xFF) == 0xFF) byte(0);
    bits_ = count_ = 0;
  }
  void put(int difference) {
    const auto d = static_cast<int16_t>(difference);
    int n = 0;
    while (n < 16 && std::abs(d) >= 1 << n) ++n;
    for (int i = 4; i >= 0; --i) bit(n >> i & 1);
    if (n == 16) return;
    const int low = d < 0 ? d - 1 : d;
    for (int i = n - 1; i >= 0; --i) bit(low >> i & 1);
  }
  void flush() {
    while (count_ != 0) bit(1);
  }
  Image image_;
  int selection_, shift_, interval_;
  std::string out_;
  int bits_ = 0, count_ = 0;
};

TEST(JpegLossless, EveryPredictorPointTransformAndInterval) {
  uint32_t seed = 0;
  for (const int stored : {2, 8, 12, 16}) {
    for (const int samples : {1, 3}) {
      const Image image{.rows = 13, .columns = 17, .samples = samples, .allocated = 16, .stored = stored};
      const std::string frame = picture(image, ++seed);
      std::vector<uint16_t> pixels(frame.size() / 2);
      std::memcpy(pixels.data(), frame.data(), frame.size());
      for (int selection = 1; selection <= 7; ++selection) {
        for (const int shift : {0, 1}) {
          for (const int interval : {0, 1, 5}) {
            const std::string stream = LosslessStream(image, selection, shift, interval).encode(pixels);
            const auto* data = reinterpret_cast<const uint8_t*>(stream.data());
            vx::jpeg::Shape shape;
            ASSERT_EQ(vx::jpeg::query(data, stream.size(), shape), vx::jpeg::kNone);
            std::vector<uint16_t> out(pixels.size());
            ASSERT_EQ(vx::jpeg::decode(data, stream.size(), shape, true, out.data()), vx::jpeg::kNone);
            EXPECT_TRUE(shape.ends_well);
            for (std::size_t i = 0; i < out.size(); ++i) {
              ASSERT_EQ(out[i], pixels[i] >> shift << shift)
                  << "selection " << selection << " shift " << shift << " interval " << interval << " bits "
                  << stored;
            }
          }
        }
      }
    }
  }
}

}  // namespace
