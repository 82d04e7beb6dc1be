// Value chains: states, cursors, pieces, and the functions that do not convert.
#include "model/values.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "value_fixture.h"

namespace {

constexpr uint32_t kTag = 0x00111010;

class Values : public support::ModelTest {
 protected:
  // A fresh attribute of a VR.
  vx::TagObj& make(VX_VR vr) {
    VX_Delete_Attribute(id, kTag);
    vx::TagObj* attribute = nullptr;
    EXPECT_EQ(vx::new_tag(object(), kTag, vr, 1, 255, &attribute), VX_NORMAL_COMPLETION);
    return *attribute;
  }
  // Its bytes, whatever the pieces.
  static std::string bytes_of(const vx::TagObj& attribute) {
    std::string bytes;
    for (const vx::ValueObj* v = attribute.FirstValue; v != nullptr; v = v->Next) {
      if (v->Data != nullptr) bytes.append(static_cast<const char*>(v->Data), v->Length);
    }
    return bytes;
  }
  void store_pieces(vx::TagObj& attribute, const std::vector<std::string>& pieces) {
    for (std::size_t i = 0; i < pieces.size(); ++i) {
      ASSERT_EQ(
          vx::store_value(object(), attribute, pieces[i].data(), static_cast<uint32_t>(pieces[i].size()),
                          {.first = i == 0, .last = i + 1 == pieces.size()}),
          VX_NORMAL_COMPLETION);
    }
  }
};

TEST_F(Values, StatesAndTheirCounts) {
  make(VX_VR_LO);
  EXPECT_EQ(count(kTag), -VX_EMPTY_VALUE);
  EXPECT_EQ(VX_Delete_Current_Value(id, kTag), VX_EMPTY_VALUE);
  EXPECT_EQ(VX_Set_Value_To_NULL(id, kTag), VX_NORMAL_COMPLETION);
  EXPECT_EQ(count(kTag), -VX_NULL_VALUE);
  EXPECT_EQ(length(kTag), -VX_NULL_VALUE);
  EXPECT_EQ(VX_Set_Next_Value_To_NULL(id, kTag), VX_NORMAL_COMPLETION);
  EXPECT_EQ(count(kTag), 2);
  EXPECT_EQ(VX_Delete_Current_Value(id, kTag), VX_NORMAL_COMPLETION) << "one of several without data";
  EXPECT_EQ(count(kTag), -VX_NULL_VALUE);
  EXPECT_EQ(VX_Set_Value_To_Empty(id, kTag), VX_NORMAL_COMPLETION);
  EXPECT_EQ(count(kTag), -VX_EMPTY_VALUE);
  EXPECT_EQ(length(kTag), -VX_EMPTY_VALUE);
  EXPECT_EQ(length(kTag, 0), -VX_INVALID_VALUE_NUMBER);
  EXPECT_EQ(count(0x00100010), -VX_INVALID_TAG);
  for (const VX_VR vr : {VX_VR_LT, VX_VR_ST, VX_VR_UR, VX_VR_UT, VX_VR_US, VX_VR_OB, VX_VR_UN, VX_VR_SQ}) {
    make(vr);
    EXPECT_EQ(VX_Set_Next_Value_To_NULL(id, kTag), VX_INCOMPATIBLE_VR) << vr;
    EXPECT_EQ(VX_Set_Value_To_NULL(id, kTag), VX_NORMAL_COMPLETION);
    EXPECT_EQ(count(kTag), -VX_NULL_VALUE);
  }
}

TEST_F(Values, LengthsByClass) {
  const std::vector<std::string> three = {"abc", "de", "f"}, wide = {"aaaabbbb", "cccc"};
  const struct {
    VX_VR vr;
    std::vector<std::string> pieces;
    int32_t count, value, length;
    bool parts_count = false;  // a part of a value at the end counts only where the site allows it
  } kRows[] = {{VX_VR_OB, three, 1, 99, 6},
               {VX_VR_LO, three, 3, 2, 2},
               {VX_VR_LO, three, 3, 4, -VX_INVALID_VALUE_NUMBER},
               {VX_VR_FL, wide, 3, 3, 4},
               {VX_VR_FL, wide, 3, 4, -VX_INVALID_VALUE_NUMBER},
               {VX_VR_UL, {"aaaabb"}, 1, 1, 4},
               {VX_VR_UL, {"aaaabb"}, 1, 1, 6, true}};
  for (const auto& row : kRows) {
    set_bool(VX_CFG_ALLOW_INVALID_LENGTH_FOR_VR, row.parts_count);
    store_pieces(make(row.vr), row.pieces);
    EXPECT_EQ(count(kTag), row.count) << row.vr;
    EXPECT_EQ(length(kTag, row.value), row.length) << row.vr << " " << row.value;
  }
}

TEST_F(Values, BuffersGoInAndOut) {
  const struct {
    VX_VR vr;
    uint32_t length;
    VX_STATUS set, get;
  } kRows[] = {{VX_VR_OB, 3, VX_NORMAL_COMPLETION, VX_NORMAL_COMPLETION},
               {VX_VR_OW, 3, VX_INVALID_VALUE_FOR_VR, VX_EMPTY_VALUE},
               {VX_VR_UN, 3, VX_INVALID_VALUE_FOR_VR, VX_EMPTY_VALUE},
               {VX_VR_UN, 4, VX_NORMAL_COMPLETION, VX_NORMAL_COMPLETION},
               {VX_VR_OW, 4, VX_NORMAL_COMPLETION, VX_NORMAL_COMPLETION},
               {VX_VR_OW, 0, VX_NORMAL_COMPLETION, VX_EMPTY_VALUE},
               {VX_VR_OL, 4, VX_NORMAL_COMPLETION, VX_INCOMPATIBLE_VR},
               {VX_VR_LO, 4, VX_INCOMPATIBLE_VR, VX_INCOMPATIBLE_VR},
               {VX_VR_US, 4, VX_INCOMPATIBLE_VR, VX_INCOMPATIBLE_VR}};
  char buffer[16];
  uint32_t length = 0;
  for (const auto& row : kRows) {
    make(row.vr);
    EXPECT_EQ(VX_Set_Value_From_Buffer(id, kTag, "wxyz", row.length), row.set) << row.vr << " " << row.length;
    EXPECT_EQ(VX_Get_Value_To_Buffer(id, kTag, sizeof buffer, buffer, &length), row.get);
    if (row.get == VX_NORMAL_COMPLETION) {
      EXPECT_EQ(std::string(buffer, length), std::string("wxyz", row.length));
    }
  }
  store_pieces(make(VX_VR_OB), {"abcd", "efghij", "k"});
  std::memset(buffer, 0, sizeof buffer);
  EXPECT_EQ(VX_Get_Value_To_Buffer(id, kTag, 9, buffer, &length), VX_BUFFER_TOO_SMALL);
  EXPECT_EQ(length, 6U) << "the piece that did not fit";
  EXPECT_STREQ(buffer, "abcd");
  EXPECT_EQ(VX_Get_Value_To_Buffer(id, kTag, 11, buffer, &length), VX_NORMAL_COMPLETION);
  EXPECT_EQ(std::string(buffer, length), "abcdefghijk");
  VX_Set_Value_To_NULL(id, kTag);
  EXPECT_EQ(VX_Get_Value_To_Buffer(id, kTag, 11, buffer, &length), VX_NULL_VALUE);
  EXPECT_EQ(length, 0U);
  EXPECT_EQ(buffer[0], '\0');
}

struct Reader {
  std::string pieces;
  int stop_after = 100;

