// Functions of the caller that misbehave: that answer nothing, and that take away what the library works
// with.
#include <functional>

#include "codec/streams.h"

namespace {

using namespace streams;
using support::LibraryTest;

constexpr uint32_t kPixels = 0x7FE00010;
constexpr uint32_t kLong = 0x0040A160;  // UT
constexpr uint32_t kNumbers = 0x0072007C;

// What the function at hand does at its first call, and what it answers with.
struct Caller {
  std::function<void()> act;
  bool nothing_for_ever = false, null_buffer = false;
  int calls = 0;
  std::string taken{};

  VX_STATUS give(uint32_t* size, void** data, int32_t* last) {
    static char bytes[] = "abcd";
    if (calls++ == 0 && act) act();
    *size = nothing_for_ever ? 0 : 4;
    *data = null_buffer || nothing_for_ever ? nullptr : bytes;
    *last = nothing_for_ever ? 0 : 1;
    return VX_NORMAL_COMPLETION;
  }
  VX_STATUS take(uint32_t size, const void* data) {
    if (calls++ == 0 && act) act();
    taken.append(static_cast<const char*>(data), size);
    return VX_NORMAL_COMPLETION;
  }
  static Caller& of(void* user) { return *static_cast<Caller*>(user); }
};

VX_STATUS value(int32_t, uint32_t, void* user, VX_CALLBACK_REQUEST request, uint32_t* size, void** data,
                int32_t, int32_t* last) {
  if (request == VX_REQUEST_DATA) return Caller::of(user).give(size, data, last);
  if (request == VX_REQUEST_LENGTH) *size = 4;
  return VX_NORMAL_COMPLETION;
}
VX_STATUS reader(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  return Caller::of(user).take(size, data);
}
VX_STATUS writer(int32_t, uint32_t, int32_t, void* user, int32_t* size, void** data, int32_t* last) {
  return Caller::of(user).give(reinterpret_cast<uint32_t*>(size), data, last);
}
VX_STATUS frame_writer(int32_t, uint32_t, int32_t, void* user, uint32_t* size, void** data, int32_t* last) {
  return Caller::of(user).give(size, data, last);
}
VX_STATUS output(int32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  return Caller::of(user).take(size, data);
}
VX_STATUS input(int32_t, void* user, int32_t, uint32_t* size, void** data, int32_t* last) {
  return Caller::of(user).give(size, data, last);
}
VX_STATUS text_input(int32_t, void* user, uint32_t* size, void** data, int32_t, int32_t* last) {
  return Caller::of(user).give(size, data, last);
}
VX_STATUS file_give(const char*, void* user, uint32_t* size, void** data, int32_t, int32_t* last) {
  return Caller::of(user).give(size, data, last);
}

class CallerFunctions : public LibraryTest {
 protected:
  VX_STATUS encode_to(Caller& sink, VX_TRANSFER_SYNTAX syntax = EXPLICIT_LITTLE_ENDIAN) const {
    return VX_Message_To_Stream(message_, 0x00080000, 0xFFFFFFFF, syntax, &sink, output);
  }
  static VX_STATUS decode_from(Caller& source, int32_t id) {
    uint32_t tag = 0;
    return VX_Stream_To_Message(id, 0x00080000, 0xFFFFFFFF, EXPLICIT_LITTLE_ENDIAN, &tag, &source, input);
  }
  void SetUp() override {
    LibraryTest::SetUp();
    ASSERT_EQ(VX_Register_Application(&app_, "CALLER"), VX_NORMAL_COMPLETION);
  }
  // A message whose item has a text in pieces, numbers, and pixels that a callback holds.
  void fill(Caller* holder) {
    ASSERT_EQ(VX_Open_Empty_Message(&message_), VX_NORMAL_COMPLETION);
    ASSERT_EQ(VX_Open_Empty_Item(&item_), VX_NORMAL_COMPLETION);
    for (const int32_t id : {message_, item_}) {
      ASSERT_EQ(VX_Set_Value_From_String(id, kLong, std::string(400, 't').c_str()), VX_NORMAL_COMPLETION);
      for (uint32_t i = 0; i < 200; ++i) VX_Set_Next_Value_From_UInt(id, kNumbers, i);
      if (holder == nullptr) continue;
      VX_Add_Standard_Attribute(id, kPixels);
      ASSERT_EQ(VX_Register_Callback_Function(app_, kPixels, holder, &value), VX_NORMAL_COMPLETION);
      ASSERT_EQ(VX_Set_Message_Callbacks(app_, id), VX_NORMAL_COMPLETION);
    }
    ASSERT_EQ(VX_Set_Value_From_Int(message_, 0x00081140, item_), VX_NORMAL_COMPLETION);
  }
  struct Road {
    const char* name;
    std::function<VX_STATUS(Caller&)> run;
    uint32_t tag;         // the attribute that the function is called for; 0 for the object
    bool in_item = true;  // the road works with the item alone
    bool by_value = false;
  };
  // Every way to a function of the caller that reads an object.
  std::vector<Road> reading() {
    return {
        {"value to function",
         [&](Caller& c) { return VX_Get_Value_To_Function(item_, kNumbers, &c, reader); }, kNumbers},
        {"value callback", [&](Caller& c) { return VX_Get_Value_To_Function(item_, kPixels, &c, reader); },
         kPixels, true, true},
        {"encoder", [&](Caller& c) { return encode_to(c); }, 0, false},
        {"encoder, value callback", [&](Caller&) { return encode_to(ignored_); }, kPixels, false, true},
        {"json", [&](Caller& c) { return VX_Message_To_Json(message_, &c, 0, output); }, 0, false},
        {"xml", [&](Caller& c) { return VX_Message_To_XML(message_, &c, 0, output); }, 0, false},
    };
  }
  Caller ignored_{};
  int32_t app_ = -1, message_ = -1, item_ = -1;
};

TEST_F(CallerFunctions, NothingForEverIsNotWaitedForAndNullIsNotRead) {
  for (const bool for_ever : {true, false}) {
    Caller bad{.act = {}, .nothing_for_ever = for_ever, .null_buffer = !for_ever};
    fill(&bad);
    const Object empty, frames, file(new_file);
    int32_t copy = -1;
    ASSERT_EQ(VX_Set_Message_Transfer_Syntax(frames, JPEG_BASELINE), VX_NORMAL_COMPLETION);
    const struct {
      const char* name;
      std::function<VX_STATUS()> run;
    } rows[] = {
        {"encoder", [&] { return encode_to(ignored_); }},
        {"deflating encoder", [&] { return encode_to(ignored_, DEFLATED_EXPLICIT_LITTLE_ENDIAN); }},
        {"value callback", [&] { return VX_Get_Value_To_Function(message_, kPixels, &ignored_, reader); }},
        {"copy",
         [&] { return VX_Duplicate_Message(message_, &copy, EXPLICIT_LITTLE_ENDIAN, nullptr, nullptr); }},
        {"writer", [&] { return VX_Set_Value_From_Function(empty, kPixels, &bad, writer); }},
        {"frame",
         [&] { return VX_Set_Encapsulated_Value_From_Function(frames, kPixels, &bad, frame_writer); }},
        {"stream", [&] { return decode_from(bad, empty); }},
        {"file", [&] { return VX_Open_File(app_, file, &bad, file_give); }},
        {"text", [&] { return VX_Json_To_Message(empty, &bad, text_input); }},
    };
    for (const auto& row : rows) {
      EXPECT_NE(row.run(), VX_NORMAL_COMPLETION) << row.name << (for_ever ? ": nothing" : ": null");
      VX_Free_Message(&copy);
    }
    VX_Free_Message(&message_);
  }
}

// The walk goes on with what it stands on, and nobody else sees it any more.
TEST_F(CallerFunctions, WhatTheyFreeLivesToTheEndOfTheCall) {
  for (const bool item : {true, false}) {
    for (std::size_t i = 0; i < reading().size(); ++i) {
      Caller holder{};
      fill(&holder);
      const Road road = reading()[i];
      Caller reads{};
      int32_t freed = item && road.in_item ? item_ : message_;
      const int32_t id = freed;
      VX_STATUS status = 0;
      (road.by_value ? holder : reads).act = [&] {
        status = freed == item_ ? VX_Delete_Attribute(message_, 0x00081140) : VX_Free_Message(&freed);
      };
      EXPECT_EQ(road.run(reads), VX_NORMAL_COMPLETION) << road.name;
      EXPECT_EQ(status, VX_NORMAL_COMPLETION) << road.name;
      EXPECT_EQ(VX_Get_Attribute_Info(id, kLong, nullptr, nullptr), VX_INVALID_MESSAGE_ID) << road.name;
      VX_Free_Message(&message_);
    }
  }
}

TEST_F(CallerFunctions, WhatTheyAreCalledForStaysAsItIs) {
  ASSERT_EQ(VX_Enable_Unicode_Conversion(1), VX_NORMAL_COMPLETION);
  for (std::size_t i = 0; i < reading().size(); ++i) {
    Caller holder{};
    fill(&holder);
    const Road road = reading()[i];
    Caller reads{};
    std::vector<VX_STATUS> refused;
    (road.by_value ? holder : reads).act = [&] {
      const uint32_t tag = road.tag != 0 ? road.tag : kNumbers;
      const auto keep = [&](VX_STATUS status) { refused.push_back(status); };
      keep(VX_Delete_Attribute(item_, tag));
      keep(VX_Delete_Range(item_, 0, 0xFFFFFFFF));
      keep(VX_Empty_Item(item_));
      keep(VX_Set_Value_To_Empty(item_, tag));
      keep(VX_Set_Value_To_NULL(item_, tag));
      keep(VX_Set_Value_From_UInt(item_, tag, 1));
      keep(VX_Set_Value_From_Buffer(item_, tag, "ab", 2));
      keep(VX_Set_Value_Representation(item_, tag, VX_VR_OB));
      if (road.in_item) return;
      keep(VX_Delete_Attribute(message_, 0x00081140));
      keep(VX_Set_Value_From_String(message_, kLong, "new"));
      keep(VX_Set_Value_From_UnicodeString(message_, kLong, -1, u"new"));
      keep(VX_Set_Value_From_String(message_, 0x00100010, "new"));
      keep(VX_Add_Standard_Attribute(message_, 0x00100010));
      keep(VX_Add_Nonstandard_Attribute(message_, 0x00220099, VX_VR_LO));
      keep(VX_Add_Private_Block(message_, "A", 0x0011));
      keep(VX_Set_Service_Command(message_, "STANDARD_CT", C_STORE_RQ));
    };
    EXPECT_EQ(road.run(reads), VX_NORMAL_COMPLETION) << road.name;
    EXPECT_GE(refused.size(), 8U) << road.name;
    for (const VX_STATUS status : refused) EXPECT_EQ(status, VX_STATE_VIOLATION) << road.name;
    EXPECT_EQ(VX_Get_Attribute_Info(message_, 0x00100010, nullptr, nullptr), VX_INVALID_TAG) << road.name;
    EXPECT_EQ(VX_Set_Value_From_UInt(item_, kNumbers, 1), VX_NORMAL_COMPLETION)
        << "afterwards: " << road.name;
    VX_Free_Message(&message_);
  }
}

// A function that fills an attribute may set others, and may not pull this one away.
TEST_F(CallerFunctions, WritersMaySetOtherAttributes) {
  fill(nullptr);
  std::vector<VX_STATUS> seen;
  Caller writes{.act = [&] {
    seen = {VX_Set_Value_From_String(message_, 0x00100010, "Doe^Jane"),
            VX_Delete_Attribute(message_, kNumbers), VX_Delete_Attribute(message_, kPixels),
            VX_Set_Value_From_Function(message_, kPixels, nullptr, writer)};
  }};
  EXPECT_EQ(VX_Set_Value_From_Function(message_, kPixels, &writes, writer), VX_NORMAL_COMPLETION);
  EXPECT_EQ(seen, (std::vector<VX_STATUS>{VX_NORMAL_COMPLETION, VX_NORMAL_COMPLETION, VX_STATE_VIOLATION,
                                          VX_STATE_VIOLATION}));
  int32_t id = message_;
  Caller frees{.act = [&] { VX_Free_Message(&id); }};
  EXPECT_EQ(VX_Set_Value_From_Function(message_, kPixels, &frees, writer), VX_NORMAL_COMPLETION);
  ASSERT_EQ(VX_Open_Empty_Message(&id), VX_NORMAL_COMPLETION);
  frees.calls = 0;
  decode_from(frees, id);
  EXPECT_EQ(id, -1);
}

}  // namespace
