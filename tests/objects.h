// Objects, and changes of them, in a line of text.
#pragma once

#include <charconv>
#include <string>
#include <string_view>
#include <vector>

#include "support.h"

namespace objects {

inline uint32_t to_tag(std::string_view text) {
  uint32_t tag = 0;
  std::from_chars(text.data(), text.data() + text.size(), tag, 16);
  return tag;
}

inline std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text + separator);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

// Another item of a sequence, blank or of a type.
inline int32_t add_item(int32_t id, uint32_t tag, const char* type = nullptr) {
  int32_t item = -1;
  EXPECT_EQ(type == nullptr ? VX_Open_Empty_Item(&item) : VX_Open_Item(&item, type), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Set_Next_Value_From_Int(id, tag, item), VX_NORMAL_COMPLETION);
  return item;
}
inline int32_t last_item(int32_t id, uint32_t tag) {
  int32_t item = -1;
  EXPECT_EQ(VX_Get_Value_To_Int(id, tag, &item), VX_NORMAL_COMPLETION);
  while (VX_Get_Next_Value_To_Int(id, tag, &item) == VX_NORMAL_COMPLETION) continue;
  return item;
}

// Steps between semicolons: TAG=a\b (values; those that are refused are stored all the same), TAG= (null),
// TAG (no value), -TAG (removed), TAG*2 (blank items), TAG*NAME (an item of a type), TAG#bytes (a VR that
// nobody knows), TAG/step (in the last item). What the dictionary does not know is added with its VR.
inline void edit(int32_t id, const std::string& steps, VX_VR (*vr_of)(uint32_t) = nullptr) {
  if (steps.empty()) return;
  for (const std::string& step : split(steps, ';')) {
    SCOPED_TRACE(step);
    if (step[0] == '-') {
      ASSERT_EQ(VX_Delete_Attribute(id, to_tag(step.substr(1))), VX_NORMAL_COMPLETION);
      continue;
    }
    const uint32_t tag = to_tag(step.substr(0, 8));
    const char kind = step.size() > 8 ? step[8] : '\0';
    const std::string rest = step.size() > 8 ? step.substr(9) : "";
    if (kind == '/') {
      edit(last_item(id, tag), rest, vr_of);
      continue;
    }
    VX_VR vr = VX_VR_UN;
    if (kind == '#' || VX_Get_Attribute_Info(id, tag, nullptr, nullptr) != VX_NORMAL_COMPLETION) {
      const bool known = kind != '#' && VX_Add_Standard_Attribute(id, tag) == VX_NORMAL_COMPLETION;
      if (!known && vr_of != nullptr) vr = vr_of(tag);
      if (!known) {
        ASSERT_EQ(VX_Add_Nonstandard_Attribute(id, tag, vr), VX_NORMAL_COMPLETION);
      }
    }
    VX_Get_Attribute_Info(id, tag, &vr, nullptr);
    if (kind == '#') VX_Set_Value_From_Buffer(id, tag, rest.data(), static_cast<uint32_t>(rest.size()));
    if (kind == '*' && rest[0] > '9') add_item(id, tag, rest.c_str());
    for (int count = kind == '*' && rest[0] <= '9' ? rest[0] - '0' : 0; count > 0; --count) add_item(id, tag);
    if (kind == '\0') VX_Set_Value_To_Empty(id, tag);
    if (kind != '=') continue;
    VX_Set_Value_To_NULL(id, tag);
    if (rest.empty()) continue;
    VX_Set_Value_To_Empty(id, tag);
    for (const std::string& value : split(rest, '\\')) {
      vr == VX_VR_AT ? VX_Set_Next_Value_From_ULongInt(id, tag, to_tag(value))
                     : VX_Set_Next_Value_From_String(id, tag, value.c_str());
    }
  }
}

}  // namespace objects
