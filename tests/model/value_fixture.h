// A message with one attribute of any VR at hand.
#pragma once

#include <cstring>
#include <string>

#include "support.h"

namespace support {

class ValueTest : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    ASSERT_EQ(VX_Open_Empty_Message(&id_), VX_NORMAL_COMPLETION);
  }
  int32_t id() const { return id_; }
  // A private attribute of the VR, empty; the same one each time.
  uint32_t attribute(VX_VR vr) {
    const uint32_t tag = 0x00991000U + static_cast<uint32_t>(vr);
    if (VX_Get_Attribute_Info(id_, tag, nullptr, nullptr) != VX_NORMAL_COMPLETION) {
      EXPECT_EQ(VX_Add_Nonstandard_Attribute(id_, tag, vr), VX_NORMAL_COMPLETION);
    }
    EXPECT_EQ(VX_Set_Value_To_Empty(id_, tag), VX_NORMAL_COMPLETION);
    return tag;
  }
  int32_t count(uint32_t tag) {
    int32_t number = -1;
    VX_Get_Value_Count(id_, tag, &number);
    return number;
  }
  // The first value as text; the status as "#4022" if there is none.
  std::string text(uint32_t tag) { return read(tag, VX_Get_Value_To_String); }
  std::string next_text(uint32_t tag) { return read(tag, VX_Get_Next_Value_To_String); }

 private:
  std::string read(uint32_t tag, VX_STATUS (*function)(int32_t, uint32_t, int32_t, char*)) {
    char buffer[2048];
    const VX_STATUS status = function(id_, tag, sizeof buffer, buffer);
    return status == VX_NORMAL_COMPLETION ? buffer : "#" + std::to_string(status);
  }
  int32_t id_ = -1;
};

}  // namespace support
