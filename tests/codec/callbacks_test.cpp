// Values that a callback of an application holds, on both roads.
#include "codec/holder.h"
#include "codec/streams.h"

namespace {

using namespace streams;
using support::LibraryTest;

constexpr uint32_t kPixels = 0x7FE00010;
constexpr uint32_t kDocument = 0x00420011;

class Callbacks : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    ASSERT_EQ(VX_Register_Application(&app_, "HOLDER"), VX_NORMAL_COMPLETION);
  }
  void hold(uint32_t tag, Holder& holder) {
    ASSERT_EQ(VX_Register_Callback_Function(app_, tag, &holder, &Holder::call), VX_NORMAL_COMPLETION);
  }
  VX_STATUS open(int32_t id, const std::string& stream, bool bypass = false, std::size_t block = 0) const {
    Source source{stream, block};
    return bypass ? VX_Open_File_Bypass_OBOW(app_, id, &source, &file_input)
                  : VX_Open_File(app_, id, &source, &file_input);
  }
  int32_t app_ = -1;
};

TEST_F(Callbacks, AValueGoesToItsHolderWithItsOffset) {
  const std::string value(300000, 'v');
  const std::string head = file_of(elements({{0x00100020, "LO", "ID"}}));
  const std::string stream = head + elements({{kDocument, "OB", value}, {kPixels, "OW", "abcd"}});
  for (const std::size_t block : {0UL, 2048UL}) {
    Holder holder;
    hold(kDocument, holder);
    const Object id(new_file);
    ASSERT_EQ(open(id, stream, false, block), VX_NORMAL_COMPLETION);
    EXPECT_EQ(holder.announced, value.size());
    EXPECT_EQ(holder.offset, static_cast<int64_t>(head.size() + 12));
    EXPECT_TRUE(holder.data == value);
    EXPECT_EQ(bytes(id, kPixels), "abcd");
  }
}

TEST_F(Callbacks, ShortValuesStayInMemory) {
  set_long(VX_CFG_CALLBACK_MIN_DATA_SIZE, 5);
  Holder holder;
  hold(kDocument, holder);
  const Object id(new_file);
  ASSERT_EQ(open(id, file_of(elements({{kDocument, "OB", "abcd"}}))), VX_NORMAL_COMPLETION);
  EXPECT_EQ(bytes(id, kDocument), "abcd");
  EXPECT_TRUE(holder.requests.empty());
}

TEST_F(Callbacks, ABypassLeavesTheValueAndReadsOn) {
  const std::string tail = elements({{0xFFFCFFFC, "OB", "tail"}});
  const std::string encapsulated =
      Writer().item(0).item(6).raw("frame1").item(8).raw("fragment").sequence_end().str();
  struct Case {
    std::string stream;
    uint32_t announced;
  };
  const Case cases[] = {
      {file_of(elements({{kPixels, "OW", "abcdef"}}) + tail), 6},
      {file_of(Writer().header(kPixels, "OB", 0xFFFFFFFFU).raw(encapsulated).str() + tail,
               "1.2.840.10008.1.2.5"),
       0xFFFFFFFFU},
  };
  for (const Case& c : cases) {
    Holder holder;
    hold(kPixels, holder);
    const Object id(new_file);
    ASSERT_EQ(open(id, c.stream, true, 2), VX_NORMAL_COMPLETION);
    EXPECT_EQ(holder.requests, std::vector<int>{VX_PROVIDE_LENGTH_KEPT});
    EXPECT_EQ(holder.announced, c.announced);
    EXPECT_EQ(c.stream.substr(static_cast<std::size_t>(holder.offset), 4),
              c.announced == 6 ? std::string("abcd") : std::string("\xFE\xFF\0\xE0", 4));
    EXPECT_EQ(bytes(id, 0xFFFCFFFC), "tail");
  }
}

