// Values that a callback of an application holds, on both roads.
#include <map>

#include "codec/streams.h"

namespace {

using namespace streams;
using support::LibraryTest;

constexpr uint32_t kPixels = 0x7FE00010;
constexpr uint32_t kDocument = 0x00420011;

// What a callback was asked and told, and what it answers.
struct Holder {
  std::vector<int> requests;
  std::string data;  // given and taken
  uint32_t announced = 0;
  int64_t offset = -1;
  uint32_t length = 0;
  std::size_t piece = 100;
  std::size_t at = 0;
  bool end_early = false;
  int refuse = 0;

  static VX_STATUS call(int32_t, uint32_t, void* user, VX_CALLBACK_REQUEST request, uint32_t* size,
                        void** data, int32_t first, int32_t* last) {
    return static_cast<Holder*>(user)->answer(request, size, data, first, last);
  }
  VX_STATUS answer(VX_CALLBACK_REQUEST request, uint32_t* size, void** bytes, int32_t first, int32_t* last) {
    if (requests.empty() || requests.back() != request) requests.push_back(request);
    if (request == refuse) return VX_CANNOT_COMPLY;
    switch (request) {
      case VX_REQUEST_LENGTH:
        *size = length;
        break;
      case VX_REQUEST_DATA: {
        if (first != 0) at = 0;
        const std::size_t part = std::min(piece, data.size() - at);
        *size = static_cast<uint32_t>(part);
        *bytes = data.data() + at;
        at += part;
        *last = at == data.size() || end_early ? 1 : 0;
        break;
      }
      case VX_PROVIDE_LENGTH:
      case VX_PROVIDE_LENGTH_KEPT:
        announced = *size;
        if (*bytes != nullptr) offset = *static_cast<uint32_t*>(*bytes);
        break;
      case VX_PROVIDE_DATA:
        if (*size > 0) data.append(static_cast<const char*>(*bytes), *size);
        break;
      default:
        break;
    }
    return VX_NORMAL_COMPLETION;
  }
};

class Callbacks : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    ASSERT_EQ(VX_Register_Application(&app_, "HOLDER"), VX_NORMAL_COMPLETION);
  }
  void hold(uint32_t tag, Holder& holder) {
    ASSERT_EQ(VX_Register_Callback_Function(app_, tag, &holder, &Holder::call), VX_NORMAL_COMPLETION);
  }
  static std::string file(const std::string& data_set, const char* syntax = "1.2.840.10008.1.2.1") {
    std::string uid = syntax;
    uid.resize((uid.size() + 1) & ~std::size_t{1}, '\0');
    return std::string(128, '\0') + "DICM" + Writer().element(0x00020010, "UI", uid).str() + data_set;
  }
  VX_STATUS open(int32_t& id, const std::string& stream, bool bypass, std::size_t block = 0) {
    EXPECT_EQ(VX_Create_Empty_File(&id, "x"), VX_NORMAL_COMPLETION);
    Source source{stream, block};
    return bypass ? VX_Open_File_Bypass_OBOW(app_, id, &source, &file_input)
                  : VX_Open_File(app_, id, &source, &file_input);
  }
  int32_t app_ = -1;
};

TEST_F(Callbacks, AValueGoesToItsHolderWithItsOffset) {
  const std::string value(300000, 'v');
  const std::string head = file(Writer().element(0x00100020, "LO", "ID").str());
  const std::string stream =
      head + Writer().element(kDocument, "OB", value).element(kPixels, "OW", "abcd").str();
  for (const std::size_t block : {0UL, 2048UL}) {
    Holder holder;
    hold(kDocument, holder);
    int32_t id = -1;
    ASSERT_EQ(open(id, stream, false, block), VX_NORMAL_COMPLETION);
    EXPECT_EQ(holder.announced, value.size());
    EXPECT_EQ(holder.offset, static_cast<int64_t>(head.size() + 12));
    EXPECT_TRUE(holder.data == value);
    EXPECT_EQ(bytes(id, kPixels), "abcd");
    VX_Free_File(&id);
  }
}

TEST_F(Callbacks, ShortValuesStayInMemory) {
  set_long(VX_CFG_CALLBACK_MIN_DATA_SIZE, 5);
  Holder holder;
  hold(kDocument, holder);
  int32_t id = -1;
  ASSERT_EQ(open(id, file(Writer().element(kDocument, "OB", "abcd").str()), false), VX_NORMAL_COMPLETION);
  EXPECT_EQ(bytes(id, kDocument), "abcd");
  EXPECT_TRUE(holder.requests.empty());
  VX_Free_File(&id);
}

