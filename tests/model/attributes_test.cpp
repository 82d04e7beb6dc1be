// The attribute table: a long random session against a plain map, the cursors, removed attributes, changes of
// VR.
#include "model/attributes.h"

#include <iterator>
#include <map>
#include <optional>
#include <random>
#include <string>

#include "model/message_info.h"
#include "model/values.h"
#include "value_fixture.h"

namespace {

class Attributes : public support::ModelTest {};

// What the table should be: an ordered map and the iteration cursor.
struct Model {
  std::map<uint32_t, VX_VR> table;
  std::optional<uint32_t> next;

  VX_STATUS add(uint32_t tag, VX_VR vr) {
    if (!table.emplace(tag, vr).second) return VX_TAG_ALREADY_EXISTS;
    if (table.size() == 1) next = tag;
    return VX_NORMAL_COMPLETION;
  }
  void erase(std::map<uint32_t, VX_VR>::iterator at) {
    const bool under_cursor = next == at->first;
    table.erase(at);
    if (under_cursor) next = table.empty() ? std::nullopt : std::optional(table.begin()->first);
  }
  VX_STATUS remove(uint32_t tag) {
    const auto at = table.find(tag);
    if (at == table.end()) return VX_INVALID_TAG;
    erase(at);
    return VX_NORMAL_COMPLETION;
  }
  void remove_range(uint32_t first, uint32_t last) {
    for (auto at = table.lower_bound(first); at != table.end() && at->first <= last;
         at = table.lower_bound(first)) {
      erase(at);
    }
  }
  VX_STATUS step(uint32_t& tag, VX_VR& vr) {
    if (table.empty()) return VX_MESSAGE_EMPTY;
    if (!next) return VX_NO_MORE_ATTRIBUTES;
    auto at = table.find(*next);
    tag = at->first;
    vr = at->second;
    ++at;
    next = at == table.end() ? std::nullopt : std::optional(at->first);
    return VX_NORMAL_COMPLETION;
  }
  VX_STATUS info(uint32_t tag, VX_VR& vr) {
    if (table.find(tag) == table.end()) return VX_INVALID_TAG;
    next = tag;
    return step(tag, vr);
  }
};

// Private tags: the dictionary knows none of them.
uint32_t random_tag(std::mt19937& random, uint32_t spread) {
  return 0x00111000U + static_cast<uint32_t>(random()) % spread;
}

TEST_F(Attributes, ARandomSessionAgreesWithAMap) {
  // Small tables are walked, large ones have an index; each phase grows or shrinks the table.
  const struct {
    uint32_t spread;
    int steps, add_percent;
  } kPhases[] = {{40, 2000, 50}, {300, 4000, 60}, {20000, 12000, 75}, {20000, 4000, 20}, {300, 3000, 40}};
  std::mt19937 random(20240611);
  Model model;
  for (const auto& phase : kPhases) {
    for (int i = 0; i < phase.steps; ++i) {
      const uint32_t tag = random_tag(random, phase.spread);
      const int dice = static_cast<int>(random() % 100);
      uint32_t got_tag = 0, want_tag = 0;
      VX_VR got_vr = -1, want_vr = -1;
      if (dice < phase.add_percent / 2) {
        const VX_VR vr = static_cast<VX_VR>(random() % 31);
        ASSERT_EQ(VX_Add_Nonstandard_Attribute(id, tag, vr), model.add(tag, vr));
      } else if (dice < phase.add_percent) {
        // Runs of neighbours, as a decoder adds them.
        for (uint32_t t = tag; t < tag + 8; ++t) {
          ASSERT_EQ(VX_Add_Nonstandard_Attribute(id, t, VX_VR_LO), model.add(t, VX_VR_LO));
        }
      } else if (dice < phase.add_percent + (100 - phase.add_percent) / 2) {
        ASSERT_EQ(VX_Delete_Attribute(id, tag), model.remove(tag));
      } else if (dice < 97) {
        ASSERT_EQ(VX_Get_Attribute_Info(id, tag, &got_vr, nullptr), model.info(tag, want_vr));
        ASSERT_EQ(got_vr, want_vr);
      } else if (dice < 98) {
        const uint32_t last = tag + static_cast<uint32_t>(random()) % 200 - 20;
        ASSERT_EQ(VX_Delete_Range(id, tag, last), VX_NORMAL_COMPLETION);
        model.remove_range(tag, last);
        ASSERT_EQ(object().CurrentTag, object().FirstTag);
      }
      ASSERT_EQ(VX_Get_Next_Attribute(id, &got_tag, &got_vr, nullptr), model.step(want_tag, want_vr));
      ASSERT_EQ(got_tag, want_tag);
    }
    std::vector<uint32_t> expected;
    for (const auto& [tag, vr] : model.table) expected.push_back(tag);
    ASSERT_EQ(tags_of(id), expected);
    model.next = std::nullopt;
    ASSERT_EQ(object().AttributeCount, static_cast<int32_t>(expected.size()));
    // The chain backward, and places between the tags.
    std::vector<uint32_t> backward;
    for (const vx::TagObj* at = object().LastTag; at != nullptr; at = at->Previous)
      backward.push_back(at->Tag);
    ASSERT_TRUE(std::equal(expected.rbegin(), expected.rend(), backward.begin(), backward.end()));
    for (int i = 0; i < 500; ++i) {
      const uint32_t tag = random_tag(random, phase.spread);
      const auto want = model.table.lower_bound(tag);
      const vx::TagObj* got = vx::lower_bound_tag(object(), tag);
      ASSERT_EQ(got == nullptr, want == model.table.end());
      if (got != nullptr) {
        ASSERT_EQ(got->Tag, want->first);
      }
    }
  }
  EXPECT_NE(object().Index, nullptr);
}

// Behind the last tag there is none, and the first is not near it.
TEST_F(Attributes, TheFirstTagFromTheLast) {
  VX_Add_Standard_Attribute(id, 0x00100010);
  for (uint32_t t : {0xFFFFFFE9U, 0xFFFFFFFEU}) VX_Add_Nonstandard_Attribute(id, t, VX_VR_LO);
  ASSERT_EQ(VX_Get_Attribute_Info(id, 0xFFFFFFE9, nullptr, nullptr), VX_NORMAL_COMPLETION);
  const vx::TagObj* first = vx::lower_bound_tag(object(), 0);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->Tag, 0x00100010U);
}

