// Deep copies, their pixels from syntax to syntax.
#include <cmath>

#include "pixels.h"

namespace {

using namespace pixels;

class Duplicate : public PixelTest {
 protected:
  std::string text(int32_t id, uint32_t tag) {
    char buffer[256];
    const VX_STATUS status = VX_Get_Value_To_String(id, tag, sizeof buffer, buffer);
    return status == VX_NORMAL_COMPLETION ? buffer : "#" + std::to_string(status);
  }
  void TearDown() override {
    VX_Free_Message(&copy_);
    PixelTest::TearDown();
  }
  VX_STATUS duplicate(int32_t source, VX_TRANSFER_SYNTAX syntax, Codecs codecs) {
    VX_Free_Message(&copy_);
    return VX_Duplicate_Message(source, &copy_, syntax, codecs.compressor, codecs.decompressor);
  }
  VX_STATUS duplicate(int32_t source, VX_TRANSFER_SYNTAX syntax) {
    return duplicate(source, syntax, codecs_of(syntax));
  }
  // A copy beside the one at hand; it lives as long as the library.
  static int32_t copied(int32_t source, VX_TRANSFER_SYNTAX syntax, Codecs codecs) {
    int32_t copy = -1;
    EXPECT_EQ(VX_Duplicate_Message(source, &copy, syntax, codecs.compressor, codecs.decompressor),
              VX_NORMAL_COMPLETION)
        << syntax;
    return copy;
  }
  static int32_t copied(int32_t source, VX_TRANSFER_SYNTAX syntax) {
    return copied(source, syntax, codecs_of(syntax));
  }
  // A native message with the frames of an image.
  std::string native(const Image& image, uint32_t seed) {
    VX_Empty_Message(id_);
    VX_Set_Message_Transfer_Syntax(id_, EXPLICIT_LITTLE_ENDIAN);
    describe(id_, image);
    std::string pixels;
    for (int i = 0; i < image.frames; ++i) pixels += picture(image, seed + static_cast<uint32_t>(i));
    if (pixels.size() % 2 != 0) pixels += '\0';
    set_value(id_, pixels, 1000);
    return pixels;
  }
  static std::string by_pixel(const std::string& planes, const Image& image) {
    const std::size_t width = static_cast<std::size_t>(image.allocated / 8);
    const std::size_t frame = image.frame_size();
    const std::size_t plane = frame / 3;
    std::string pixels = planes;
    for (std::size_t at = 0; at < planes.size() / frame * frame; at += width) {
      const std::size_t i = at % frame / width;
      pixels.replace(at, width, planes, at - at % frame + i % 3 * plane + i / 3 * width, width);
    }
    return pixels;
  }
  int32_t copy_ = -1;
};

TEST_F(Duplicate, EverythingButThePixelsIsCopied) {
  native({.rows = 2, .columns = 2}, 1);
  VX_Set_Value_From_String(id_, 0x00080008, "ORIGINAL");
  VX_Set_Next_Value_From_String(id_, 0x00080008, "PRIMARY");
  int32_t item_id = -1;
  ASSERT_EQ(VX_Open_Empty_Item(&item_id), VX_NORMAL_COMPLETION);
  VX_Set_Value_From_String(item_id, 0x00100010, "In^Item");
  VX_Add_Standard_Attribute(id_, 0x0040A730);
  ASSERT_EQ(VX_Set_Value_From_Int(id_, 0x0040A730, item_id), VX_NORMAL_COMPLETION);
  ASSERT_EQ(duplicate(id_, EXPLICIT_BIG_ENDIAN, Codecs{}), VX_NORMAL_COMPLETION);
  EXPECT_EQ(value(copy_), value(id_));
  EXPECT_EQ(text(copy_, 0x00080008), "ORIGINAL");
  char buffer[64];
  EXPECT_EQ(VX_Get_Next_Value_To_String(copy_, 0x00080008, sizeof buffer, buffer), VX_NORMAL_COMPLETION);
  EXPECT_STREQ(buffer, "PRIMARY");
  int32_t copied_item = -1;
  ASSERT_EQ(VX_Get_Value_To_Int(copy_, 0x0040A730, &copied_item), VX_NORMAL_COMPLETION);
  EXPECT_NE(copied_item, item_id);
  EXPECT_EQ(text(copied_item, 0x00100010), "In^Item");
  VX_TRANSFER_SYNTAX syntax = 0;
  VX_Get_Message_Transfer_Syntax(copy_, &syntax);
  EXPECT_EQ(syntax, EXPLICIT_BIG_ENDIAN);
}

TEST_F(Duplicate, CallbacksThatAreNeeded) {
  const Image image{.rows = 4, .columns = 4};
  native(image, 1);
  EXPECT_EQ(duplicate(id_, RLE, Codecs{}), VX_COMPRESSOR_REQUIRED);
  EXPECT_EQ(duplicate(id_, 1), VX_INVALID_TRANSFER_SYNTAX);
  EXPECT_TRUE(has_log("Error. "));
  ASSERT_EQ(duplicate(id_, RLE), VX_NORMAL_COMPLETION);
  VX_Register_Compression_Callbacks(copy_, nullptr, nullptr);
  int32_t second = -1;
  EXPECT_EQ(VX_Duplicate_Message(copy_, &second, EXPLICIT_LITTLE_ENDIAN, nullptr, nullptr),
            VX_DECOMPRESSOR_REQUIRED);
  EXPECT_EQ(VX_Duplicate_Message(copy_, &second, RLE, VX_RLE_Compressor, nullptr), VX_DECOMPRESSOR_REQUIRED);
  // The same syntax without functions: the items as they are.
  EXPECT_EQ(value(copied(copy_, RLE, {})), value(copy_));
}

TEST_F(Duplicate, LosslessChainsBringBackTheSamePixels) {
  // Frames of an odd number of bytes are padded in each item, and not between frames of the native value.
  for (const Image& image :
       {Image{.rows = 5, .columns = 7, .frames = 3},
        Image{.rows = 6, .columns = 7, .allocated = 16, .stored = 12, .is_signed = 1, .frames = 2},
        Image{.rows = 5, .columns = 7, .samples = 3, .frames = 3, .photometric = "RGB"}}) {
    const std::string pixels = native(image, 7);
    set_bool(VX_CFG_UPDATE_GROUP_0028_ON_DUPLICATE, true);
    int32_t at = id_;
    for (const VX_TRANSFER_SYNTAX syntax : {RLE, JPEG_LOSSLESS_HIER_14, JPEG_LS_LOSSLESS,
                                            JPEG_2000_LOSSLESS_ONLY, HTJ2K_LOSSLESS, JPEG_XL_LOSSLESS, RLE}) {
      at = copied(at, syntax);
      EXPECT_EQ(text(at, 0x00280004),
                image.samples == 3 && (syntax == JPEG_2000_LOSSLESS_ONLY || syntax == HTJ2K_LOSSLESS)
                    ? "YBR_RCT"
                    : image.photometric);
    }
    EXPECT_EQ(text(at, 0x00280004), image.photometric);
    EXPECT_EQ(text(at, 0x00282110), "#" + std::to_string(VX_INVALID_TAG));
    ASSERT_EQ(duplicate(at, EXPLICIT_LITTLE_ENDIAN), VX_NORMAL_COMPLETION);
    EXPECT_TRUE(value(copy_) == pixels);
  }
}

TEST_F(Duplicate, SingleBitsFollowWithoutAGapWhereTheyAreNative) {
  const std::string bits("\x5A\xC3\x99\x0F\xF1\x1E", 6);  // three frames of fifteen
  describe(id_, {.rows = 3, .columns = 5, .allocated = 1, .stored = 1, .frames = 3});
  VX_Set_Message_Transfer_Syntax(id_, EXPLICIT_LITTLE_ENDIAN);
  for (const std::size_t piece : {1U, 6U}) {
    set_value(id_, bits, piece);
    ASSERT_EQ(duplicate(id_, RLE, kGeneral), VX_NORMAL_COMPLETION);
    const char* const frames[] = {"\x5A\x43", "\x33\x1F", "\xC4\x7B"};
    for (int32_t i = 0; i < 3; ++i) EXPECT_EQ(frame_of(copy_, i), frames[i]) << i;
    EXPECT_EQ(value(copied(copy_, EXPLICIT_LITTLE_ENDIAN)), bits);
  }
}

// Whatever colour transforms the syntaxes on the way use, the label tells what the bytes are.
TEST_F(Duplicate, TheLabelFollowsTheBytes) {
  set_bool(VX_CFG_UPDATE_GROUP_0028_ON_DUPLICATE, true);
  set_int(VX_CFG_COMPRESSION_LUM_FACTOR, 2);
  set_int(VX_CFG_COMPRESSION_CHROM_FACTOR, 2);
  Image rgb{.rows = 32, .columns = 32, .samples = 3, .photometric = "RGB"};
  native(rgb, 4);
  std::string pixels(rgb.frame_size(), '\0');  // smooth, so that halved chrominance costs little
  for (std::size_t i = 0; i < pixels.size(); ++i)
    pixels[i] = static_cast<char>(i % 3 == 0 ? i / 96 * 7 : i % 3 == 1 ? 255 - i / 96 * 5 : i % 96 * 2);
  set_value(id_, pixels, 1000);
  struct Step {
    VX_TRANSFER_SYNTAX syntax;
    const char* label;
  };
  int32_t at = id_;
  for (const Step& step : {Step{JPEG_2000_LOSSLESS_ONLY, "YBR_RCT"},
                           {JPEG_BASELINE, "YBR_FULL_422"},
                           {JPEG_2000, "YBR_RCT"},
                           {RLE, "RGB"},
                           {HTJ2K_LOSSLESS_RPCL, "YBR_RCT"},
                           {HTJ2K, "YBR_ICT"},
                           {JPEG_LS_LOSSLESS, "RGB"},
                           {JPEG_BASELINE, "YBR_FULL_422"},
                           {EXPLICIT_LITTLE_ENDIAN, "RGB"}}) {
    at = copied(at, step.syntax);
    EXPECT_EQ(text(at, 0x00280004), step.label) << step.syntax;
  }
  const std::string frame = frame_of(at, 0);
  ASSERT_EQ(frame.size(), pixels.size());
  for (std::size_t i = 0; i < frame.size(); ++i)
    ASSERT_LE(std::abs(static_cast<uint8_t>(frame[i]) - static_cast<uint8_t>(pixels[i])), 12) << i;
}

// Each frame keeps its JPEG stream, and the object all that it says; what is no such stream is refused.
TEST_F(Duplicate, RecompressionKeepsTheStream) {
  set_bool(VX_CFG_UPDATE_GROUP_0028_ON_DUPLICATE, true);
  const std::string refusal = "This transfer syntax keeps JPEG streams";
  for (const Image& image :
       {Image{.rows = 19, .columns = 21, .frames = 3},
        Image{.rows = 19, .columns = 21, .samples = 3, .frames = 2, .photometric = "RGB"}}) {
    native(image, 5);
    EXPECT_EQ(duplicate(id_, JPEG_XL_RECOMPRESSION), VX_CALLBACK_CANNOT_COMPLY);
    EXPECT_TRUE(has_log(refusal));
    const int32_t jpeg = copied(id_, JPEG_BASELINE, kGeneral);
    const int32_t xl = copied(jpeg, JPEG_XL_RECOMPRESSION);
    EXPECT_EQ(text(xl, 0x00280004), text(jpeg, 0x00280004));
    EXPECT_EQ(text(xl, 0x00282112), text(jpeg, 0x00282112));
    for (const VX_TRANSFER_SYNTAX syntax : {JPEG_BASELINE, JPEG_EXTENDED_2_4, JPEG_FULL_PROG_NON_HIER_10_12})
      EXPECT_TRUE(value(copied(xl, syntax, kGeneral)) == value(jpeg)) << syntax;
    for (const VX_TRANSFER_SYNTAX syntax : {EXPLICIT_LITTLE_ENDIAN, JPEG_LS_LOSSLESS}) {
      const int32_t a = copied(jpeg, syntax, codecs_of(syntax));
      const int32_t b = copied(xl, syntax, codecs_of(syntax));
      EXPECT_TRUE(value(a) == value(b)) << syntax;
      EXPECT_EQ(text(a, 0x00280004), text(b, 0x00280004));
    }
    // Codecs of the application's are asked, and can not do it.
    VX_Register_Compression_Callbacks(jpeg, nullptr, VX_Standard_Decompressor);
    EXPECT_EQ(duplicate(jpeg, JPEG_XL_RECOMPRESSION), VX_CALLBACK_CANNOT_COMPLY);
  }
  native({.rows = 20, .columns = 20, .allocated = 16, .stored = 12, .frames = 2}, 5);
  EXPECT_EQ(duplicate(copied(id_, JPEG_EXTENDED_2_4, kGeneral), JPEG_XL_RECOMPRESSION),
            VX_COMPRESSION_FAILURE);
  EXPECT_TRUE(has_log("Frame 1 of 2 can not keep its JPEG stream: "));
  const int32_t bare = copied(id_, JPEG_XL_LOSSLESS);
  VX_Set_Message_Transfer_Syntax(bare, JPEG_XL_RECOMPRESSION);
  EXPECT_EQ(duplicate(bare, JPEG_BASELINE, kGeneral), VX_COMPRESSION_FAILURE);
  EXPECT_TRUE(has_log("does not hold what a JPEG stream is rebuilt from"));
}

TEST_F(Duplicate, PlanesBecomePixelsWhereTheSyntaxWantsThem) {
  const Image planar{.rows = 4, .columns = 6, .samples = 3, .planar = 1, .frames = 2, .photometric = "RGB"};
  const std::string pixels = native(planar, 3);
  ASSERT_EQ(duplicate(id_, JPEG_LS_LOSSLESS), VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(copy_, 0x00280006), "0");
  const std::string frame = frame_of(copy_, 1);
  ASSERT_EQ(frame.size(), 72U);
  for (std::size_t i = 0; i < 72; ++i) ASSERT_EQ(frame[i], pixels[72 + i % 3 * 24 + i / 3]);
  ASSERT_EQ(duplicate(id_, RLE), VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(copy_, 0x00280006), "1");
}

TEST_F(Duplicate, LossyCopiesSaySo) {
  set_bool(VX_CFG_UPDATE_GROUP_0028_ON_DUPLICATE, true);
  set_bool(VX_CFG_COMPRESSION_WHEN_J2K_USE_LOSSY, true);
  set_bool(VX_CFG_COMPRESSION_J2K_LOSSY_USE_QUALITY, false);
  for (const uint32_t tag : {0x00282110U, 0x00282112U, 0x00282114U}) {
    VX_Add_Nonstandard_Attribute(id_, tag, tag == 0x00282112U ? VX_VR_DS : VX_VR_CS);
  }
  VX_Add_Nonstandard_Attribute(id_, 0x00082111, VX_VR_ST);
  const Image rgb{.rows = 32, .columns = 32, .samples = 3, .photometric = "RGB"};
  native(rgb, 4);
  VX_Set_Value_From_String(id_, 0x00080008, "ORIGINAL");
  VX_Set_Next_Value_From_String(id_, 0x00080008, "PRIMARY");
  ASSERT_EQ(duplicate(id_, JPEG_2000), VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(copy_, 0x00280004), "YBR_ICT");
  EXPECT_EQ(text(copy_, 0x00282110), "01");
  EXPECT_EQ(text(copy_, 0x00282114), "ISO_15444_1");
  EXPECT_EQ(text(copy_, 0x00082111), "JPEG 2000 Lossy: Compression Ratio: 10.00:1");
  EXPECT_GT(std::atof(text(copy_, 0x00282112).c_str()), 5);
  EXPECT_EQ(text(copy_, 0x00080008), "DERIVED");
  ASSERT_EQ(duplicate(id_, HTJ2K), VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(copy_, 0x00280004), "YBR_ICT");
  EXPECT_EQ(text(copy_, 0x00282114), "ISO_15444_15");
  EXPECT_EQ(text(copy_, 0x00082111), "High-Throughput JPEG 2000 Lossy: Compression Quality parameter: 90");
  ASSERT_EQ(duplicate(id_, JPEG_XL), VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(copy_, 0x00280004), "XYB");
  EXPECT_EQ(text(copy_, 0x00282114), "ISO_18181_1");
  EXPECT_EQ(text(copy_, 0x00082111), "JPEG XL Lossy: Quality: 90");
  EXPECT_EQ(text(copied(copy_, EXPLICIT_LITTLE_ENDIAN), 0x00280004), "RGB");
  // Packed colour comes back under the label that its bytes have.
  ASSERT_EQ(duplicate(id_, JPEG_BASELINE), VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(copy_, 0x00280004), "YBR_FULL_422");
  EXPECT_EQ(text(copy_, 0x00082111),
            "JPEG Baseline (Process 1): Luminance Factor: 32, Chrominance Factor: 32");
  for (const VX_TRANSFER_SYNTAX syntax : {EXPLICIT_LITTLE_ENDIAN, JPEG_LS_LOSSLESS}) {
    const int32_t back = copied(copy_, syntax);
    EXPECT_EQ(text(back, 0x00280004), "RGB");
    EXPECT_EQ(frame_of(back, 0).size(), rgb.frame_size());
  }
  // Without relabelling the bytes stay packed.
  set_bool(VX_CFG_UPDATE_GROUP_0028_ON_DUPLICATE, false);
  const int32_t packed = copied(copy_, EXPLICIT_LITTLE_ENDIAN);
  EXPECT_EQ(text(packed, 0x00280004), "YBR_FULL_422");
  EXPECT_EQ(value(packed).size(), rgb.frame_size() / 3 * 2);
  ASSERT_EQ(duplicate(id_, JPEG_LS_LOSSY), VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(copy_, 0x00282110).substr(0, 1), "#");
}

TEST_F(Duplicate, SequencesInSequencesHaveALimit) {
  int32_t inner = -1;
  for (int level = 0; level < 140; ++level) {
    int32_t outer = -1;
    ASSERT_EQ(VX_Open_Empty_Item(&outer), VX_NORMAL_COMPLETION);
    if (inner >= 0) {
      ASSERT_EQ(VX_Set_Value_From_Int(outer, 0x00081140, inner), VX_NORMAL_COMPLETION);
    }
    inner = outer;
  }
  ASSERT_EQ(VX_Set_Value_From_Int(id_, 0x00081140, inner), VX_NORMAL_COMPLETION);
  EXPECT_EQ(duplicate(id_, IMPLICIT_LITTLE_ENDIAN), VX_INVALID_VALUE_FOR_VR);
}

TEST_F(Duplicate, PixelDataThatDoesNotFitItsFrames) {
  const Image image{.rows = 4, .columns = 4, .frames = 2};
  const std::string pixels = native(image, 2);
  set_value(id_, pixels.substr(0, 10), 4);
  EXPECT_EQ(duplicate(id_, RLE), VX_CANNOT_COMPLY);
  EXPECT_TRUE(has_log("Missing data: 6 bytes of 16 bytes in frame."));
  set_value(id_, pixels + "padding!", 4);
  EXPECT_EQ(duplicate(id_, RLE), VX_NORMAL_COMPLETION);
  EXPECT_TRUE(has_log("There are 8 bytes more than the current frame size of 16"));
  set_value(id_, pixels.substr(0, 20), 4);
  EXPECT_EQ(duplicate(id_, RLE), VX_NORMAL_COMPLETION);
  EXPECT_EQ(frame_of(copy_, 0), pixels.substr(0, 16));
  // A frame of which nothing is there is missing, on the way in and on the way out.
  set_value(id_, pixels, 4);
  for (const auto& [size, count] : {std::pair{32, 5}, {20, 3}}) {
    set_value(id_, pixels.substr(0, static_cast<std::size_t>(size)), 4);
    VX_Set_Value_From_Int(id_, 0x00280008, count);
    EXPECT_EQ(duplicate(id_, RLE), VX_CANNOT_COMPLY) << size;
  }
  native(image, 2);
  const int32_t packed = copied(id_, RLE);
  VX_Set_Value_From_Int(packed, 0x00280008, 5);
  EXPECT_EQ(duplicate(packed, EXPLICIT_LITTLE_ENDIAN), VX_CANNOT_COMPLY);
  EXPECT_EQ(duplicate(packed, JPEG_LS_LOSSLESS), VX_CANNOT_COMPLY);
}

// What the general compressor takes beyond the others, and under which label it comes back.
TEST_F(Duplicate, TheGeneralCompressorTakesWhatTheFieldHas) {
  set_bool(VX_CFG_UPDATE_GROUP_0028_ON_DUPLICATE, true);
  const Image palette{.rows = 5, .columns = 7, .frames = 2, .photometric = "PALETTE COLOR"};
  const Image ybr{.rows = 5, .columns = 7, .samples = 3, .frames = 2, .photometric = "YBR_FULL"};
  Image rgb16 = ybr;
  rgb16.allocated = rgb16.stored = 16;
  rgb16.photometric = "RGB";
  const Image long_words{.rows = 5, .columns = 7, .allocated = 32, .stored = 20, .frames = 2};
  Image planar16 = rgb16;
  planar16.planar = 1;
  uint32_t seed = 70;
  for (const VX_TRANSFER_SYNTAX syntax :
       {RLE, JPEG_LOSSLESS_HIER_14, JPEG_LS_LOSSLESS, JPEG_2000_LOSSLESS_ONLY, JPEG_2000}) {
    for (const Image& image : {palette, ybr, rgb16, planar16, long_words}) {
      SCOPED_TRACE(testing::Message() << syntax << ' ' << image.photometric << ' ' << image.allocated);
      std::string pixels = native(image, ++seed);
      int32_t packed = -1;
      const VX_STATUS status =
          VX_Duplicate_Message(id_, &packed, syntax, VX_General_Compressor, VX_General_Decompressor);
      const bool taken = syntax == RLE || image.allocated != 32;
      ASSERT_EQ(status, taken ? VX_NORMAL_COMPLETION : VX_CALLBACK_CANNOT_COMPLY);
      if (taken) {
        ASSERT_EQ(duplicate(packed, EXPLICIT_LITTLE_ENDIAN), VX_NORMAL_COMPLETION);
        EXPECT_EQ(text(copy_, 0x00280004), image.photometric);
        if (image.planar == 1 && syntax != RLE) pixels = by_pixel(pixels, image);
        EXPECT_TRUE(value(copy_) == pixels);
      }
      VX_Free_Message(&packed);
    }
  }
  // Half colour has no planes of its own, and numbers of colours stand no loss.
  struct Refused {
    VX_TRANSFER_SYNTAX syntax;
    const char* photometric;
  };
  for (const Refused& refused :
       {Refused{RLE, "YBR_FULL_422"}, {JPEG_BASELINE, "PALETTE COLOR"}, {JPEG_LS_LOSSY, "PALETTE COLOR"}}) {
    Image image{.rows = 4, .columns = 6, .photometric = refused.photometric};
    if (refused.syntax == RLE) image.samples = 3;
    native(image, 3);
    EXPECT_EQ(duplicate(id_, refused.syntax, kGeneral), VX_CALLBACK_CANNOT_COMPLY) << refused.photometric;
  }
}

// Colour that is not subsampled keeps its label: then it is no YCbCr.
TEST_F(Duplicate, ColourThatIsNotSubsampledStaysRgb) {
  set_bool(VX_CFG_UPDATE_GROUP_0028_ON_DUPLICATE, true);
  VX_Set_String_Config_Value(VX_CFG_COMPRESSION_RGB_TRANSFORM_FORMAT, "YBR_FULL");
  const Image rgb{.rows = 9, .columns = 11, .samples = 3, .photometric = "RGB"};
  std::string pixels = native(rgb, 4);
  for (std::size_t i = 0; i < 297; ++i) pixels[i] = "\xE0\x10\x60"[i % 3];
  set_value(id_, pixels, 1000);
  ASSERT_EQ(duplicate(id_, JPEG_BASELINE), VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(copy_, 0x00280004), "RGB");
  // Component identifiers and the marker both say what the samples are.
  EXPECT_NE(value(copy_).find(std::string("Adobe\0d\0\0\0\0\0", 12)), std::string::npos);
  EXPECT_NE(value(copy_).find(std::string("\3R\x11\0G\x11\0B\x11", 10)), std::string::npos);
  const int32_t back = copied(copy_, EXPLICIT_LITTLE_ENDIAN);
  EXPECT_EQ(text(back, 0x00280004), "RGB");
  for (std::size_t i = 0; i < 297; ++i)
    EXPECT_LE(std::abs(static_cast<uint8_t>(value(back)[i]) - static_cast<uint8_t>(pixels[i])), 8) << i;
}

}  // namespace
