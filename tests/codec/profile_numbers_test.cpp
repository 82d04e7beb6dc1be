// Every number that a profile may give, at its extremes: what is read and written stays the same, and ends.
#include "codec/streams.h"
#include "config/keys.h"

namespace {

using namespace streams;

class ProfileNumbers : public support::LibraryTest {
 protected:
  void SetUp() override {}
  std::string ini_lines() override { return of_log_ ? line_ : ""; }
  std::string profile_lines() override {
    return "LARGE_DATA_STORE = " + store_ + "\nTEMP_FILE_DIRECTORY = " + folder().path() + "\n" +
           (of_log_ ? "" : line_);
  }
  void set(const char* name, vx::Section section, const std::string& value, const char* store) {
    VX_Library_Release();
    of_log_ = section == vx::Section::VexalKit3;
    line_ =
        (of_log_ ? "" : std::string("[") + vx::section_name(section) + "]\n") + name + " = " + value + "\n";
    store_ = store;
    ASSERT_EQ(begin(), VX_NORMAL_COMPLETION) << line_;
    int32_t app = -1;
    ASSERT_EQ(VX_Register_Application(&app, "NUMBERS"), VX_NORMAL_COMPLETION);
    check(app);
  }
  void check(int32_t app) {
    const std::string document(300000, 'd');
    const std::string stream = file_of(
        elements({{0x00100020, "LO", "ID"}, {0x00420011, "OB", document}, {0x00660016, "OF", document}}));
    const Object file(new_file);
    ASSERT_EQ(read_file(app, file, stream), VX_NORMAL_COMPLETION) << line_;
    ASSERT_EQ(VX_File_To_Message(file), VX_NORMAL_COMPLETION);
    for (const VX_TRANSFER_SYNTAX syntax :
         {EXPLICIT_LITTLE_ENDIAN, EXPLICIT_BIG_ENDIAN, DEFLATED_EXPLICIT_LITTLE_ENDIAN}) {
      const Object back;
      EXPECT_EQ(decode(back, encode(file, syntax, VX_NORMAL_COMPLETION, 0x00080000), syntax, 4096, 0x00080000)
                    .status,
                VX_NORMAL_COMPLETION)
          << line_;
      EXPECT_TRUE(bytes(back, 0x00420011) == document) << line_;
      EXPECT_TRUE(bytes(back, 0x00660016) == document) << line_;
    }
  }
  std::string line_, store_;
  bool of_log_ = false;
};

TEST_F(ProfileNumbers, ExtremesNeitherHangNorChangeAnything) {
  for (const char* value : {"", "0", "1", "2147483647"}) {
    for (const vx::IntKey& key : vx::long_keys()) {
      for (const char* store : {"MEM", "FILE"}) set(key.name, key.section, value, store);
    }
    if (*value == '\0') continue;
    for (const vx::IntKey& key : vx::int_keys()) set(key.name, key.section, value, "FILE");
  }
}

}  // namespace