TEST_F(Attributes, IterationEndsAndStaysThere) {
  uint32_t tag = 0;
  EXPECT_EQ(VX_Get_First_Attribute(id, &tag, nullptr, nullptr), VX_MESSAGE_EMPTY);
  for (uint32_t t : {0x00100020U, 0x00100010U, 0x7FE00010U}) VX_Add_Standard_Attribute(id, t);
  VX_VR vr = -1;
  int32_t count = -1;
  EXPECT_EQ(VX_Get_Attribute_Info(id, 0x00100020, &vr, &count), VX_NORMAL_COMPLETION);
  EXPECT_TRUE(vr == VX_VR_LO && count == 0) << vr << " " << count;
  EXPECT_EQ(VX_Get_Next_Attribute(id, &tag, &vr, &count), VX_NORMAL_COMPLETION);
  EXPECT_TRUE(tag == 0x7FE00010U && count == 1) << "a bulk VR counts as one value";
  for (int i = 0; i < 3; ++i) EXPECT_EQ(VX_Get_Next_Attribute(id, &tag, &vr, &count), VX_NO_MORE_ATTRIBUTES);
}

TEST_F(Attributes, TheDictionaryDecidesWhoAdds) {
  const struct {
    VX_STATUS status, expected;
  } kRows[] = {
      {VX_Add_Standard_Attribute(id, 0x00100010), VX_NORMAL_COMPLETION},
      {VX_Add_Standard_Attribute(id, 0x00100010), VX_TAG_ALREADY_EXISTS},
      {VX_Add_Standard_Attribute(id, 0x00100001), VX_INVALID_TAG},
      {VX_Add_Standard_Attribute(id, 0x00091010), VX_INVALID_TAG},
      {VX_Add_Nonstandard_Attribute(id, 0x00100020, VX_VR_LO), VX_INVALID_TAG},
      {VX_Add_Nonstandard_Attribute(id, 0x00100001, VX_VR_LO), VX_NORMAL_COMPLETION},
      {VX_Add_Nonstandard_Attribute(id, 0x00100001, VX_VR_LO), VX_TAG_ALREADY_EXISTS},
      {VX_Add_Nonstandard_Attribute(id, 0x00100003, 31), VX_INVALID_VR_CODE},
      {VX_Add_Nonstandard_Attribute(id, 0x00100003, -1), VX_INVALID_VR_CODE},
      {VX_Delete_Attribute(id, 0x00100003), VX_INVALID_TAG},
      {VX_Delete_Range(id, 0x00100020, 0x00100010), VX_NORMAL_COMPLETION},
      {VX_Delete_Range(id, 0x00200000, 0x7FFFFFFF), VX_NORMAL_COMPLETION},
      // Setters add what the dictionary knows, also in repeating groups.
      {VX_Set_Value_To_NULL(id, 0x60020010), VX_NORMAL_COMPLETION},
      {VX_Set_Value_To_NULL(id, 0x00100009), VX_INVALID_TAG},
  };
  for (const auto& row : kRows) EXPECT_EQ(row.status, row.expected) << &row - kRows;
  EXPECT_EQ(tags_of(id), (std::vector<uint32_t>{0x00100001, 0x00100010, 0x60020010}));
}

