// Values built and taken apart without a codec: items, tables, frames.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "codec/holder.h"
#include "model/callbacks.h"
#include "model/file_values.h"
#include "pixels.h"

namespace {

using namespace pixels;

const std::string kA = "aaaa", kB = "bbbbbb", kC = "cc";
const std::vector<std::string> kAll{kA, kB, kC};
const std::string kNoMore = no_frame(VX_NO_MORE_VALUES);

class Encapsulated : public PixelTest {
 protected:
  // Three frames of 4 bytes in the image's eyes; what is stored has any size.
  void prepare_frames(int frames) {
    prepare(RLE, {.rows = 2, .columns = 2, .frames = frames});
    clear_log();
  }
  // Set one after the other, and closed.
  void store(const std::vector<Feed>& frames) {
    for (const Feed& frame : frames) {
      ASSERT_EQ(set_frame(id_, &frame == frames.data(), frame), VX_NORMAL_COMPLETION);
    }
    ASSERT_EQ(VX_Close_Encapsulated_Value(id_, kPixelData), VX_NORMAL_COMPLETION);
  }
};

TEST_F(Encapsulated, FramesBecomeItemsAndTheTableGrows) {
  prepare_frames(3);
  store({{.bytes = kA, .piece = 2}, {.bytes = kB}, {.bytes = kC, .piece = 0, .late_last = true}});
  EXPECT_EQ(value(id_), table({0, 20, 34}) + item("aa") + item("aa") + item(kB) + item(kC) + kDelimiter);
  Taken offsets;
  ASSERT_EQ(VX_Get_Offset_Table_To_Function(id_, &offsets, &take), VX_NORMAL_COMPLETION);
  EXPECT_EQ(offsets.bytes, le32(12) + le32(0) + le32(20) + le32(34));
  EXPECT_EQ(all_frames(), kAll);
  Taken more;
  EXPECT_EQ(VX_Get_Next_Encapsulated_Value_To_Function(id_, kPixelData, &more, &take), VX_NO_MORE_VALUES);

  set_bool(VX_CFG_CREATE_OFFSET_TABLE, false);
  store({{.bytes = kA}, {.bytes = kB}});
  EXPECT_EQ(value(id_), table({}) + item(kA) + item(kB) + kDelimiter);
  Taken none;
  EXPECT_EQ(VX_Get_Offset_Table_To_Function(id_, &none, &take), VX_EMPTY_VALUE);
}

TEST_F(Encapsulated, ALongTableIsRewrittenInPlace) {
  prepare_frames(500);
  std::vector<uint32_t> offsets;
  for (uint32_t i = 0; i < 500; ++i) offsets.push_back(i * 10);
  store(std::vector<Feed>(500, {.bytes = "xy"}));
  EXPECT_EQ(value(id_).substr(0, 8 + 2000), table(offsets));
  EXPECT_EQ(frame(499), "xy");
}

TEST_F(Encapsulated, RefusalsOfAWriter) {
  prepare_frames(1);
  EXPECT_EQ(VX_Close_Encapsulated_Value(id_, kPixelData), VX_INVALID_TAG);
  EXPECT_EQ(set_frame(id_, true, {.bytes = "odd"}), VX_CALLBACK_DATA_SIZE_UNEVEN);
  const auto no_buffer = [](int32_t, uint32_t, int32_t, void*, uint32_t* size, void** data, int32_t* last) {
    *size = 2;
    *data = nullptr;
    *last = 1;
    return static_cast<VX_STATUS>(VX_NORMAL_COMPLETION);
  };
  EXPECT_EQ(VX_Set_Encapsulated_Value_From_Function(id_, kPixelData, nullptr, no_buffer),
            VX_CALLBACK_PARM_ERROR);
  const auto fails_late = [](int32_t, uint32_t, int32_t first, void*, uint32_t* size, void** data,
                             int32_t* last) {
    static char bytes[2];
    *size = 2;
    *data = bytes;
    *last = 0;
    return static_cast<VX_STATUS>(first != 0 ? VX_NORMAL_COMPLETION : VX_CANNOT_COMPLY);
  };
  EXPECT_EQ(VX_Set_Encapsulated_Value_From_Function(id_, kPixelData, nullptr, fails_late),
            VX_CALLBACK_CANNOT_COMPLY);
  uint32_t length = 0;
  char buffer[8];
  EXPECT_EQ(VX_Get_Value_To_Buffer(id_, kPixelData, 8, buffer, &length), VX_EMPTY_VALUE);
  VX_Set_Message_Transfer_Syntax(id_, EXPLICIT_LITTLE_ENDIAN);
  EXPECT_EQ(set_frame(id_, true, {.bytes = "ab"}), VX_INVALID_TRANSFER_SYNTAX);
  EXPECT_EQ(VX_Register_Compression_Callbacks(id_, nullptr, nullptr), VX_INVALID_TRANSFER_SYNTAX);
}

// Whatever the pieces of a value and its fragments, the same frames come out.
TEST_F(Encapsulated, EverySplitOfEveryLayoutGivesTheSameFrames) {
  const std::string head = table({0, 20, 34});
  const std::string body = item("aa") + item("aa") + item(kB) + item(kC);
  const std::string with_empty_fragments =
      table({0, 28, 50}) + item("aa") + item("") + item("aa") + item(kB) + item("") + item(kC);
  const std::string odd_fragments =
      table({0, 20, 42}) + item("a") + item("aaa") + item("bbb") + item("bbb") + item("cc");
  prepare_frames(3);
  for (const std::string& stored : {head + body + kDelimiter, head + body, with_empty_fragments + kDelimiter,
                                    odd_fragments + kDelimiter}) {
    for (std::size_t piece = 1; piece <= stored.size(); ++piece) {
      SCOPED_TRACE(testing::Message() << stored.size() << " bytes in pieces of " << piece);
      set_value(id_, stored, piece);
      ASSERT_EQ(all_frames(), kAll);
      for (const int number : {2, 0, 1, 1, 2, 0}) {
        ASSERT_EQ(frame(number), kAll[static_cast<std::size_t>(number)]);
      }
      // A walk goes on behind the frame that was asked for.
      Taken next;
      ASSERT_EQ(VX_Get_Next_Encapsulated_Value_To_Function(id_, kPixelData, &next, &take), VX_END_OF_FRAME);
      ASSERT_EQ(next.bytes, kB);
      ASSERT_EQ(frame(3), kNoMore);
    }
  }
}

TEST_F(Encapsulated, WithoutATableEachFragmentIsAFrameAndTheWholeIsOneRun) {
  prepare_frames(3);
  const std::string stored = table({}) + item(kA) + item(kB) + item(kC) + kDelimiter;
  for (std::size_t piece = 1; piece <= stored.size(); ++piece) {
    set_value(id_, stored, piece);
    for (const int number : {1, 2, 0}) ASSERT_EQ(frame(number), kAll[static_cast<std::size_t>(number)]);
    ASSERT_EQ(frame(3), kNoMore);
    ASSERT_EQ(all_frames(), std::vector<std::string>{kA + kB + kC});
  }
  // An image of one frame has it in all its fragments, whatever its table says.
  prepare_frames(1);
  for (const auto& head : {table({}), table({0}), table({0, 12, 999})}) {
    set_value(id_, head + item(kA) + item(kB) + kDelimiter, 7);
    EXPECT_EQ(frame(0), kA + kB);
    EXPECT_EQ(frame(1), kNoMore);
  }
}

TEST_F(Encapsulated, ATableThatDoesNotFitIsPassedOver) {
  prepare_frames(3);
  const std::string body = item(kA) + item(kB) + item(kC) + kDelimiter;
  for (const auto& offsets : std::vector<std::vector<uint32_t>>{
           {0, 0, 0}, {0, 26, 12}, {0, 12, 4000}, {4, 12, 26}, {0xFFFFFFFFU, 1, 2}}) {
    set_value(id_, table(offsets) + body, 5);
    EXPECT_EQ(frame(2), kC);
    EXPECT_TRUE(has_log("offset table does not fit"));
    clear_log();
  }
  // Inside its value, but between the fragments: noticed before anything is delivered.
  for (const auto& offsets : std::vector<std::vector<uint32_t>>{{0, 14, 28}, {0, 12, 27}, {0, 11, 26}}) {
    for (const int number : {0, 1, 2}) {
      set_value(id_, table(offsets) + body, 5);
      EXPECT_EQ(frame(number), kAll[static_cast<std::size_t>(number)]) << offsets[1];
    }
    EXPECT_TRUE(has_log("offset table does not fit")) << offsets[1];
    clear_log();
    set_value(id_, table(offsets) + body, 5);
    all_frames();
    EXPECT_TRUE(has_log("offset table does not fit")) << offsets[1];
    clear_log();
  }
}

// More fragments than frames and no table that tells: code streams begin and end by their marks.
TEST_F(Encapsulated, FragmentsThatOutnumberTheFrames) {
  prepare(JPEG_BASELINE, {.rows = 2, .columns = 2, .frames = 2});
  const std::string begin("\xFF\xD8", 2), end("\xFF\xD9", 2), pad("\xFF\xD9\0", 3);
  const std::string body = item(begin + "aa") + item("a" + pad) + item(begin + "b" + end + '\0') + kDelimiter;
  for (const auto& head : {table({}), table({0, 14}), table({0, 24, 30})}) {
    for (const std::size_t piece : {1, 3, 100}) {
      set_value(id_, head + body, piece);
      EXPECT_EQ(frame(1), begin + "b" + end + '\0');
      EXPECT_EQ(frame(0), begin + "aaa" + pad);
      EXPECT_EQ(frame(2), kNoMore);
    }
  }
}

TEST_F(Encapsulated, BrokenValues) {
  prepare_frames(2);
  const std::string good = table({0, 12}) + item(kA) + item(kC) + kDelimiter;
  const auto status_of = [&](const std::string& stored) {
    set_value(id_, stored, 3);
    std::vector<std::string> frames;
    frame(1);
    return get_frames(id_, frames);
  };
  EXPECT_EQ(status_of(good.substr(0, 7)), VX_ENCAPSULATED_TOO_SHORT);
  std::string wrong = good;
  wrong[4] = '\x7F';
  EXPECT_EQ(status_of(wrong), VX_ENCAPSULATED_TOO_SHORT);
  for (const std::size_t at : {16, 17, 18, 19}) {
    wrong = good;
    wrong[at] = 'x';
    EXPECT_EQ(status_of(wrong), VX_MISSING_DELIMITER) << at;
    EXPECT_TRUE(has_log("VXI_SEGMENT_WAITING_DELIMITER"));
  }
  // Whatever is cut or changed ends in a status.
  for (std::size_t at = 0; at < good.size(); ++at) {
    status_of(good.substr(0, at));
    for (int bit = 0; bit < 8; ++bit) {
      wrong = good;
      wrong[at] = static_cast<char>(wrong[at] ^ (1 << bit));
      status_of(wrong);
    }
  }
}

TEST_F(Encapsulated, NativeFramesByNumber) {
  VX_Set_Message_Transfer_Syntax(id_, EXPLICIT_LITTLE_ENDIAN);
  describe(id_, {.rows = 2, .columns = 2, .frames = 3});
  for (std::size_t piece = 1; piece <= 12; ++piece) {
    set_value(id_, "aaaabbbbcccc", piece);
    EXPECT_EQ(frame(1), "bbbb");
    EXPECT_EQ(frame(2), "cccc");
    EXPECT_EQ(frame(3), kNoMore);
    EXPECT_EQ(frame(-1), no_frame(VX_EMPTY_VALUE));
  }
  set_value(id_, "aaaabb", 2);
  EXPECT_EQ(frame(1), kNoMore);
}

TEST_F(Encapsulated, AValueThatACallbackHolds) {
  prepare_frames(3);
  int32_t app = -1;
  streams::Holder holder;
  holder.length = streams::Holder::kWhatIsThere;
  holder.piece = 5;
  ASSERT_EQ(VX_Register_Application(&app, "PIXELS"), VX_NORMAL_COMPLETION);
  ASSERT_EQ(VX_Register_Callback_Function(app, kPixelData, &holder, &streams::Holder::call),
            VX_NORMAL_COMPLETION);
  VX_Add_Standard_Attribute(id_, kPixelData);
  ASSERT_EQ(VX_Set_Message_Callbacks(app, id_), VX_NORMAL_COMPLETION);
  store({{.bytes = kA}, {.bytes = kB}, {.bytes = kC}});
  EXPECT_EQ(holder.table, table({0, 12, 26}));
  EXPECT_EQ(holder.data, item(kA) + item(kB) + item(kC) + kDelimiter);
  EXPECT_EQ(all_frames(), kAll);
  EXPECT_EQ(frame(1), kB);
}

// Frames and their growing table on temporary files, the disk full anywhere: each call ends in a status, and
// the object takes the same frames when there is room again. The limit bites in the file of the data first,
// in that of the table first, and in either file of data that goes on in a second one.
TEST_F(Encapsulated, TheTableOnFilesWithTheDiskFullAnywhere) {
  support::TempFolder large;
  set_text(VX_CFG_LARGE_DATA_STORE, "FILE");
  set_text(VX_CFG_TEMP_FILE_DIRECTORY, large.path());
  set_int(VX_CFG_LARGE_DATA_SIZE, 200);
  set_int(VX_CFG_OBOW_BUFFER_SIZE, 4096);
  VX_Free_Message(&id_);  // an object keeps the settings that it was made under
  ASSERT_EQ(VX_Open_Empty_Message(&id_), VX_NORMAL_COMPLETION);
  struct Frames {
    int count;
    std::size_t bytes;
    rlim_t last_limit, step;
    int64_t of_one_file;
  };
  const int64_t real_limit = vx::file_limit;
  for (const Frames& f : {Frames{40, 300, 13000, 97, real_limit},
                          {300, 200, 1400, 53, real_limit},
                          {30, 300, 6300, 61, 6000}}) {
    vx::file_limit = f.of_one_file;
    prepare_frames(f.count);
    const std::string pixels(f.bytes, 'f');
    const auto write = [&] {
      VX_STATUS status = VX_NORMAL_COMPLETION;
      for (int i = 0; i < f.count && status == VX_NORMAL_COMPLETION; ++i)
        status = set_frame(id_, i == 0, {.bytes = pixels});
      return status == VX_NORMAL_COMPLETION ? VX_Close_Encapsulated_Value(id_, kPixelData) : status;
    };
    const pid_t child = ::fork();
    if (child == 0) {
      std::signal(SIGXFSZ, SIG_IGN);
      int failures = 0, full = 0;
      for (rlim_t limit = 0; limit < f.last_limit; limit += f.step) {
        for (const rlim_t room : {limit, RLIM_INFINITY}) {
          const rlimit now{room, RLIM_INFINITY};
          ::setrlimit(RLIMIT_FSIZE, &now);
          const VX_STATUS status = write();
          const rlimit open{RLIM_INFINITY, RLIM_INFINITY};
          ::setrlimit(RLIMIT_FSIZE, &open);
          full += status == VX_TEMP_FILE_ERROR ? 1 : 0;
          if (status != VX_NORMAL_COMPLETION) {
            failures += status == VX_TEMP_FILE_ERROR && room != RLIM_INFINITY ? 0 : 1;
            continue;
          }
          for (const int number : {f.count - 1, 0, f.count / 2}) failures += frame(number) == pixels ? 0 : 1;
        }
      }
      ::_exit(failures != 0 ? std::min(failures, 100) : full < 10 ? 101 : 0);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0);
  }
  vx::file_limit = real_limit;
}

}  // namespace
