// Values that a callback holds: registration, binding, and the calls that go through it.
#include "model/callbacks.h"

#include <cstring>
#include <string>
#include <vector>

#include "model/values.h"
#include "value_fixture.h"

namespace {

// Holds a value in pieces and writes down what it is asked.
struct Holder {
  std::vector<std::string> pieces;
  uint32_t length = 0;
  VX_STATUS status = VX_NORMAL_COMPLETION;
  bool says_last = false;
  std::size_t at = 0;
  std::string calls;  // D piece asked, L length asked, P(bytes) piece given, F freed

  VX_STATUS answer(VX_CALLBACK_REQUEST request, uint32_t* size, void** data, int32_t first, int32_t* last) {
    switch (request) {
      case VX_REQUEST_LENGTH:
        calls += 'L';
        *size = length;
        break;
      case VX_REQUEST_DATA:
        calls += 'D';
        if (first != 0) at = 0;
        *size = static_cast<uint32_t>(pieces.at(at).size());
        *data = pieces[at++].data();
        *last = says_last && at == pieces.size() ? 1 : 0;
        break;
      case VX_PROVIDE_DATA:
        calls += "P" + std::string(first != 0 ? "^" : "") + std::string(static_cast<char*>(*data), *size) +
                 (*last != 0 ? "$" : "");
        break;
      case VX_FREE_DATA:
        calls += 'F';
        break;
      default:
        calls += '?';
    }
    return status;
  }
  static VX_STATUS plain(int32_t, uint32_t, void* user, VX_CALLBACK_REQUEST request, uint32_t* size,
                         void** data, int32_t first, int32_t* last) {
    return static_cast<Holder*>(user)->answer(request, size, data, first, last);
  }
  static VX_STATUS other(int32_t, uint32_t, void* user, VX_CALLBACK_REQUEST, uint32_t* size, void**, int32_t,
                         int32_t*) {
    static_cast<Holder*>(user)->calls += 'O';
    *size = 0;
    return VX_NORMAL_COMPLETION;
  }
  static VX_STATUS by_triple(int32_t, const char* code, uint16_t group, uint8_t element, void* user,
                             VX_CALLBACK_REQUEST request, uint32_t* size, void** data, int32_t first,
                             int32_t* last) {
    EXPECT_STREQ(code, "ME");
    EXPECT_EQ(group, 0x0009);
    EXPECT_EQ(element, 0x42);
    return plain(0, 0, user, request, size, data, first, last);
  }
};

VX_STATUS collect(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t first, int32_t last) {
  return support::mark_piece(user, size, data, first, last);
}

constexpr uint32_t kPixels = 0x7FE00010;

class Callbacks : public support::ModelTest {
 protected:
  void SetUp() override {
    ModelTest::SetUp();
    ASSERT_EQ(VX_Register_Application(&app, "CALLBACKS"), VX_NORMAL_COMPLETION);
  }
  vx::Stored storage(uint32_t tag) { return find(tag)->Storage; }
  // Registers `holder` for the pixels and binds it.
  void bind(Holder& holder, VX_VR vr = VX_VR_OW) {
    ASSERT_EQ(vx::new_tag(object(), kPixels, vr, 1, 1, nullptr), VX_NORMAL_COMPLETION);
    ASSERT_EQ(VX_Register_Callback_Function(app, kPixels, &holder, Holder::plain), VX_NORMAL_COMPLETION);
    ASSERT_EQ(VX_Set_Message_Callbacks(app, id), VX_NORMAL_COMPLETION);
    ASSERT_TRUE(storage(kPixels) == vx::Stored::ByCallback);
  }
  int32_t app = -1;
};

TEST_F(Callbacks, RegistrationAndItsRefusals) {
  Holder holder;
  const std::string too_long(600, 'X');
  const struct {
    VX_STATUS status, expected;
  } kRows[] = {
      {VX_Register_Callback_Function(app, kPixels, &holder, nullptr), VX_NULL_POINTER_PARM},
      {VX_Register_Callback_Function(app, 0x00091010, &holder, Holder::plain), VX_INVALID_TAG},
      {VX_Register_Callback_Function(-1, kPixels, &holder, Holder::plain), VX_INVALID_APPLICATION_ID},
      {VX_Register_pCallback_Function(app, nullptr, 9, 1, &holder, Holder::by_triple), VX_NULL_POINTER_PARM},
      {VX_Register_pCallback_Function(app, too_long.c_str(), 9, 1, &holder, Holder::by_triple),
       VX_INVALID_PRIVATE_CODE},
      {VX_Release_Callback_Function(app, kPixels), VX_INVALID_TAG},
      {VX_Register_Callback_Function(app, kPixels, &holder, Holder::plain), VX_NORMAL_COMPLETION},
      {VX_Register_Callback_Function(app, kPixels, &holder, Holder::other), VX_NORMAL_COMPLETION},
      {VX_Register_pCallback_Function(app, "ME", 9, 0x42, &holder, Holder::by_triple), VX_NORMAL_COMPLETION},
      {VX_Release_pCallback_Function(app, "ME", 9, 0x43), VX_INVALID_TAG},
      {VX_Release_pCallback_Function(app, "ME  ", 9, 0x42), VX_NORMAL_COMPLETION},
      {VX_Release_Callback_Function(app, kPixels), VX_NORMAL_COMPLETION},
      {VX_Release_Callback_Function(app, kPixels), VX_INVALID_TAG},
      {VX_Set_Message_Callbacks(app, -1), VX_INVALID_MESSAGE_ID},
      {VX_Set_Message_Callbacks(-1, id), VX_INVALID_APPLICATION_ID},
  };
  for (const auto& row : kRows) EXPECT_EQ(row.status, row.expected) << &row - kRows;
}

TEST_F(Callbacks, OnlyBulkAttributesWithoutValueAreBound) {
  Holder holder;
  const struct {
    uint32_t tag;
    VX_VR vr;
    bool has_value;
    vx::Stored storage;
  } kRows[] = {{0x00280010, VX_VR_US, false, vx::Stored::InMemory},
               {0x00282000, VX_VR_OB, false, vx::Stored::ByCallback},
               {0x00282001, VX_VR_OB, true, vx::Stored::InMemory},
               {0x00282002, VX_VR_UN, false, vx::Stored::InMemory},
               {0x00282003, VX_VR_OF, false, vx::Stored::ByCallback},
               {0x00282004, VX_VR_LO, false, vx::Stored::InMemory}};
  for (const auto& row : kRows) {
    ASSERT_EQ(vx::new_tag(object(), row.tag, row.vr, 1, 1, nullptr), VX_NORMAL_COMPLETION);
    if (row.has_value) {
      ASSERT_EQ(VX_Set_Value_From_Buffer(id, row.tag, "abcd", 4), VX_NORMAL_COMPLETION);
    }
    ASSERT_EQ(VX_Register_Callback_Function(app, row.tag, &holder, Holder::plain), VX_NORMAL_COMPLETION);
  }
  ASSERT_EQ(VX_Set_Message_Callbacks(app, id), VX_NORMAL_COMPLETION);
  for (const auto& row : kRows) EXPECT_TRUE(storage(row.tag) == row.storage) << std::hex << row.tag;
  // Bindings outlive their registration; a cleared attribute is free again.
  ASSERT_EQ(VX_Release_Callback_Function(app, 0x00282000), VX_NORMAL_COMPLETION);
  EXPECT_TRUE(storage(0x00282000) == vx::Stored::ByCallback);
  ASSERT_EQ(VX_Set_Value_To_Empty(id, 0x00282000), VX_NORMAL_COMPLETION);
  EXPECT_TRUE(storage(0x00282000) == vx::Stored::InMemory);
  vx::unbind_all(*vx::find_application(app), object());
  EXPECT_TRUE(storage(0x00282003) == vx::Stored::InMemory);
  EXPECT_EQ(object().Callbacks.Count, 0);
}

TEST_F(Callbacks, ReadingStopsAtTheLengthOrTheLastPiece) {
  const struct {
    std::vector<std::string> pieces;
    uint32_t length;
    bool says_last;
    std::string seen;
    VX_STATUS expected;
  } kRows[] = {{{"abcd", "ef"}, 6, false, "^abcd|ef$", VX_NORMAL_COMPLETION},
               {{"abcd", "efgh"}, 6, false, "^abcd|ef$", VX_NORMAL_COMPLETION},
               {{"abcd", "ef"}, 60, true, "^abcd|ef$", VX_NORMAL_COMPLETION},
               {{"", "ab"}, 2, false, "^|ab$", VX_NORMAL_COMPLETION},
               {{"ab"}, 0, false, "", VX_EMPTY_VALUE}};
  Holder holder;
  bind(holder);
  for (const auto& row : kRows) {
    holder = Holder{row.pieces, row.length, VX_NORMAL_COMPLETION, row.says_last, 0, ""};
    std::string seen;
    EXPECT_EQ(VX_Get_Value_To_Function(id, kPixels, &seen, collect), row.expected);
    EXPECT_EQ(seen, row.seen);
    EXPECT_EQ(length(kPixels), row.length == 0 ? -VX_EMPTY_VALUE : static_cast<int32_t>(row.length));
  }
  holder.status = VX_CANNOT_COMPLY;
  std::string seen;
  EXPECT_EQ(VX_Get_Value_To_Function(id, kPixels, &seen, collect), VX_CALLBACK_CANNOT_COMPLY);
  EXPECT_EQ(length(kPixels), -VX_CALLBACK_CANNOT_COMPLY);
  EXPECT_EQ(VX_Byte_Swap_OBOW(id, kPixels), VX_CALLBACK_REGISTERED);
}

VX_STATUS two_pieces(int32_t, uint32_t, int32_t first, void* user, int32_t* size, void** data,
                     int32_t* last) {
  static char bytes[] = "abcdef";
  *size = first != 0 ? 4 : 2;
  *data = first != 0 ? bytes : bytes + 4;
  *last = first != 0 || user != nullptr ? 0 : 1;
  if (first == 0 && user != nullptr && --*static_cast<int*>(user) < 0) {
    *size = 0;
    *last = 1;
  }
  return VX_NORMAL_COMPLETION;
}

TEST_F(Callbacks, WritingGoesToTheCallback) {
  Holder holder;
  bind(holder);
  EXPECT_EQ(VX_Set_Value_From_Function(id, kPixels, nullptr, two_pieces), VX_NORMAL_COMPLETION);
  EXPECT_EQ(holder.calls, "P^abcdPef$");
  EXPECT_EQ(count(kPixels), 1);
  holder.calls.clear();
  int more = 1;
  EXPECT_EQ(VX_Set_Value_From_Function(id, kPixels, &more, two_pieces), VX_NORMAL_COMPLETION);
  EXPECT_EQ(holder.calls, "P^abcdPefP$") << "an end without data is told as well";
  holder.status = VX_TIMEOUT;
  EXPECT_EQ(VX_Set_Value_From_Function(id, kPixels, nullptr, two_pieces), VX_TIMEOUT);
  holder.status = VX_NORMAL_COMPLETION;
  // Swapped bytes come in pieces of the work buffer.
  VX_Set_Int_Config_Value(VX_CFG_WORK_BUFFER_SIZE, 1024);
  holder.calls.clear();
  std::string words;
  for (int i = 0; i < 1100; ++i) words += i % 2 == 0 ? 'a' : 'b';
  EXPECT_EQ(vx::store_value(object(), *find(kPixels), words.data(), 1100,
                            {.from_stream = true, .big_endian = true}),
            VX_NORMAL_COMPLETION);
  EXPECT_EQ(holder.calls.size(), 1100 + 4U);
  EXPECT_EQ(holder.calls.substr(0, 6), "P^baba");
  EXPECT_EQ(holder.calls.substr(holder.calls.size() - 3), "ba$");
}

TEST_F(Callbacks, FreeDataIsToldWhenTheSiteWantsIt) {
  Holder holder;
  bind(holder);
  VX_Set_Value_To_Empty(id, kPixels);
  EXPECT_EQ(holder.calls, "");
  VX_Set_Bool_Config_Value(VX_CFG_USE_FREE_DATA_CALLBACK, 1);
  VX_Set_Message_Callbacks(app, id);
  holder.calls.clear();
  holder.status = VX_CANNOT_COMPLY;  // only logged
  EXPECT_EQ(VX_Set_Value_To_Empty(id, kPixels), VX_NORMAL_COMPLETION);
  EXPECT_EQ(holder.calls, "F");
  VX_Set_Message_Callbacks(app, id);
  holder.calls.clear();
  EXPECT_EQ(VX_Free_Message(&id), VX_NORMAL_COMPLETION);
  EXPECT_EQ(holder.calls, "F");
}

TEST_F(Callbacks, PrivateAttributesAreFoundByTheirCreator) {
  Holder holder{{"abcd"}, 4, VX_NORMAL_COMPLETION, false, 0, ""};
  Holder stranger;
  VX_Add_Private_Block(id, "YOU", 9);
  VX_Add_Private_Attribute(id, "YOU", 9, 0x42, VX_VR_OB);
  VX_Add_Private_Block(id, "ME", 9);
  VX_Add_Private_Attribute(id, "ME", 9, 0x42, VX_VR_OB);
  ASSERT_EQ(VX_Register_pCallback_Function(app, "NOBODY", 9, 0x42, &stranger, Holder::by_triple),
            VX_NORMAL_COMPLETION);
  ASSERT_EQ(VX_Register_pCallback_Function(app, "ME ", 9, 0x42, &holder, Holder::by_triple),
            VX_NORMAL_COMPLETION);
  for (const uint32_t tag : {0x00091042U, 0x00091142U}) vx::bind_one(app, object(), *find(tag));
  EXPECT_TRUE(storage(0x00091042) == vx::Stored::InMemory);
  ASSERT_TRUE(storage(0x00091142) == vx::Stored::ByCallback);
  std::string seen;
  EXPECT_EQ(VX_Get_pValue_To_Function(id, "ME", 9, 0x42, &seen, collect), VX_NORMAL_COMPLETION);
  EXPECT_EQ(seen, "^abcd$");
  EXPECT_EQ(VX_Delete_Private_Block(id, "ME", 9), VX_NORMAL_COMPLETION);
  EXPECT_EQ(object().Callbacks.Count, 0);
}

}  // namespace
