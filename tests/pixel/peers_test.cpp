// Other people's programs: what they compress we decompress to the same pixels, and 12 bits with loss both
// ways.
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "pixels.h"

namespace {

using namespace pixels;

struct Stream {
  std::string bytes;
};
VX_STATUS read_bytes(const char*, void* user, uint32_t* size, void** data, int32_t, int32_t* last) {
  auto& bytes = static_cast<Stream*>(user)->bytes;
  *size = static_cast<uint32_t>(bytes.size());
  *data = bytes.data();
  *last = 1;
  return VX_NORMAL_COMPLETION;
}
VX_STATUS write_bytes(const char*, void* user, uint32_t size, void* data, int32_t, int32_t) {
  static_cast<Stream*>(user)->bytes.append(static_cast<const char*>(data), size);
  return VX_NORMAL_COMPLETION;
}

class Peers : public support::LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    for (const char* program : {"dcmdjpeg", "dcmcjpeg", "dcmdjpls", "dcmdrle", "gdcmconv"}) {
      if (std::system((std::string("command -v ") + program + " > /dev/null 2>&1").c_str()) != 0) {
        GTEST_SKIP() << program << " is not there";
      }
    }
    ASSERT_EQ(begin_with_full_data(), VX_NORMAL_COMPLETION);
    ASSERT_EQ(VX_Register_Application(&app_, "PEERS"), VX_NORMAL_COMPLETION);
    set_bool(VX_CFG_ORVEN_OPEN_FILE, true);
  }
  std::string path(const std::string& name) const { return folder().path(name); }
  static bool run(const std::string& command) {
    return std::system((command + " > /dev/null 2>&1").c_str()) == 0;
  }

  // A native file object with the frames of an image, as others accept it.
  int32_t native(const Image& image, std::string& pixels, uint32_t seed) {
    int32_t id = -1;
    EXPECT_EQ(VX_Create_Empty_File(&id, "native"), VX_NORMAL_COMPLETION);
    VX_Set_Message_Transfer_Syntax(id, EXPLICIT_LITTLE_ENDIAN);
    VX_Set_Value_From_String(id, 0x00020002, "1.2.840.10008.5.1.4.1.1.7");
    VX_Set_Value_From_String(id, 0x00020003, "1.2.3.4.5");
    VX_Set_Value_From_String(id, 0x00080016, "1.2.840.10008.5.1.4.1.1.7");
    VX_Set_Value_From_String(id, 0x00080018, "1.2.3.4.5");
    VX_Set_Value_From_String(id, 0x0020000D, "1.2.3.4");
    VX_Set_Value_From_String(id, 0x0020000E, "1.2.3.4.1");
    VX_Set_Value_From_String(id, 0x00100020, "ID");
    VX_Add_Standard_Attribute(id, 0x00280006);
    if (image.samples > 1) VX_Set_Value_From_Int(id, 0x00280006, 0);
    describe(id, image);
    if (image.samples == 1) VX_Delete_Attribute(id, 0x00280006);
    pixels.clear();
    for (int i = 0; i < image.frames; ++i) pixels += picture(image, seed + static_cast<uint32_t>(i));
    if (pixels.size() % 2 != 0) pixels += '\0';
    set_value(id, pixels, 100000);
    if (image.allocated == 16) VX_Set_Value_Representation(id, kPixelData, VX_VR_OW);
    vx::find_tag(*vx::find_object(id), kPixelData)->VR = image.allocated == 16 ? VX_VR_OW : VX_VR_OB;
    return id;
  }
  void save(int32_t id, const std::string& name) {
    Stream stream;
    ASSERT_EQ(VX_Write_File(id, 0, &stream, &write_bytes), VX_NORMAL_COMPLETION);
    std::ofstream(path(name), std::ios::binary) << stream.bytes;
  }
  // All frames of a file in a row, its pad cut; empty when it can not be read.
  std::string pixels_of(const std::string& name, std::size_t size) {
    std::ifstream in(path(name), std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    Stream stream{content.str()};
    int32_t id = -1;
    VX_Create_Empty_File(&id, "read");
    std::string pixels;
    VX_TRANSFER_SYNTAX syntax = 0;
    if (VX_Open_File(app_, id, &stream, &read_bytes) == VX_NORMAL_COMPLETION &&
        VX_Get_Message_Transfer_Syntax(id, &syntax) == VX_NORMAL_COMPLETION) {
      VX_Register_Compression_Callbacks(id, nullptr, VX_General_Decompressor);
      std::string frame;
      int planar = 0;
      VX_Get_Value_To_Int(id, 0x00280006, &planar);
      for (int i = 0; get_frame(id, i, frame) == VX_NORMAL_COMPLETION; ++i) {
        frame.resize(size);
        const std::string planes = frame;  // RLE keeps the order that the file names
        for (std::size_t at = 0; planar == 1 && at < size; ++at)
          frame[at] = planes[at % 3 * (size / 3) + at / 3];
        pixels += frame;
      }
    }
    VX_Free_File(&id);
    return pixels;
  }
  int32_t app_ = -1;
};

