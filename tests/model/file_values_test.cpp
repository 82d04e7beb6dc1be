// Large values on temporary files: what lies where, what reads back, and that nothing stays behind.
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <regex>

#include "../codec/streams.h"
#include "value_fixture.h"

namespace {

constexpr uint32_t kPixels = 0x7FE00010;

VX_STATUS collect(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  static_cast<std::vector<std::string>*>(user)->emplace_back(static_cast<char*>(data), size);
  return VX_NORMAL_COMPLETION;
}

struct Frame {
  std::string bytes;
};
VX_STATUS feed(int32_t, uint32_t, int32_t, void* user, uint32_t* size, void** data, int32_t* last) {
  auto& frame = *static_cast<Frame*>(user);
  *data = frame.bytes.data();
  *size = static_cast<uint32_t>(frame.bytes.size());
  *last = 1;
  return VX_NORMAL_COMPLETION;
}

class FileValues : public support::ModelTest {
 protected:
  void SetUp() override {
    ModelTest::SetUp();
    set_text(VX_CFG_LARGE_DATA_STORE, "FILE");
    set_text(VX_CFG_TEMP_FILE_DIRECTORY, large_.path());
    set_int(VX_CFG_LARGE_DATA_SIZE, 200);
    set_int(VX_CFG_OBOW_BUFFER_SIZE, 4096);
    VX_Free_Message(&id);  // an object keeps the settings that it was made under
    id = message();
  }
  static std::string noise(std::size_t size) {
    std::string bytes(size, '\0');
    uint32_t state = static_cast<uint32_t>(size);
    for (char& byte : bytes) byte = static_cast<char>((state = state * 1664525U + 1013904223U) >> 24);
    return bytes;
  }
  VX_STATUS set(uint32_t tag, std::string bytes) const {
    return VX_Set_Value_From_Buffer(id, tag, bytes.data(), static_cast<uint32_t>(bytes.size()));
  }
  static std::vector<std::string> pieces(int32_t id, uint32_t tag) {
    std::vector<std::string> out;
    EXPECT_EQ(VX_Get_Value_To_Function(id, tag, &out, &collect), VX_NORMAL_COMPLETION);
    return out;
  }
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(large_.path())) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  support::TempFolder large_;
};

TEST_F(FileValues, BulkLiesInBlocksAndGoesWithTheValue) {
  const uint32_t tag = attribute(VX_VR_OB);
  ASSERT_EQ(set(tag, noise(199)), VX_NORMAL_COMPLETION);
  EXPECT_TRUE(files().empty());
  const std::string bytes = noise(10000);
  ASSERT_EQ(set(tag, bytes), VX_NORMAL_COMPLETION);
  const auto parts = pieces(id, tag);
  ASSERT_EQ(parts.size(), 3U);
  EXPECT_EQ(parts[2].size(), 1808U);
  EXPECT_EQ(streams::bytes(id, tag), bytes);
  ASSERT_EQ(files().size(), 1U);
  EXPECT_TRUE(std::regex_match(files()[0], std::regex("TID\\d+RND\\d+TAG00991019N1\\.\\d{3,}")))
      << files()[0];
  const std::string path = large_.path(files()[0]);
  struct stat info {};
  ASSERT_EQ(::stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777U, 0600U);
  EXPECT_EQ(info.st_size, 10000 + 3 * 4);
  // Another value, a damaged file, and the end.
  ASSERT_EQ(set(tag, noise(200)), VX_NORMAL_COMPLETION);
  EXPECT_EQ(streams::bytes(id, tag), noise(200));
  ASSERT_EQ(::truncate((large_.path() + "/" + files()[0]).c_str(), 2), 0);
  std::vector<std::string> none;
  EXPECT_EQ(VX_Get_Value_To_Function(id, tag, &none, &collect), VX_EMPTY_VALUE);
  EXPECT_EQ(VX_Set_Value_To_Empty(id, tag), VX_NORMAL_COMPLETION);
  EXPECT_TRUE(files().empty());
  ASSERT_EQ(set(tag, noise(300)), VX_NORMAL_COMPLETION);
  EXPECT_EQ(files().size(), 1U);
  EXPECT_EQ(VX_Free_Message(&id), VX_NORMAL_COMPLETION);
  EXPECT_TRUE(files().empty());
}

TEST_F(FileValues, AResetAndAReleaseLeaveNothing) {
  ASSERT_EQ(set(attribute(VX_VR_OB), noise(5000)), VX_NORMAL_COMPLETION);
  ASSERT_EQ(files().size(), 1U);
  VX_Library_Release();
  EXPECT_TRUE(files().empty());
}

