// Private blocks against a plain model, and the functions that reach values through them.
#include "model/private_blocks.h"

#include <array>
#include <map>
#include <random>
#include <set>
#include <string>

#include "value_fixture.h"

namespace {

class PrivateBlocks : public support::ModelTest {
 protected:
  bool has(uint32_t tag) const { return find(tag) != nullptr; }
};

// One private group: who sits in which slot, and the elements of each block.
struct Group {
  std::map<uint32_t, std::string> slots;
  std::map<std::string, std::set<uint8_t>> elements;

  uint32_t slot_of(const std::string& code) const {
    for (const auto& [slot, held] : slots) {
      if (held == code) return slot;
    }
    return 0;
  }
  uint32_t free_slot() const {
    uint32_t slot = 0x10;
    while (slots.count(slot) != 0) ++slot;
    return slot;
  }
};

TEST_F(PrivateBlocks, ARandomSessionAgreesWithAModel) {
  std::mt19937 random(77);
  std::array<Group, 3> groups;
  for (int step = 0; step < 6000; ++step) {
    const std::size_t which = random() % groups.size();
    Group& model = groups[which];
    const auto group = static_cast<uint16_t>(0x0009 + 2 * which);
    const std::string code = "CREATOR " + std::to_string(random() % 40);
    // Trailing blanks never count.
    const std::string spelled = code + std::string(random() % 3, ' ');
    const auto element = static_cast<uint8_t>(random() % 256);
    uint32_t slot = model.slot_of(code);
    switch (random() % 5) {
      case 0:
        ASSERT_EQ(VX_Add_Private_Block(id, spelled.c_str(), group), VX_NORMAL_COMPLETION);
        if (slot == 0) model.slots[model.free_slot()] = code;
        break;
      case 1: {
        const VX_STATUS expected = slot == 0                             ? VX_NOT_FOUND
                                   : model.elements[code].count(element) ? VX_TAG_ALREADY_EXISTS
                                                                         : VX_NORMAL_COMPLETION;
        ASSERT_EQ(VX_Add_Private_Attribute(id, spelled.c_str(), group, element, VX_VR_LO), expected);
        if (slot != 0) model.elements[code].insert(element);
        break;
      }
      case 2: {
        const bool there = slot != 0 && model.elements[code].erase(element) != 0;
        ASSERT_EQ(VX_Delete_Private_Attribute(id, spelled.c_str(), group, element),
                  there       ? VX_NORMAL_COMPLETION
                  : slot != 0 ? VX_INVALID_TAG
                              : VX_NOT_FOUND);
        break;
      }
      case 3:
        if (random() % 4 != 0) break;
        ASSERT_EQ(VX_Delete_Private_Block(id, spelled.c_str(), group),
                  slot != 0 ? VX_NORMAL_COMPLETION : VX_NOT_FOUND);
        model.slots.erase(slot);
        model.elements.erase(code);
        break;
      default: {
        const bool there = slot != 0 && model.elements[code].count(element) != 0;
        ASSERT_EQ(VX_Set_pValue_From_String(id, spelled.c_str(), group, element, "VALUE"),
                  there ? VX_NORMAL_COMPLETION : VX_INVALID_PRIVATE_CODE);
        int32_t count = 0;
        ASSERT_EQ(VX_Get_pValue_Count(id, spelled.c_str(), group, element, &count),
                  there       ? VX_NORMAL_COMPLETION
                  : slot != 0 ? VX_INVALID_TAG
                              : VX_INVALID_PRIVATE_CODE);
      }
    }
  }
  std::set<uint32_t> expected;
  for (std::size_t which = 0; which < groups.size(); ++which) {
    const uint32_t base = static_cast<uint32_t>(0x0009 + 2 * which) << 16;
    for (const auto& [slot, code] : groups[which].slots) {
      expected.insert(base | slot);
      for (const uint8_t element : groups[which].elements[code]) expected.insert(base | slot << 8 | element);
    }
  }
  EXPECT_EQ(tags_of(id), std::vector<uint32_t>(expected.begin(), expected.end()));
}

TEST_F(PrivateBlocks, RefusalsComeInTheirOrder) {
  int32_t number = 0;
  char text[16];
  const struct {
    VX_STATUS status, expected;
  } kRows[] = {
      {VX_Add_Private_Block(id, nullptr, 9), VX_NULL_POINTER_PARM},
      {VX_Add_Private_Block(-1, "ME", 9), VX_INVALID_MESSAGE_ID},
      {VX_Add_Private_Block(id, "ME", 8), VX_INVALID_GROUP},
      {VX_Add_Private_Block(id, "ME", 7), VX_INVALID_GROUP},
      {VX_Add_Private_Block(id, "", 8), VX_INVALID_GROUP},
      {VX_Add_Private_Block(id, "", 9), VX_INVALID_PRIVATE_CODE},
      {VX_Add_Private_Block(id, "  ", 9), VX_INVALID_PRIVATE_CODE},
      {VX_Add_Private_Block(id, "ME", 0xFFFF), VX_INVALID_GROUP},
      {VX_Delete_Private_Block(id, "ME", 9), VX_NOT_FOUND},
      {VX_Add_Private_Attribute(id, "ME", 9, 1, VX_VR_IS), VX_NOT_FOUND},
      {VX_Add_Private_Attribute(id, "ME", 9, 1, 31), VX_INVALID_VR_CODE},
      {VX_Add_Private_Attribute(id, "ME", 8, 1, VX_VR_IS), VX_INVALID_GROUP},
      {VX_Get_pValue_To_Int(id, "ME", 9, 1, &number), VX_INVALID_PRIVATE_CODE},
      {VX_Get_pValue_To_Int(id, "ME", 8, 1, &number), VX_INVALID_GROUP},
      {VX_Get_pValue_To_Int(id, "ME", 9, 1, nullptr), VX_NULL_POINTER_PARM},
      {VX_Get_pValue_To_Int(-1, "ME", 9, 1, nullptr), VX_NULL_POINTER_PARM},
      {VX_Add_Private_Block(id, "ME", 9), VX_NORMAL_COMPLETION},
      {VX_Add_Private_Block(id, "ME  ", 9), VX_NORMAL_COMPLETION},
      {VX_Set_pValue_From_Int(id, "ME", 9, 1, 5), VX_INVALID_PRIVATE_CODE},
      {VX_Set_pValue_To_NULL(id, "ME", 9, 1), VX_INVALID_TAG},
      {VX_Get_pValue_To_String(id, "ME", 9, 1, 16, text), VX_INVALID_TAG},
      {VX_Set_pValue_Representation(id, "ME", 9, 1, VX_VR_US), VX_INVALID_TAG},
      {VX_Add_Private_Attribute(id, "ME", 9, 1, VX_VR_IS), VX_NORMAL_COMPLETION},
      {VX_Add_Private_Attribute(id, "ME", 9, 1, VX_VR_IS), VX_TAG_ALREADY_EXISTS},
      {VX_Set_pValue_From_Int(id, "ME", 9, 1, 5), VX_NORMAL_COMPLETION},
      {VX_Set_Next_pValue_From_Double(id, "ME", 9, 1, 7.0), VX_NORMAL_COMPLETION},
      {VX_Get_Next_pValue_To_Int(id, "ME ", 9, 1, &number), VX_NORMAL_COMPLETION},
      {VX_Get_Next_pValue_To_String(id, "ME", 9, 1, 16, text), VX_NORMAL_COMPLETION},
      {VX_Get_Next_pValue_To_Int(id, "ME", 9, 1, &number), VX_NO_MORE_VALUES},
  };
  for (const auto& row : kRows) EXPECT_EQ(row.status, row.expected) << &row - kRows;
  EXPECT_STREQ(text, "7");
  uint32_t length = 0;
  EXPECT_EQ(VX_Get_pValue_Length(id, "ME", 8, 1, 0, &length), VX_INVALID_VALUE_NUMBER);
  EXPECT_TRUE(has(0x00091001));
}

TEST_F(PrivateBlocks, TwoHundredAndFortyAndNoMore) {
  for (int i = 0; i < 240; ++i) {
    ASSERT_EQ(VX_Add_Private_Block(id, ("B" + std::to_string(i)).c_str(), 0x0011), VX_NORMAL_COMPLETION);
  }
  EXPECT_TRUE(has(0x001100FF));
  EXPECT_EQ(VX_Add_Private_Block(id, "ONE MORE", 0x0011), VX_TOO_MANY_BLOCKS);
  EXPECT_EQ(VX_Add_Private_Block(id, "B239", 0x0011), VX_NORMAL_COMPLETION);
  int32_t count;
  EXPECT_EQ(VX_Get_pValue_Count(id, "ONE MORE", 0x0011, 1, &count), VX_INVALID_PRIVATE_CODE);
  EXPECT_EQ(VX_Delete_Private_Block(id, "ONE MORE", 0x0011), VX_NOT_FOUND);
  EXPECT_EQ(VX_Add_Private_Block(id, "ONE MORE", 0x0013), VX_NORMAL_COMPLETION);
}

TEST_F(PrivateBlocks, ACreatorThatCanNotBeSetIsTakenBack) {
  const std::string too_long(600, 'X');
  EXPECT_EQ(VX_Add_Private_Block(id, "A\\B", 9), VX_SYSTEM_ERROR);
  EXPECT_EQ(VX_Add_Private_Block(id, too_long.c_str(), 9), VX_SYSTEM_ERROR);
  EXPECT_FALSE(has(0x00090010));
  VX_Set_Bool_Config_Value(VX_CFG_ALLOW_INVALID_PRIVATE_CREATOR_CODES, 1);
  EXPECT_EQ(VX_Add_Private_Block(id, "A\\B", 9), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Add_Private_Attribute(id, "A\\B", 9, 1, VX_VR_LO), VX_NORMAL_COMPLETION);
  EXPECT_TRUE(has(0x00091001));
}

TEST_F(PrivateBlocks, TheSearchLeavesValueCursorsAlone) {
  VX_Add_Private_Block(id, "ONE", 9);
  ASSERT_EQ(VX_Set_Next_Value_From_String(id, 0x00090010, "TWO"), VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(0x00090010), "ONE");
  EXPECT_EQ(VX_Add_Private_Attribute(id, "ONE", 9, 1, VX_VR_LO), VX_NORMAL_COMPLETION);
  EXPECT_EQ(next_text(0x00090010), "TWO");
}

TEST_F(PrivateBlocks, EmptyBlocksAreTold) {
  VX_Add_Private_Block(id, "ONE", 9);
  VX_Add_Private_Block(id, "TWO", 9);
  VX_Add_Private_Attribute(id, "ONE", 9, 0, VX_VR_LO);
  VX_Add_Private_Attribute(id, "TWO", 9, 0xFF, VX_VR_LO);
  EXPECT_FALSE(vx::block_has_values(object(), "TWO ", 9));
  VX_Set_pValue_To_NULL(id, "TWO", 9, 0xFF);
  EXPECT_TRUE(vx::block_has_values(object(), "TWO ", 9));
  EXPECT_FALSE(vx::block_has_values(object(), "ONE", 9));
  EXPECT_FALSE(vx::block_has_values(object(), "NONE", 9));
  EXPECT_FALSE(vx::block_has_values(object(), "TWO", 8));
  EXPECT_FALSE(vx::block_has_values(object(), std::string(514, 'X'), 9));
  VX_Set_Value_From_Int(id, 0x00090000, 4);
  EXPECT_TRUE(vx::block_has_values(object(), "ONE", 9)) << "a group length with a value counts";
}

TEST_F(PrivateBlocks, ItemsOfAPrivateSequenceFindTheirCreator) {
  VX_Add_Private_Block(id, "ME", 9);
  VX_Add_Private_Attribute(id, "ME", 9, 1, VX_VR_SQ);
  const int32_t item = ModelTest::item();
  VX_Add_Nonstandard_Attribute(item, 0x00091002, VX_VR_LO);
  VX_Add_Nonstandard_Attribute(item, 0x00091102, VX_VR_LO);
  ASSERT_EQ(VX_Set_pValue_From_Int(id, "ME", 9, 1, item), VX_NORMAL_COMPLETION);
  vx::MsgObj& inner = *vx::find_object(item);
  EXPECT_EQ(vx::creator_of(inner, 0x00091002), "ME");
  EXPECT_EQ(vx::creator_of(inner, 0x00091102), "");
  EXPECT_EQ(vx::creator_of(inner, 0x00100010), "");
  VX_Add_Private_Block(item, "INNER", 9);
  EXPECT_EQ(vx::creator_of(inner, 0x00091002), "INNER");
}

}  // namespace