TEST_F(Attributes, RepeatingGroupsTakeAfterTheirBase) {
  static vx::ValTagObj rules{};
  vx::TagObj* base = nullptr;
  ASSERT_EQ(vx::new_tag(object(), 0x60000010, VX_VR_US, 1, 1, &base), VX_NORMAL_COMPLETION);
  base->Template = &rules;
  object().TemplateApplied = 1;
  EXPECT_EQ(VX_Set_Value_To_NULL(id, 0x60040010), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Set_Value_To_NULL(id, 0x60040011), VX_INVALID_TAG) << "a template closes the table";
  const vx::TagObj* added = vx::find_tag(object(), 0x60040010);
  ASSERT_NE(added, nullptr);
  EXPECT_EQ(added->Template, &rules);
  EXPECT_EQ(added->VMHigh, 1);
}

TEST_F(Attributes, RequiredAttributesComeBackWithTheirTemplate) {
  static vx::ValTagObj required{}, optional{};
  required.AttributeType = vx::kType2;
  optional.AttributeType = vx::kType3;
  const struct {
    uint32_t tag;
    vx::ValTagObj* rules;
    bool comes_back;
  } kRows[] = {{0x00100010, &required, true},  {0x00080060, &required, true},  {0x00100030, nullptr, false},
               {0x00100040, &optional, false}, {0x00111010, &required, false}, {0x00020010, &required, false},
               {0x00080008, &required, true}};
  for (const auto& row : kRows) {
    vx::TagObj* attribute = nullptr;
    ASSERT_EQ(vx::new_tag(object(), row.tag, VX_VR_CS, 1, 3, &attribute), VX_NORMAL_COMPLETION);
    attribute->Template = row.rules;
    ASSERT_EQ(VX_Set_Value_To_NULL(id, row.tag), VX_NORMAL_COMPLETION);
  }
  ASSERT_EQ(VX_Delete_Range(id, 0, 0xFFFFFFFF), VX_NORMAL_COMPLETION);
  EXPECT_EQ(object().FirstTag, nullptr);
  for (const auto& row : kRows) {
    vx::TagObj* attribute = nullptr;
    ASSERT_EQ(vx::new_tag(object(), row.tag, VX_VR_LO, 1, 255, &attribute), VX_NORMAL_COMPLETION);
    EXPECT_EQ(attribute->Template, row.comes_back ? row.rules : nullptr) << std::hex << row.tag;
    EXPECT_EQ(attribute->VMHigh, row.comes_back ? 3 : 255) << std::hex << row.tag;
    EXPECT_EQ(attribute->VR, row.comes_back ? VX_VR_CS : VX_VR_LO) << std::hex << row.tag;
    EXPECT_EQ(attribute->ValueCount, 0);
  }
  EXPECT_EQ(object().RemovedTags, nullptr);
}