  static VX_STATUS take(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t first,
                        int32_t last) {
    auto& self = *static_cast<Reader*>(user);
    support::mark_piece(&self.pieces, size, data, first, last);
    return --self.stop_after > 0 ? VX_NORMAL_COMPLETION : VX_CANNOT_COMPLY;
  }
};

TEST_F(Values, AReaderSeesThePieces) {
  store_pieces(make(VX_VR_OB), {"ab", "cd", "ef"});
  Reader reader;
  EXPECT_EQ(VX_Get_Value_To_Function(id, kTag, &reader, Reader::take), VX_NORMAL_COMPLETION);
  EXPECT_EQ(reader.pieces, "^ab|cd|ef$");
  Reader impatient{"", 2};
  EXPECT_EQ(VX_Get_Value_To_Function(id, kTag, &impatient, Reader::take), VX_CALLBACK_CANNOT_COMPLY);
  EXPECT_EQ(impatient.pieces, "^ab|cd|");
  EXPECT_EQ(VX_Get_Value_To_Function(id, kTag, &reader, nullptr), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Get_Value_To_Function(id, kTag + 1, &reader, nullptr), VX_INVALID_TAG);
  store_pieces(make(VX_VR_LO), {"ab"});
  EXPECT_EQ(VX_Get_Value_To_Function(id, kTag, &reader, Reader::take), VX_INCOMPATIBLE_VR);
}

struct Writer {
  struct Step {
    VX_STATUS status = VX_NORMAL_COMPLETION;
    int32_t size = 0;
    const char* data = nullptr;
    int32_t last = 0;
  };
  std::vector<Step> steps;
  std::size_t at = 0;
  std::string firsts;