TEST_F(FileValues, TextsAreOneBlockEachAndCanBeDeleted) {
  const uint32_t one = attribute(VX_VR_UT);
  const std::string letters(10000, 'x');
  ASSERT_EQ(VX_Set_Value_From_String(id, one, letters.c_str()), VX_NORMAL_COMPLETION);
  EXPECT_EQ(pieces(id, one).size(), 1U);
  EXPECT_EQ(text(one), letters);

  const uint32_t many = attribute(VX_VR_UC);
  const std::string values[] = {std::string(300, 'a'), std::string(5, 'b'), std::string(400, 'c')};
  for (const std::string& value : values) {
    ASSERT_EQ(VX_Set_Next_Value_From_String(id, many, value.c_str()), VX_NORMAL_COMPLETION);
  }
  EXPECT_EQ(text(many), values[0]);
  EXPECT_EQ(next_text(many), values[1]);
  ASSERT_EQ(VX_Delete_Current_Value(id, many), VX_NORMAL_COMPLETION);
  EXPECT_EQ(next_text(many), values[2]);
  EXPECT_EQ(next_text(many), "#" + std::to_string(VX_NO_MORE_VALUES));
  EXPECT_EQ(count(many), 2);
}

TEST_F(FileValues, FramesGrowTheirTableOnAFileOfItsOwn) {
  ASSERT_EQ(VX_Set_Message_Transfer_Syntax(id, RLE), VX_NORMAL_COMPLETION);
  set_bool(VX_CFG_CREATE_OFFSET_TABLE, true);
  for (const auto& [tag, value] : {std::pair{0x00280002U, 1},
                                   {0x00280008U, 3},
                                   {0x00280010U, 20},
                                   {0x00280011U, 20},
                                   {0x00280100U, 8}}) {
    VX_Set_Value_From_Int(id, tag, value);
  }
  Frame frames[3] = {{noise(5000)}, {noise(10)}, {noise(300)}};
  for (int i = 0; i < 3; ++i) {
    const auto store =
        i == 0 ? VX_Set_Encapsulated_Value_From_Function : VX_Set_Next_Encapsulated_Value_From_Function;
    ASSERT_EQ(store(id, kPixels, &frames[i], &feed), VX_NORMAL_COMPLETION);
  }
  ASSERT_EQ(VX_Close_Encapsulated_Value(id, kPixels), VX_NORMAL_COMPLETION);
  ASSERT_EQ(files().size(), 2U);
  EXPECT_NE(files()[0].find("N0."), std::string::npos);
  for (int i = 2; i >= 0; --i) {
    std::string bytes;
    ASSERT_EQ(VX_Get_Frame_To_Function(id, i, &bytes, &streams::append_piece), VX_NORMAL_COMPLETION);
    EXPECT_EQ(bytes, frames[i].bytes) << i;
  }
  const std::string value = streams::bytes(id, kPixels);
  EXPECT_EQ(value.substr(4, 4), std::string("\x0C\0\0\0", 4));
  EXPECT_EQ(value.size(), 8 + 12 + 3 * 8 + 5310 + 8);
}

// A limit on the size of files at every interesting place: a clear status, no file, and the object goes on.
TEST_F(FileValues, AFullDiskIsAStatusAndTheObjectGoesOn) {
  const uint32_t tag = attribute(VX_VR_OB);
  const std::string bytes = noise(10000);
  const pid_t child = ::fork();
  if (child == 0) {
    std::signal(SIGXFSZ, SIG_IGN);  // for the log, which is a file too
    int failures = 0;
    std::vector<rlim_t> limits{0,    1,    3,    4,    5,    4095,  4096,  4099,
                               4100, 4101, 4104, 8199, 8200, 10011, 10012, 20000};
    for (const rlim_t limit : limits) {
      const rlimit set_limit{limit, RLIM_INFINITY};
      ::setrlimit(RLIMIT_FSIZE, &set_limit);
      VX_Set_Value_To_Empty(id, tag);
      // A file of another process is what the child may not remove; its own it must.
      const VX_STATUS status = set(tag, bytes);
      const rlimit no_limit{RLIM_INFINITY, RLIM_INFINITY};
      ::setrlimit(RLIMIT_FSIZE, &no_limit);
      if (limit < 10012) {
        if (status != VX_TEMP_FILE_ERROR || !files().empty()) ++failures;
        if (set(tag, bytes) != VX_NORMAL_COMPLETION || streams::bytes(id, tag) != bytes) ++failures;
      } else if (status != VX_NORMAL_COMPLETION || streams::bytes(id, tag) != bytes) {
        ++failures;
      }
    }
    ::_exit(failures);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(FileValues, ThroughAStreamInBothOrders) {
  constexpr uint32_t kText = 0x0040A160;
  const std::string words = noise(9000);
  const std::string letters(5001, 'y');
  ASSERT_EQ(set(kPixels, words), VX_NORMAL_COMPLETION);
  ASSERT_EQ(VX_Set_Value_From_String(id, kText, letters.c_str()), VX_NORMAL_COMPLETION);
  VX_Set_Value_From_Int(id, 0x00280100, 16);
  for (const VX_TRANSFER_SYNTAX syntax : {EXPLICIT_LITTLE_ENDIAN, EXPLICIT_BIG_ENDIAN}) {
    {
      const streams::Object back;
      ASSERT_EQ(streams::decode(back, streams::encode(id, syntax), syntax, 1000).status,
                VX_NORMAL_COMPLETION);
      EXPECT_TRUE(streams::bytes(back, kPixels) == words);
      EXPECT_EQ(streams::bytes(back, kText).size(), letters.size());
      EXPECT_EQ(files().size(), 4U);
    }
    EXPECT_EQ(files().size(), 2U);
  }
}

}  // namespace