TEST_F(Attributes, VrChangesThatAreAllowed) {
  const struct {
    VX_VR from, to;
    VX_STATUS expected;
    int32_t count;
  } kRows[] = {{VX_VR_OB, VX_VR_OW, VX_NORMAL_COMPLETION, 1}, {VX_VR_OW, VX_VR_US, VX_NORMAL_COMPLETION, 4},
               {VX_VR_OW, VX_VR_OB, VX_NORMAL_COMPLETION, 1}, {VX_VR_OB, VX_VR_FD, VX_NORMAL_COMPLETION, 1},
               {VX_VR_OL, VX_VR_UL, VX_NORMAL_COMPLETION, 2}, {VX_VR_OF, VX_VR_UN, VX_NORMAL_COMPLETION, 1},
               {VX_VR_US, VX_VR_SS, VX_NORMAL_COMPLETION, 4}, {VX_VR_SS, VX_VR_OW, VX_NORMAL_COMPLETION, 1},
               {VX_VR_US, VX_VR_UL, VX_VR_ALREADY_VALID, 4},  {VX_VR_SS, VX_VR_SS, VX_VR_ALREADY_VALID, 4},
               {VX_VR_OW, VX_VR_SQ, VX_VR_ALREADY_VALID, 1},  {VX_VR_UL, VX_VR_SL, VX_VR_ALREADY_VALID, 2},
               {VX_VR_OW, 31, VX_INVALID_VR_CODE, 1},         {VX_VR_LO, 31, VX_INVALID_VR_CODE, 1},
               {VX_VR_LO, VX_VR_SH, VX_VR_ALREADY_VALID, 1}};
  const char bytes[] = "ABCDEFGH";
  for (const auto& row : kRows) {
    vx::TagObj* attribute = nullptr;
    ASSERT_EQ(vx::new_tag(object(), 0x00111010, row.from, 1, 255, &attribute), VX_NORMAL_COMPLETION);
    ASSERT_EQ(vx::store_value(object(), *attribute, bytes, 8, {}), VX_NORMAL_COMPLETION);
    EXPECT_EQ(VX_Set_Value_Representation(id, 0x00111010, row.to), row.expected) << row.from << " " << row.to;
    EXPECT_EQ(count(0x00111010), row.count) << row.from << " to " << row.to;
    EXPECT_EQ(attribute->VR, row.expected == VX_NORMAL_COMPLETION ? row.to : row.from);
    ASSERT_EQ(VX_Delete_Attribute(id, 0x00111010), VX_NORMAL_COMPLETION);
  }
  EXPECT_EQ(VX_Set_Value_Representation(id, 0x00111010, VX_VR_LO), VX_INVALID_TAG);
}

TEST_F(Attributes, AnUnknownValueIsReadAgainOrKept) {
  constexpr uint32_t kTag = 0x00111010;
  const struct {
    VX_VR to;
    std::string bytes;
    const char* text;  // null: not taken
  } kRows[] = {{VX_VR_US, std::string("\x01\x00\x02\x00", 4), "1"},
               {VX_VR_LO, "AB\\CD ", "AB"},
               {VX_VR_AT, std::string("\x10\x00\x20\x00", 4), "1048608"},
               {VX_VR_FD, "1234", nullptr},
               {VX_VR_SQ, "no item here", nullptr}};
  for (const auto& row : kRows) {
    const auto size = static_cast<uint32_t>(row.bytes.size());
    const bool taken = row.text != nullptr;
    ASSERT_EQ(VX_Add_Nonstandard_Attribute(id, kTag, VX_VR_UN), VX_NORMAL_COMPLETION);
    ASSERT_EQ(VX_Set_Value_From_Buffer(id, kTag, row.bytes.data(), size), VX_NORMAL_COMPLETION);
    EXPECT_EQ(VX_Set_Value_Representation(id, kTag, row.to) == VX_NORMAL_COMPLETION, taken) << row.to;
    EXPECT_EQ(find(kTag)->VR, taken ? row.to : VX_VR_UN);
    char buffer[32];
    uint32_t length = 0;
    if (taken) {
      EXPECT_EQ(text(kTag), row.text);
    } else {
      EXPECT_EQ(VX_Get_Value_To_Buffer(id, kTag, sizeof buffer, buffer, &length), VX_NORMAL_COMPLETION);
      EXPECT_EQ(std::string(buffer, length), row.bytes);
    }
    ASSERT_EQ(VX_Delete_Attribute(id, kTag), VX_NORMAL_COMPLETION);
  }
  ASSERT_EQ(VX_Add_Nonstandard_Attribute(id, kTag, VX_VR_UN), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Set_Value_Representation(id, kTag, VX_VR_SQ), VX_NORMAL_COMPLETION) << "no value yet";
}

}  // namespace