const Image kImages[] = {
    {.rows = 37, .columns = 52, .frames = 2},
    {.rows = 37, .columns = 52, .allocated = 16, .stored = 12, .frames = 2},
    {.rows = 37, .columns = 52, .allocated = 16, .stored = 16},
    {.rows = 36, .columns = 51, .allocated = 16, .stored = 16, .is_signed = 1},
    {.rows = 36, .columns = 52, .samples = 3, .frames = 2, .photometric = "RGB"},
};

TEST_F(Peers, CompressWhatWeDecompress) {
  uint32_t seed = 500;
  for (const Image& image : kImages) {
    std::string pixels;
    int32_t id = native(image, pixels, seed += 10);
    save(id, "native.dcm");
    VX_Free_File(&id);
    std::vector<std::string> programs{"dcmcrle",        "dcmcjpls +el",      "dcmcjpeg +e1",
                                      "gdcmconv --rle", "gdcmconv --jpegls", "gdcmconv --j2k",
                                      "gdcmconv --jpeg"};
    for (const std::string& program : programs) {
      SCOPED_TRACE(testing::Message() << program << ", " << image.photometric << ' ' << image.stored);
      ASSERT_TRUE(run(program + " " + path("native.dcm") + " " + path("theirs.dcm")));
      EXPECT_TRUE(pixels_of("theirs.dcm", image.frame_size()) == pixels);
    }
  }
}

// 12 bits through the cosine transform: the other program's inverse transform gives what ours gives, to the
// last step.
TEST_F(Peers, AgreeAboutTwelveBitsWithLoss) {
  const Image image{.rows = 45, .columns = 61, .allocated = 16, .stored = 12, .frames = 2};
  std::string pixels;
  int32_t id = native(image, pixels, 900);
  save(id, "native.dcm");
  const auto largest_difference = [](const std::string& a, const std::string& b) {
    int largest = a.size() == b.size() ? 0 : 1 << 20;
    for (std::size_t i = 0; i + 2 <= a.size() && a.size() == b.size(); i += 2) {
      int16_t x = 0;
      int16_t y = 0;
      std::memcpy(&x, a.data() + i, 2);
      std::memcpy(&y, b.data() + i, 2);
      largest = std::max(largest, std::abs(x - y));
    }
    return largest;
  };
  int32_t copy = -1;
  ASSERT_EQ(
      VX_Duplicate_Message(id, &copy, JPEG_EXTENDED_2_4, VX_Standard_Compressor, VX_Standard_Decompressor),
      VX_NORMAL_COMPLETION);
  save(copy, "ours.dcm");
  const std::pair<const char*, const char*> made[] = {
      {"+ee", "sequential.dcm"}, {"+es", "spectral.dcm"}, {"+ep", "progressive.dcm"}};
  for (const auto& [process, name] : made) {
    ASSERT_TRUE(run(std::string("dcmcjpeg ") + process + " " + path("native.dcm") + " " + path(name)));
  }
  for (const char* name : {"ours.dcm", "sequential.dcm", "spectral.dcm", "progressive.dcm"}) {
    ASSERT_TRUE(run("dcmdjpeg " + path(name) + " " + path("back.dcm")));
    const std::string ours = pixels_of(name, image.frame_size());
    EXPECT_LE(largest_difference(ours, pixels_of("back.dcm", image.frame_size())), 0) << name;
    EXPECT_LE(largest_difference(ours, pixels), 700) << name;
  }
  VX_Free_File(&copy);
  VX_Free_File(&id);
}

}  // namespace