  static VX_STATUS give(int32_t, uint32_t, int32_t first, void* user, int32_t* size, void** data,
                        int32_t* last) {
    auto& self = *static_cast<Writer*>(user);
    const Step& step = self.steps.at(self.at++);
    self.firsts += first != 0 ? '1' : '0';
    *size = step.size;
    *data = const_cast<char*>(step.data);
    *last = step.last;
    return step.status;
  }
};

TEST_F(Values, AWriterFillsOrLeavesTheValue) {
  constexpr VX_STATUS kFine = VX_NORMAL_COMPLETION;
  const struct {
    std::vector<Writer::Step> steps;
    VX_STATUS expected;
    std::string firsts, left;
  } kRows[] = {
      {{{kFine, 4, "abcd", 0}, {kFine, 2, "ef", 1}}, kFine, "10", "abcdef"},
      {{{kFine, 0, nullptr, 0}, {kFine, 2, "ef", 0}, {kFine, 0, nullptr, 1}}, kFine, "110", "ef"},
      {{{kFine, 0, nullptr, 1}}, kFine, "1", "OLDVALUE"},
      {{{kFine, 3, "abc", 1}}, VX_CALLBACK_DATA_SIZE_UNEVEN, "1", "OLDVALUE"},
      {{{kFine, -3, "abc", 1}}, VX_CALLBACK_DATA_SIZE_UNEVEN, "1", "OLDVALUE"},
      {{{kFine, -2, "abc", 1}}, VX_CALLBACK_DATA_SIZE_NEGATIVE, "1", "OLDVALUE"},
      {{{kFine, 2, nullptr, 1}}, VX_CALLBACK_PARM_ERROR, "1", "OLDVALUE"},
      {{{VX_CANNOT_COMPLY, 2, "ab", 1}}, VX_CALLBACK_CANNOT_COMPLY, "1", "OLDVALUE"},
      {{{kFine, 2, "ab", 0}, {VX_CANNOT_COMPLY, 2, "ab", 1}}, VX_CALLBACK_CANNOT_COMPLY, "10", ""},
      {{{kFine, 2, "ab", 0}, {kFine, 2, nullptr, 1}}, VX_CALLBACK_PARM_ERROR, "10", ""},
  };
  for (const VX_VR vr : {VX_VR_OB, VX_VR_OF, VX_VR_UT, VX_VR_UR}) {
    for (const auto& row : kRows) {
      vx::TagObj& attribute = make(vr);
      store_pieces(attribute, {"OLDVALUE"});
      Writer writer{row.steps, 0, ""};
      EXPECT_EQ(VX_Set_Value_From_Function(id, kTag, &writer, Writer::give), row.expected) << row.left;
      EXPECT_EQ(writer.firsts, row.firsts);
      EXPECT_EQ(bytes_of(attribute), row.left);
      EXPECT_EQ(attribute.Length, row.left.size());
      // However many pieces it came in, a text of one value is one value.
      if (vx::is_text_vr(vr) && !row.left.empty()) {
        EXPECT_EQ(attribute.ValueCount, 1);
      }
    }
  }
  for (const VX_VR vr : {VX_VR_UN, VX_VR_LO, VX_VR_US, VX_VR_SQ}) {
    make(vr);
    Writer writer;
    EXPECT_EQ(VX_Set_Value_From_Function(id, kTag, &writer, Writer::give), VX_INCOMPATIBLE_VR) << vr;
  }
}

TEST_F(Values, NumbersPackIntoWorkBuffers) {
  VX_Set_Int_Config_Value(VX_CFG_WORK_BUFFER_SIZE, 2048);
  for (const VX_VR vr : {VX_VR_US, VX_VR_UL, VX_VR_FD}) {
    vx::TagObj& attribute = make(vr);
    const int32_t many = 5000;
    for (int32_t i = 0; i < many; ++i) {
      ASSERT_EQ(VX_Set_Next_Value_From_Int(id, kTag, i), VX_NORMAL_COMPLETION);
    }
    EXPECT_EQ(attribute.ValueCount, many);
    EXPECT_EQ(attribute.Length, many * vx::vr_width(vr));
    uint32_t pieces = 0;
    for (const vx::ValueObj* v = attribute.FirstValue; v != nullptr; v = v->Next, ++pieces) {
      EXPECT_LE(v->Length, 2048U);
    }
    EXPECT_EQ(pieces, (attribute.Length + 2047) / 2048);
    int32_t number = -1;
    EXPECT_EQ(VX_Get_Value_To_Int(id, kTag, &number), VX_NORMAL_COMPLETION);
    for (int32_t i = 0; i < many; ++i) {
      ASSERT_EQ(number, i);
      ASSERT_EQ(VX_Get_Next_Value_To_Int(id, kTag, &number),
                i + 1 < many ? VX_NORMAL_COMPLETION : VX_NO_MORE_VALUES);
    }
    EXPECT_EQ(vx::numeric_value(attribute, 0), nullptr);
    EXPECT_EQ(vx::numeric_value(attribute, many + 1), nullptr);
    EXPECT_NE(vx::numeric_value(attribute, many), nullptr);
  }
}

// A bulk value comes in pieces that end anywhere, in memory and on files; numbers and texts know no pieces.
TEST_F(Values, PiecesEndAnywhereAndNothingIsLostByAnotherVr) {
  constexpr int32_t kMany = 3000;
  std::string numbers(kMany * sizeof(float), '\0');
  for (int32_t i = 0; i < kMany; ++i) {
    const auto number = static_cast<float>(i);
    std::memcpy(numbers.data() + i * sizeof number, &number, sizeof number);
  }
  set_text(VX_CFG_TEMP_FILE_DIRECTORY, folder().path());
  set_int(VX_CFG_OBOW_BUFFER_SIZE, 998);
  for (const char* store : {"MEM", "FILE"}) {
    set_text(VX_CFG_LARGE_DATA_STORE, store);
    VX_Free_Message(&id);
    ASSERT_EQ(VX_Open_Empty_Message(&id), VX_NORMAL_COMPLETION);
    const auto pieces_of = [](std::string_view bytes) {
      std::vector<std::string> pieces;
      for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(998, bytes.size())))
        pieces.emplace_back(bytes.substr(0, 998));
      return pieces;
    };
    store_pieces(make(VX_VR_OF), pieces_of(numbers));
    ASSERT_EQ(VX_Set_Value_Representation(id, kTag, VX_VR_FL), VX_NORMAL_COMPLETION);
    EXPECT_EQ(count(kTag), kMany);
    float number = -1;
    ASSERT_EQ(VX_Get_Value_To_Float(id, kTag, &number), VX_NORMAL_COMPLETION);
    for (int32_t i = 1; i < kMany; ++i) {
      ASSERT_EQ(VX_Get_Next_Value_To_Float(id, kTag, &number), VX_NORMAL_COMPLETION) << store << " " << i;
      ASSERT_EQ(number, static_cast<float>(i));
    }
    const std::string text(3000, 't');
    for (const VX_VR vr : {VX_VR_UT, VX_VR_LT, VX_VR_ST, VX_VR_UR, VX_VR_LO}) {
      vx::TagObj& attribute = make(VX_VR_OB);
      store_pieces(attribute, pieces_of(text));
      ASSERT_EQ(VX_Set_Value_Representation(id, kTag, vr), VX_NORMAL_COMPLETION);
      EXPECT_EQ(attribute.ValueCount, 1) << store << " " << vr;
      EXPECT_EQ(bytes_of(attribute), text) << store << " " << vr;
      EXPECT_EQ(attribute.Length, text.size());
    }
  }
}

