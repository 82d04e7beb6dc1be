// Real compressed files: every frame decodes to the pixels that other programs recorded beside the file.
#include <cstdio>
#include <map>
#include <set>

#include "codec/streams.h"
#include "pixels.h"

namespace {

using namespace pixels;
namespace fs = std::filesystem;

using support::sample_folder;

std::string sha256(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
  std::FILE* pipe = ::popen(("sha256sum " + path).c_str(), "r");
  char digits[65] = "";
  if (pipe == nullptr || std::fread(digits, 1, 64, pipe) != 64) digits[0] = '\0';
  if (pipe != nullptr) ::pclose(pipe);
  return digits;
}

class PixelSamples : public support::LibraryTest {
 protected:
  void SetUp() override {
    if (!fs::is_directory(sample_folder())) GTEST_SKIP() << "no samples in " << sample_folder();
    ASSERT_EQ(begin_with_full_data(), VX_NORMAL_COMPLETION);
    ASSERT_EQ(VX_Register_Application(&app_, "PIXELS"), VX_NORMAL_COMPLETION);
    set_bool(VX_CFG_ORVEN_OPEN_FILE, true);
  }
  // The hashes that programs recorded.
  static std::set<std::string> recorded(const std::string& name) {
    std::set<std::string> hashes;
    const std::string text = support::read_file(sample_folder() / "expected" / (name + ".json"));
    const std::string key = "\"sha256_planar0\": \"";
    for (std::size_t at = text.find(key); at != std::string::npos; at = text.find(key, at + 1)) {
      hashes.insert(text.substr(at + key.size(), 64));
    }
    return hashes;
  }
  bool is_recorded(const std::string& name, const std::string& pixels) const {
    return recorded(name).count(sha256(folder().path("pixels"), pixels)) != 0;
  }
  static int number(int32_t id, uint32_t tag, int otherwise) {
    int value = otherwise;
    return VX_Get_Value_To_Int(id, tag, &value) == VX_NORMAL_COMPLETION ? value : otherwise;
  }
  // All frames of a file, pixel by pixel; the status of the first failure.
  VX_STATUS decode(const std::string& name, std::string& pixels) {
    pixels.clear();
    const streams::Object id(streams::new_file);
    VX_STATUS status = streams::read_file(app_, id, support::read_file(sample_folder() / name));
    VX_TRANSFER_SYNTAX syntax = 0;
    if (status == VX_NORMAL_COMPLETION) status = VX_Get_Message_Transfer_Syntax(id, &syntax);
    if (status == VX_NORMAL_COMPLETION) {
      status = VX_Register_Compression_Callbacks(id, nullptr, VX_General_Decompressor);
    }
    const int frames = std::max(number(id, 0x00280008, 1), 1);
    const int samples = number(id, 0x00280002, 1);
    const auto width = static_cast<std::size_t>(number(id, 0x00280100, 8) / 8);
    const auto plane = static_cast<std::size_t>(number(id, 0x00280010, 0)) *
                       static_cast<std::size_t>(number(id, 0x00280011, 0));
    for (int i = 0; i < frames && status == VX_NORMAL_COMPLETION; ++i) {
      std::string frame;
      status = get_frame(id, i, frame);
      frame.resize(std::min(frame.size(), plane * static_cast<std::size_t>(samples) * width));
      if (syntax == RLE && samples == 3 && number(id, 0x00280006, 0) == 1) {
        std::string by_pixel = frame;
        for (std::size_t s = 0; s < 3; ++s) {
          for (std::size_t p = 0; p < plane; ++p) {
            std::memcpy(by_pixel.data() + (3 * p + s) * width, frame.data() + (s * plane + p) * width, width);
          }
        }
        frame.swap(by_pixel);
      }
      pixels += frame;
    }
    return status;
  }
  int32_t app_ = -1;
};

TEST_F(PixelSamples, DecodeToTheRecordedPixels) {
  int equal = 0;
  std::map<std::string, std::string> others;
  for (const char* part : {"ts", "pix", "enc", "obj", "made"}) {
    for (const auto& entry : fs::directory_iterator(sample_folder() / part)) {
      const std::string name = std::string(part) + "/" + entry.path().filename().string();
      const std::set<std::string> hashes = recorded(name);
      if (hashes.empty()) continue;
      const std::string facts = support::read_file(sample_folder() / "expected" / (name + ".json"));
      if (facts.find("\"encapsulated\": {") == std::string::npos) continue;
      std::string pixels;
      const VX_STATUS status = decode(name, pixels);
      if (status == VX_NORMAL_COMPLETION && is_recorded(name, pixels)) {
        ++equal;
      } else {
        others[name] = status == VX_NORMAL_COMPLETION ? "other pixels" : VX_Error_Message(status);
      }
    }
  }
  // Where this library means something else, and files that are broken.
  const std::map<std::string, std::string> meant = {
      {"enc/seg-1bit-j2k.dcm", "other pixels"},         // single bits stay packed
      {"enc/us-mf-jpeg-30frames.dcm", "other pixels"},  // YBR_FULL_422 stays packed
      {"pix/jpeg50-ybr422.dcm", "other pixels"},
      {"pix/j2k90-pixelrep-mismatch.dcm", "other pixels"},  // see below
      {"made/broken-encaps-in-native-ts.dcm", VX_Error_Message(VX_INVALID_TRANSFER_SYNTAX)},
      {"made/broken-rle-long.dcm", VX_Error_Message(VX_COMPRESSION_FAILURE)},
      {"made/broken-rle-short.dcm", VX_Error_Message(VX_COMPRESSION_FAILURE)},
  };
  EXPECT_EQ(others, meant);
  EXPECT_GE(equal, 60);
  // An unsigned stream in an image that calls itself signed: others leave the bits alone, and so does the
  // setting.
  set_bool(VX_CFG_COMPRESSION_J2K_SIGNED_TOLERANCE, true);
  std::string pixels;
  ASSERT_EQ(decode("pix/j2k90-pixelrep-mismatch.dcm", pixels), VX_NORMAL_COMPLETION);
  EXPECT_TRUE(is_recorded("pix/j2k90-pixelrep-mismatch.dcm", pixels));
}

}  // namespace
