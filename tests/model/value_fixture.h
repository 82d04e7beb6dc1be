// An empty message, attributes of any VR, and what the tests of the model ask of them.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "model/attributes.h"
#include "model/object.h"
#include "support.h"

namespace support {

// What a reading function is given: '^' before the first piece, '|' between them, '$' behind the last.
inline VX_STATUS mark_piece(void* user, uint32_t size, const void* data, int32_t first, int32_t last) {
  static_cast<std::string*>(user)->append(
      (first != 0 ? "^" : "") + std::string(static_cast<const char*>(data), size) + (last != 0 ? "$" : "|"));
  return VX_NORMAL_COMPLETION;
}

// With the small dictionary.
class ValueTest : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    id = message();
  }
  static int32_t message() { return opened(VX_Open_Empty_Message); }
  static int32_t item() { return opened(VX_Open_Empty_Item); }
  vx::MsgObj& object() const { return *vx::find_object(id); }
  vx::TagObj* find(uint32_t tag) const { return vx::find_tag(object(), tag); }
  // A private attribute of the VR, empty; the same one each time.
  uint32_t attribute(VX_VR vr) const {
    const uint32_t tag = 0x00991000U + static_cast<uint32_t>(vr);
    if (find(tag) == nullptr) {
      EXPECT_EQ(VX_Add_Nonstandard_Attribute(id, tag, vr), VX_NORMAL_COMPLETION);
    }
    EXPECT_EQ(VX_Set_Value_To_Empty(id, tag), VX_NORMAL_COMPLETION);
    return tag;
  }
  // The number of values, or of bytes in one of them; the status below zero if there are none.
  int32_t count(uint32_t tag) const {
    int32_t number = 99;
    const VX_STATUS status = VX_Get_Value_Count(id, tag, &number);
    return number_or(status, number);
  }
  int32_t length(uint32_t tag, int32_t value = 1) const {
    uint32_t bytes = 99;
    const VX_STATUS status = VX_Get_Value_Length(id, tag, value, &bytes);
    return number_or(status, static_cast<int32_t>(bytes));
  }
  // The first value as text, and the one behind it; the status as "#4022" if there is none.
  std::string text(uint32_t tag) const { return text_of(id, tag); }
  std::string next_text(uint32_t tag) const { return text_of(id, tag, VX_Get_Next_Value_To_String); }
  static std::string text_of(int32_t id, uint32_t tag,
                             VX_STATUS (*function)(int32_t, uint32_t, int32_t,
                                                   char*) = VX_Get_Value_To_String) {
    char buffer[20000];
    const VX_STATUS status = function(id, tag, sizeof buffer, buffer);
    return status == VX_NORMAL_COMPLETION ? buffer : "#" + std::to_string(status);
  }
  static std::vector<uint32_t> tags_of(int32_t id, uint32_t from = 0) {
    std::vector<uint32_t> tags;
    uint32_t tag = 0;
    for (VX_STATUS status = VX_Get_First_Attribute(id, &tag, nullptr, nullptr);
         status == VX_NORMAL_COMPLETION; status = VX_Get_Next_Attribute(id, &tag, nullptr, nullptr)) {
      if (tag >= from) tags.push_back(tag);
    }
    return tags;
  }
  // Specific Character Set, its values between backslashes.
  static void set_charset(int32_t id, const std::string& names) {
    ASSERT_EQ(VX_Set_Value_To_Empty(id, 0x00080005), VX_NORMAL_COMPLETION);
    for (std::size_t start = 0; start <= names.size();) {
      const std::size_t end = std::min(names.find('\\', start), names.size());
      VX_Set_Next_Value_From_String(id, 0x00080005, names.substr(start, end - start).c_str());
      start = end + 1;
    }
  }
  int32_t id = -1;

 private:
  static int32_t opened(VX_STATUS (*open)(int32_t*)) {
    int32_t id = -1;
    EXPECT_EQ(open(&id), VX_NORMAL_COMPLETION);
    return id;
  }
  static int32_t number_or(VX_STATUS status, int32_t number) {
    if (status == VX_NORMAL_COMPLETION) return number;
    EXPECT_TRUE(number == 0 || (status != VX_EMPTY_VALUE && status != VX_NULL_VALUE)) << number;
    return -status;
  }
};

// With the complete data.
class ModelTest : public ValueTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(begin_with_full_data(), VX_NORMAL_COMPLETION);
    id = message();
  }
};

}  // namespace support