TEST_F(Values, StreamBytesComeToTheMachinesOrder) {
  const struct {
    VX_VR vr;
    bool big_endian;
    std::string bytes, stored;
    VX_STATUS status;
  } kRows[] = {
      {VX_VR_US, false, "abcd", "abcd", VX_NORMAL_COMPLETION},
      {VX_VR_US, true, "abcd", "badc", VX_NORMAL_COMPLETION},
      {VX_VR_UL, true, "abcd", "dcba", VX_NORMAL_COMPLETION},
      {VX_VR_FD, true, "abcdefgh", "hgfedcba", VX_NORMAL_COMPLETION},
      {VX_VR_AT, false, "abcd", "cdab", VX_NORMAL_COMPLETION},
      {VX_VR_AT, true, "abcd", "dcba", VX_NORMAL_COMPLETION},
      {VX_VR_OW, true, "abcd", "badc", VX_NORMAL_COMPLETION},
      {VX_VR_OF, true, "abcd", "dcba", VX_NORMAL_COMPLETION},
      {VX_VR_OD, true, "abcdefgh", "hgfedcba", VX_NORMAL_COMPLETION},
      {VX_VR_OB, true, "abc", "abc", VX_NORMAL_COMPLETION},
      {VX_VR_UN, true, "abc", "abc", VX_NORMAL_COMPLETION},
      {VX_VR_LO, true, "abc", "abc", VX_NORMAL_COMPLETION},
      {VX_VR_UL, true, "abc", "", VX_INVALID_LENGTH_FOR_VR},
      {VX_VR_AT, false, "abcdef", "", VX_INVALID_LENGTH_FOR_VR},
      {VX_VR_UL, false, "abc", "abc", VX_NORMAL_COMPLETION},
  };
  for (const auto& row : kRows) {
    vx::TagObj& attribute = make(row.vr);
    EXPECT_EQ(vx::store_value(object(), attribute, row.bytes.data(), static_cast<uint32_t>(row.bytes.size()),
                              {.from_stream = true, .big_endian = row.big_endian}),
              row.status);
    EXPECT_EQ(bytes_of(attribute), row.stored) << row.vr;
  }
}

