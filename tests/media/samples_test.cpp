// Real files: each valid one is read, written in every syntax that can hold it, and read again.
#include <cstdlib>
#include <map>

#include "media/media.h"

namespace {

using namespace media;
namespace fs = std::filesystem;

using support::sample_folder;

class Samples : public MediaTest {
 protected:
  void SetUp() override {
    if (!fs::is_directory(sample_folder())) GTEST_SKIP() << "no samples in " << sample_folder();
    MediaTest::SetUp();
    set_bool(VX_CFG_ORVEN_OPEN_FILE, true);
  }
  // The last two columns of the list of files: what is special, and "valid" or what is wrong.
  static std::map<std::string, std::string> states() {
    std::map<std::string, std::string> states;
    std::ifstream list(sample_folder() / "README.md");
    for (std::string line; std::getline(list, line);) {
      const std::size_t tab = line.find('\t');
      if (tab != std::string::npos) states[line.substr(0, tab)] = line.substr(line.rfind('\t') + 1);
    }
    return states;
  }
  VX_STATUS open(int32_t id, const std::string& name, std::size_t block = 0) const {
    return read_file(app_, id, support::read_file(sample_folder() / name), block);
  }
};

TEST_F(Samples, ValidFilesAreReadAndWrittenWithoutLoss) {
  int identical = 0;
  for (const auto& [name, state] : states()) {
    if (state.substr(0, 5) != "valid" || name.find("/stress-") != std::string::npos) continue;
    if (name == "enc/seg-deflated-frame-unknown-ts.dcm") continue;
    SCOPED_TRACE(name);
    const std::string stream = support::read_file(sample_folder() / name);
    const Object id(new_file), again(new_file);
    ASSERT_EQ(read_file(app_, id, stream), VX_NORMAL_COMPLETION);
    // What is written reads back as the same: in the file's syntax, ...
    const std::string written = write_file(id);
    identical += written == stream ? 1 : 0;
    ASSERT_EQ(read_file(app_, again, written, stream.size() < 100000 ? 1022 : 0), VX_NORMAL_COMPLETION);
    EXPECT_TRUE(write_file(again) == written);
    // ... and in every other that can hold its pixels.
    VX_TRANSFER_SYNTAX own = 0;
    VX_Get_Message_Transfer_Syntax(id, &own);
    if (own >= RLE) continue;
    ASSERT_EQ(VX_File_To_Message(id), VX_NORMAL_COMPLETION);
    const std::string plain = encode(id, EXPLICIT_LITTLE_ENDIAN, VX_NORMAL_COMPLETION, 0);
    for (const VX_TRANSFER_SYNTAX syntax : kNative) {
      for (const bool undefined : {false, true}) {
        set_bool(VX_CFG_EXPORT_UNDEFINED_LENGTH_SQ, undefined);
        const std::string encoded = encode(id, syntax, VX_NORMAL_COMPLETION, 0);
        const Object message(encoded, syntax);
        EXPECT_TRUE(encode(message, syntax) == encoded) << syntax;
        set_bool(VX_CFG_EXPORT_UNDEFINED_LENGTH_SQ, false);
        const bool explicit_vr = syntax != IMPLICIT_LITTLE_ENDIAN && syntax != IMPLICIT_BIG_ENDIAN;
        EXPECT_TRUE(!explicit_vr || encode(message, EXPLICIT_LITTLE_ENDIAN) == plain) << syntax;
      }
    }
  }
  EXPECT_GT(identical, 60);
}

TEST_F(Samples, BrokenFilesEndInTheStatusOfTheirFault) {
  const std::map<std::string, VX_STATUS> expected = {
      {"made/broken-131-bytes.dcm", VX_UNEXPECTED_EOD},
      {"made/broken-cut-in-length.dcm", VX_UNEXPECTED_EOD},
      {"made/broken-cut-in-tag.dcm", VX_UNEXPECTED_EOD},
      {"made/broken-deflate-cut.dcm", VX_ZLIB_ERROR},
      {"made/broken-deflate-garbage.dcm", VX_ZLIB_ERROR},
      {"made/broken-deflate-zlib-header.dcm", VX_ZLIB_ERROR},
      {"made/broken-duplicate-tag.dcm", VX_NORMAL_COMPLETION},
      {"made/broken-encaps-no-delimiter.dcm", VX_NORMAL_COMPLETION},
      {"made/broken-group-0000.dcm", VX_OUT_OF_ORDER_TAG},
      {"made/broken-item-tag-at-top.dcm", VX_INVALID_VALUE_FOR_VR},
      {"made/broken-length-past-end.dcm", VX_UNEXPECTED_EOD},
      {"made/broken-meta-glen-long.dcm", VX_NORMAL_COMPLETION},
      {"made/broken-meta-glen-short.dcm", VX_NORMAL_COMPLETION},
      {"made/broken-native-in-encaps-ts.dcm", VX_INVALID_VALUE_FOR_VR},
      {"made/broken-odd-length-values.dcm", VX_INVALID_LENGTH_FOR_VR},
      {"made/broken-sq-holds-element.dcm", VX_INVALID_VALUE_FOR_VR},
      {"made/broken-sq-no-delimiter.dcm", VX_UNEXPECTED_EOD},
      {"made/broken-tags-out-of-order.dcm", VX_OUT_OF_ORDER_TAG},
      {"made/broken-undef-length-on-ut.dcm", VX_VALUE_TOO_LARGE},
      {"made/broken-unknown-ts.dcm", VX_INVALID_TRANSFER_SYNTAX},
      {"made/stress-nested-1000-implicit.dcm", VX_INVALID_VALUE_FOR_VR},
      {"made/stress-nested-1000-undefined.dcm", VX_INVALID_VALUE_FOR_VR},
      {"odd/bulk-3gb-truncated.dcm", VX_UNEXPECTED_EOD},
      {"odd/mr-truncated.dcm", VX_UNEXPECTED_EOD},
      {"odd/rtplan-truncated.dcm", VX_UNEXPECTED_EOD},
  };
  for (const auto& [name, status] : expected) {
    for (const std::size_t block : {0UL, 2UL}) {
      EXPECT_EQ(open(Object(new_file), name, block), status) << name;
    }
  }
}

TEST_F(Samples, EveryFileEndsInAStatus) {
  for (const auto& [name, state] : states()) {
    const VX_STATUS status = open(Object(new_file), name);
    EXPECT_TRUE(status == VX_NORMAL_COMPLETION || status >= 4000) << name;
  }
}

}  // namespace