TEST_F(Callbacks, ABypassLeavesTheValueAndReadsOn) {
  const std::string tail = Writer().element(0xFFFCFFFC, "OB", "tail").str();
  const std::string encapsulated =
      Writer().item(0).item(6).raw("frame1").item(8).raw("fragment").sequence_end().str();
  struct Case {
    std::string stream;
    uint32_t announced;
  };
  const Case cases[] = {
      {file(Writer().element(kPixels, "OW", "abcdef").str() + tail), 6},
      {file(Writer().header(kPixels, "OB", 0xFFFFFFFFU).raw(encapsulated).str() + tail,
            "1.2.840.10008.1.2.5"),
       0xFFFFFFFFU},
  };
  for (const Case& c : cases) {
    Holder holder;
    hold(kPixels, holder);
    int32_t id = -1;
    ASSERT_EQ(open(id, c.stream, true, 2), VX_NORMAL_COMPLETION);
    EXPECT_EQ(holder.requests, std::vector<int>{VX_PROVIDE_LENGTH_KEPT});
    EXPECT_EQ(holder.announced, c.announced);
    EXPECT_EQ(c.stream.substr(static_cast<std::size_t>(holder.offset), 4),
              c.announced == 6 ? std::string("abcd") : std::string("\xFE\xFF\0\xE0", 4));
    EXPECT_EQ(bytes(id, 0xFFFCFFFC), "tail");
    VX_Free_File(&id);
  }
}

TEST_F(Callbacks, StopsAtATagWithItsValueUnread) {
  const std::string head = file(Writer().element(0x00100020, "LO", "ID").str());
  const std::string stream = head + Writer().element(kPixels, "OW", "abcdef").str();
  int32_t id = -1;
  uint32_t offset = 0;
  ASSERT_EQ(VX_Create_Empty_File(&id, "x"), VX_NORMAL_COMPLETION);
  Source source{stream, 0};
  ASSERT_EQ(VX_Open_File_Upto_Tag_Bypass_Value(app_, id, &source, kPixels, &offset, &file_input),
            VX_NORMAL_COMPLETION);
  EXPECT_EQ(offset, head.size() + 12);
  uint32_t length = 0;
  EXPECT_EQ(VX_Get_Value_Length(id, kPixels, 1, &length), VX_NORMAL_COMPLETION);
  EXPECT_EQ(length, 6U);
  Sink sink;  // a value that is not there cannot be written
  EXPECT_EQ(VX_Write_File(id, 0, &sink, &file_output), VX_TOO_FEW_VALUES);
  VX_Free_File(&id);

  ASSERT_EQ(VX_Create_Empty_File(&id, "x"), VX_NORMAL_COMPLETION);
  Source again{stream, 0};
  ASSERT_EQ(VX_Open_File_Upto_Tag(app_, id, &again, 0x00100020, &offset, &file_input), VX_NORMAL_COMPLETION);
  EXPECT_EQ(offset, head.size());
  EXPECT_EQ(text(id, 0x00100020), "ID");
  EXPECT_FALSE(has(id, kPixels));
  VX_Free_File(&id);
}

TEST_F(Callbacks, RefusalsEndTheRead) {
  for (const int request : {VX_PROVIDE_LENGTH, VX_PROVIDE_DATA}) {
    Holder holder;
    holder.refuse = request;
    hold(kDocument, holder);
    int32_t id = -1;
    EXPECT_EQ(open(id, file(Writer().element(kDocument, "OB", "abcd").str()), false),
              VX_CALLBACK_CANNOT_COMPLY);
    VX_Free_File(&id);
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
      int32_t id = -1;
      ASSERT_EQ(VX_Create_Empty_File(&id, "x"), VX_NORMAL_COMPLETION);
      VX_Set_Value_From_String(id, 0x00020010, syntax);
      VX_Add_Standard_Attribute(id, kPixels);
      Sink sink;
      EXPECT_EQ(VX_Write_File_By_Callback(app_, id, 0, &sink, &file_output), c.status);
      if (c.status == VX_NORMAL_COMPLETION) {
        int32_t read = -1;
        VX_Release_Callback_Function(app_, kPixels);
        ASSERT_EQ(open(read, sink.bytes, false), VX_NORMAL_COMPLETION);
        EXPECT_EQ(bytes(read, kPixels), c.data.substr(0, c.length));
        VX_Free_File(&read);
      }
      int32_t count = 0;  // and it is unbound again
      EXPECT_EQ(VX_Get_Value_Count(id, kPixels, &count), VX_EMPTY_VALUE);
      VX_Free_File(&id);
    }
  }
}

}  // namespace