TEST_F(Values, ByteSwapCrossesPieces) {
  const struct {
    VX_VR vr;
    std::vector<std::string> pieces;
    std::string swapped;
  } kRows[] = {{VX_VR_OW, {"abcd", "ef"}, "badcfe"},
               {VX_VR_OW, {"abc", "de", "f"}, "badcfe"},
               {VX_VR_OL, {"ab", "c", "defg", "h"}, "dcbahgfe"},
               {VX_VR_OF, {"a", "b", "c", "d"}, "dcba"},
               {VX_VR_OD, {"abc", "defgh01234567"}, "hgfedcba76543210"},
               {VX_VR_OW, {"abc"}, "bac"}};
  for (const auto& row : kRows) {
    vx::TagObj& attribute = make(row.vr);
    store_pieces(attribute, row.pieces);
    const std::string before = bytes_of(attribute);
    EXPECT_EQ(VX_Byte_Swap_OBOW(id, kTag), VX_NORMAL_COMPLETION);
    EXPECT_EQ(bytes_of(attribute), row.swapped);
    EXPECT_EQ(VX_Byte_Swap_OBOW(id, kTag), VX_NORMAL_COMPLETION);
    EXPECT_EQ(bytes_of(attribute), before);
  }
  const struct {
    VX_VR vr;
    VX_STATUS expected;
  } kEmpty[] = {{VX_VR_OB, VX_NORMAL_COMPLETION},
                {VX_VR_OW, VX_EMPTY_VALUE},
                {VX_VR_UN, VX_INCOMPATIBLE_VR},
                {VX_VR_US, VX_INCOMPATIBLE_VR}};
  for (const auto& row : kEmpty) {
    make(row.vr);
    EXPECT_EQ(VX_Byte_Swap_OBOW(id, kTag), row.expected) << row.vr;
  }
}

// Texts, some of them without data, and the cursor as a number. Behind the end it stays there whatever comes.
struct TextModel {
  std::vector<std::optional<std::string>> values;
  std::size_t cursor = 0;  // 0: never placed
  bool at_end = false;