TEST_F(Callbacks, StopsAtATagWithItsValueUnread) {
  const std::string head = file_of(elements({{0x00100020, "LO", "ID"}}));
  const std::string stream = head + elements({{kPixels, "OW", "abcdef"}});
  const Object id(new_file);
  uint32_t offset = 0;
  Source source{stream, 0};
  ASSERT_EQ(VX_Open_File_Upto_Tag_Bypass_Value(app_, id, &source, kPixels, &offset, &file_input),
            VX_NORMAL_COMPLETION);
  EXPECT_EQ(offset, head.size() + 12);
  uint32_t length = 0;
  EXPECT_EQ(VX_Get_Value_Length(id, kPixels, 1, &length), VX_NORMAL_COMPLETION);
  EXPECT_EQ(length, 6U);
  write_file(id, 0, VX_TOO_FEW_VALUES);  // a value that is not there cannot be written

  const Object other(new_file);
  Source again{stream, 0};
  ASSERT_EQ(VX_Open_File_Upto_Tag(app_, other, &again, 0x00100020, &offset, &file_input),
            VX_NORMAL_COMPLETION);
  EXPECT_EQ(offset, head.size());
  EXPECT_EQ(text(other, 0x00100020), "ID");
  EXPECT_FALSE(has(other, kPixels));
}

TEST_F(Callbacks, RefusalsEndTheRead) {
  for (const int request : {VX_PROVIDE_LENGTH, VX_PROVIDE_DATA}) {
    Holder holder;
    holder.refuse = request;
    hold(kDocument, holder);
    const Object id(new_file);
    EXPECT_EQ(open(id, file_of(elements({{kDocument, "OB", "abcd"}}))), VX_CALLBACK_CANNOT_COMPLY);
  }
}

TEST_F(Callbacks, WritesWhatTheHolderGives) {
  struct Case {
    const char* what;
    uint32_t length;
    std::string data;
    bool end_early;
    VX_STATUS status;
  };
  const Case cases[] = {
      {"in pieces", 250, std::string(250, 'd'), false, VX_NORMAL_COMPLETION},
      {"empty", 0, "", false, VX_NORMAL_COMPLETION},
      {"more than announced", 100, std::string(250, 'd'), false, VX_NORMAL_COMPLETION},
      {"too little", 250, std::string(200, 'd'), false, VX_TOO_FEW_VALUES},
      {"last too early", 250, std::string(250, 'd'), true, VX_TOO_FEW_VALUES},
      {"odd length", 251, std::string(251, 'd'), false, VX_CALLBACK_CANNOT_COMPLY},
      {"undefined in a native syntax", 0xFFFFFFFFU, "dd", false, VX_CALLBACK_CANNOT_COMPLY},
  };
  for (const Case& c : cases) {
    for (const char* syntax : {"1.2.840.10008.1.2.1", "1.2.840.10008.1.2.2"}) {
      SCOPED_TRACE(c.what);
      Holder holder;
      holder.length = c.length;
      holder.data = c.data;
      holder.end_early = c.end_early;
      holder.piece = 77;  // elements span pieces
      hold(kPixels, holder);
      const Object id(new_file);
      VX_Set_Value_From_String(id, 0x00020010, syntax);
      VX_Add_Standard_Attribute(id, kPixels);
      Sink sink;
      EXPECT_EQ(VX_Write_File_By_Callback(app_, id, 0, &sink, &file_output), c.status);
      if (c.status == VX_NORMAL_COMPLETION) {
        const Object read(new_file);
        VX_Release_Callback_Function(app_, kPixels);
        ASSERT_EQ(open(read, sink.bytes), VX_NORMAL_COMPLETION);
        EXPECT_EQ(bytes(read, kPixels), c.data.substr(0, c.length));
      }
      int32_t count = 0;  // and it is unbound again
      EXPECT_EQ(VX_Get_Value_Count(id, kPixels, &count), VX_EMPTY_VALUE);
    }
  }
}

}  // namespace