  VX_STATUS read(std::size_t place) {
    if (at_end) return VX_NO_MORE_VALUES;
    cursor = place;
    at_end = cursor > values.size();
    if (at_end) return VX_NO_MORE_VALUES;
    return values[cursor - 1] ? VX_NORMAL_COMPLETION : VX_NULL_VALUE;
  }
  bool no_data() const {
    return std::none_of(values.begin(), values.end(), [](const auto& value) { return value.has_value(); });
  }
  VX_STATUS remove() {
    if (no_data()) {
      if (values.empty() || values.size() < cursor) return VX_EMPTY_VALUE;
      if (values.size() == 1) return VX_NULL_VALUE;
    }
    if (at_end) return VX_NO_MORE_VALUES;
    values.erase(values.begin() + static_cast<std::ptrdiff_t>(cursor < 2 ? 0 : cursor - 1));
    cursor = cursor < 2 ? 1 : cursor - 1;
    return VX_NORMAL_COMPLETION;
  }
  VX_STATUS length(std::size_t number, uint32_t& length) const {
    length = 0;
    if (no_data()) return values.empty() ? VX_EMPTY_VALUE : VX_NULL_VALUE;
    if (number > values.size()) return VX_INVALID_VALUE_NUMBER;
    length = static_cast<uint32_t>(values[number - 1].value_or("").size());
    return VX_NORMAL_COMPLETION;
  }
};

TEST_F(Values, ARandomTextSessionAgreesWithAVector) {
  std::mt19937 random(5);
  make(VX_VR_LO);
  TextModel model;
  char text[80];
  for (int step = 0; step < 8000; ++step) {
    const std::string value = "VALUE " + std::to_string(random() % 1000);
    const std::size_t number = 1 + random() % 8;
    uint32_t got = 0, want = 0;
    switch (random() % 8) {
      case 0:
      case 1:
        ASSERT_EQ(VX_Set_Next_Value_From_String(id, kTag, value.c_str()), VX_NORMAL_COMPLETION);
        if (model.values.empty()) model = {};
        model.values.emplace_back(value);
        break;
      case 2:
        if (model.values.empty()) break;
        ASSERT_EQ(VX_Set_Next_Value_To_NULL(id, kTag), VX_NORMAL_COMPLETION);
        model.values.emplace_back();
        break;
      case 3:
        if (model.values.empty()) break;
        model.at_end = false;
        ASSERT_EQ(VX_Get_Value_To_String(id, kTag, sizeof text, text), model.read(1));
        break;
      case 4:
      case 5: {
        if (model.values.empty()) break;
        const VX_STATUS expected = model.read(model.cursor + 1);
        ASSERT_EQ(VX_Get_Next_Value_To_String(id, kTag, sizeof text, text), expected);
        if (expected == VX_NORMAL_COMPLETION) {
          ASSERT_EQ(text, *model.values[model.cursor - 1]);
        }
        break;
      }
      case 6:
        ASSERT_EQ(VX_Delete_Current_Value(id, kTag), model.remove());
        break;
      default:
        if (random() % 40 == 0) {
          ASSERT_EQ(VX_Set_Value_From_String(id, kTag, value.c_str()), VX_NORMAL_COMPLETION);
          model = {{value}, 0, false};
        }
        ASSERT_EQ(VX_Get_Value_Length(id, kTag, static_cast<int32_t>(number), &got),
                  model.length(number, want));
        ASSERT_EQ(got, want);
    }
    ASSERT_EQ(static_cast<std::size_t>(find(kTag)->ValueCount), model.values.size());
  }
}

TEST_F(Values, WhatCanNotLoseASingleValue) {
  for (const VX_VR vr : {VX_VR_OB, VX_VR_OW, VX_VR_OL, VX_VR_OD, VX_VR_OF, VX_VR_US, VX_VR_FD, VX_VR_AT}) {
    store_pieces(make(vr), {"abcdefgh"});
    EXPECT_EQ(VX_Delete_Current_Value(id, kTag), VX_INCOMPATIBLE_VR) << vr;
  }
  vx::TagObj& unknown = make(VX_VR_UN);
  store_pieces(unknown, {"abcd", "ef"});
  EXPECT_EQ(VX_Delete_Current_Value(id, kTag), VX_NORMAL_COMPLETION);
  EXPECT_EQ(bytes_of(unknown), "ef");
}

}  // namespace
