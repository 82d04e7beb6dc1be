// Values from native types: what each VR takes and what comes out of it, the order of refusals, what stays
// stored after a failure.
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <random>
#include <set>

#include "frame/pool.h"
#include "model/convert.h"
#include "value_fixture.h"

namespace {

// One native value, by the function of its type.
template <auto Function, typename T>
VX_STATUS set_as(int32_t id, uint32_t tag, double value) {
  return Function(id, tag, static_cast<T>(value));
}
constexpr struct {
  VX_DATA_TYPE type;
  VX_STATUS (*set)(int32_t, uint32_t, double);
} kNumbers[] = {{VX_INT_TYPE, set_as<VX_Set_Value_From_Int, int32_t>},
                {VX_UINT_TYPE, set_as<VX_Set_Value_From_UInt, uint32_t>},
                {VX_SHORTINT_TYPE, set_as<VX_Set_Value_From_ShortInt, int16_t>},
                {VX_USHORTINT_TYPE, set_as<VX_Set_Value_From_UShortInt, uint16_t>},
                {VX_LONGINT_TYPE, set_as<VX_Set_Value_From_LongInt, int32_t>},
                {VX_ULONGINT_TYPE, set_as<VX_Set_Value_From_ULongInt, uint32_t>},
                {VX_FLOAT_TYPE, set_as<VX_Set_Value_From_Float, float>},
                {VX_DOUBLE_TYPE, set_as<VX_Set_Value_From_Double, double>}};

constexpr VX_STATUS kOk = VX_NORMAL_COMPLETION;

class ConvertIn : public support::ValueTest {
 protected:
  VX_STATUS set(uint32_t tag, VX_DATA_TYPE type, double value) const {
    const auto is_type = [type](const auto& row) { return row.type == type; };
    return std::find_if(std::begin(kNumbers), std::end(kNumbers), is_type)->set(id, tag, value);
  }
};

TEST_F(ConvertIn, EachVrTakesItsTypes) {
  const int32_t held = item();
  const std::string item_text = std::to_string(held);
  const std::set<VX_VR> no_text = {VX_VR_UN, VX_VR_OB, VX_VR_OW, VX_VR_OL, VX_VR_OD, VX_VR_OF};
  const std::set<VX_DATA_TYPE> no_tag = {VX_SHORTINT_TYPE, VX_USHORTINT_TYPE, VX_FLOAT_TYPE, VX_DOUBLE_TYPE};
  const std::map<VX_VR, std::string> texts = {{VX_VR_SQ, item_text},
                                              {VX_VR_AS, "003Y"},
                                              {VX_VR_DA, "20240131"},
                                              {VX_VR_TM, "23"},
                                              {VX_VR_UR, "//host/x"}};
  for (VX_VR vr = VX_VR_AE; vr <= VX_VR_SQ; ++vr) {
    SCOPED_TRACE(vr);
    const uint32_t tag = attribute(vr);
    const bool numeric =
        vr == VX_VR_DS || vr == VX_VR_IS || (vr >= VX_VR_SS && vr <= VX_VR_FD) || vr == VX_VR_SQ;
    for (const auto& [type, set] : kNumbers) {
      const bool taken = numeric && (vr != VX_VR_AT || no_tag.count(type) == 0);
      EXPECT_EQ(set(id, tag, vr == VX_VR_SQ ? held : 3), taken ? kOk : VX_INCOMPATIBLE_VR) << type;
    }
    const std::string text = texts.count(vr) != 0 ? texts.at(vr) : "3";
    EXPECT_EQ(VX_Set_Value_From_String(id, tag, text.c_str()),
              no_text.count(vr) != 0 ? VX_INCOMPATIBLE_VR : kOk);
  }
}

TEST_F(ConvertIn, NumbersBecomeTheFormOfTheVr) {
  struct Row {
    VX_VR vr;
    VX_DATA_TYPE type;
    double value;
    VX_STATUS status;
    const char* stored;
  };
  constexpr VX_STATUS kRange = VX_VALUE_OUT_OF_RANGE;
  const Row rows[] = {
      {VX_VR_IS, VX_INT_TYPE, -2147483648.0, kOk, "-2147483648"},
      {VX_VR_IS, VX_UINT_TYPE, 4294967295.0, VX_INVALID_VALUE_FOR_VR, "4294967295"},
      {VX_VR_DS, VX_ULONGINT_TYPE, 4294967295.0, kOk, "4294967295"},
      {VX_VR_DS, VX_SHORTINT_TYPE, -5, kOk, "-5"},
      {VX_VR_DS, VX_USHORTINT_TYPE, 65535, kOk, "65535"},
      {VX_VR_FD, VX_UINT_TYPE, 4294967295.0, kOk, "-1"},
      {VX_VR_FL, VX_LONGINT_TYPE, -7, kOk, "-7"},
      {VX_VR_FD, VX_USHORTINT_TYPE, 65535, kOk, "-1"},
      {VX_VR_SL, VX_UINT_TYPE, 4294967295.0, kOk, "-1"},
      {VX_VR_UL, VX_INT_TYPE, -1, kOk, "4294967295"},
      {VX_VR_AT, VX_UINT_TYPE, 0x00280010, kOk, "2621456"},
      {VX_VR_US, VX_INT_TYPE, 70000, kOk, "4464"},
      {VX_VR_US, VX_LONGINT_TYPE, 70000, kRange, "#4017"},
      {VX_VR_US, VX_LONGINT_TYPE, 65535, kOk, "65535"},
      {VX_VR_US, VX_LONGINT_TYPE, -1, kRange, "#4017"},
      {VX_VR_SS, VX_LONGINT_TYPE, 32768, kRange, "#4017"},
      {VX_VR_SS, VX_LONGINT_TYPE, -32768, kOk, "-32768"},
      {VX_VR_SS, VX_ULONGINT_TYPE, 4294967295.0, kRange, "#4017"},
      {VX_VR_SL, VX_USHORTINT_TYPE, 65535, kOk, "-1"},
      {VX_VR_UL, VX_USHORTINT_TYPE, 65535, kOk, "65535"},
      {VX_VR_UL, VX_SHORTINT_TYPE, -1, kOk, "65535"},
      {VX_VR_SL, VX_DOUBLE_TYPE, 2.0, kOk, "2"},
      {VX_VR_SL, VX_DOUBLE_TYPE, 1.5, kRange, "#4017"},
      {VX_VR_SL, VX_DOUBLE_TYPE, 2147483648.0, kRange, "#4017"},
      {VX_VR_SL, VX_DOUBLE_TYPE, -2147483648.0, kOk, "-2147483648"},
      {VX_VR_UL, VX_DOUBLE_TYPE, 4294967295.0, kOk, "4294967295"},
      {VX_VR_UL, VX_DOUBLE_TYPE, 4294967296.0, kRange, "#4017"},
      {VX_VR_UL, VX_DOUBLE_TYPE, -1.0, kRange, "#4017"},
      {VX_VR_SS, VX_FLOAT_TYPE, -32768.0, kOk, "-32768"},
      {VX_VR_US, VX_FLOAT_TYPE, 65536.0, kRange, "#4017"},
      {VX_VR_US, VX_DOUBLE_TYPE, std::nan(""), kRange, "#4017"},
      {VX_VR_FL, VX_DOUBLE_TYPE, 1e300, kOk, "inf"},
      {VX_VR_IS, VX_DOUBLE_TYPE, 2.5, kOk, "2"},
      {VX_VR_IS, VX_DOUBLE_TYPE, -3.5, kOk, "-4"},
      {VX_VR_DS, VX_DOUBLE_TYPE, 0.1, kOk, "0.1"},
      {VX_VR_DS, VX_DOUBLE_TYPE, 1.0e300, kOk, "1e+300"},
      {VX_VR_DS, VX_DOUBLE_TYPE, -1.0 / 3 * 1e-5, kOk, "-3.333333333e-06"},
      {VX_VR_DS, VX_FLOAT_TYPE, 0.1, kOk, "0.1"},
      {VX_VR_DS, VX_FLOAT_TYPE, 1234567.0, kOk, "1.23457e+06"},
      {VX_VR_FL, VX_DOUBLE_TYPE, 0.1, kOk, "0.1"},
      {VX_VR_FL, VX_DOUBLE_TYPE, 16777216, kOk, "1.677722e+07"},
      {VX_VR_FD, VX_DOUBLE_TYPE, 0.1, kOk, "0.1"},
      {VX_VR_FD, VX_DOUBLE_TYPE, 1.0 / 3, kOk, "0.3333333333333333"},
      {VX_VR_FD, VX_DOUBLE_TYPE, -1e-300, kOk, "-1e-300"},
      {VX_VR_SQ, VX_DOUBLE_TYPE, 1e10, kRange, "#4017"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << "VR " << row.vr << " type " << row.type << " value " << row.value);
    const uint32_t tag = attribute(row.vr);
    EXPECT_EQ(set(tag, row.type, row.value), row.status);
    EXPECT_EQ(text(tag), row.stored);
  }
}

// The text is the most precise of the tries that fits; printf is the judge.
TEST_F(ConvertIn, DecimalStringsKeepAllTheDigitsThatFit) {
  const uint32_t tag = attribute(VX_VR_DS);
  std::mt19937_64 random(5);
  for (int i = 0; i < 3000; ++i) {
    uint64_t bits = random();
    double value;
    std::memcpy(&value, &bits, sizeof value);
    if (i % 2 == 0) value = std::ldexp(static_cast<double>(static_cast<int64_t>(bits)), -40);
    if (!std::isfinite(value)) continue;
    char expected[64];
    for (int precision = 14; precision >= 8; --precision) {
      if (std::snprintf(expected, sizeof expected, "%.*g", precision, value) <= 16) break;
    }
    ASSERT_EQ(VX_Set_Value_From_Double(id, tag, value), kOk) << value;
    ASSERT_EQ(text(tag), expected);
  }
}

TEST_F(ConvertIn, ALongIntegerStringOutgrowsNoBuffer) {
  const uint32_t tag = attribute(VX_VR_IS);
  EXPECT_EQ(VX_Set_Value_From_Double(id, tag, -std::numeric_limits<double>::max()), VX_INVALID_VALUE_FOR_VR);
  EXPECT_EQ(text(tag).size(), 310U);
  EXPECT_EQ(VX_Set_Value_From_Double(id, tag, std::numeric_limits<double>::infinity()),
            VX_INVALID_CHARS_IN_VALUE);
}

TEST_F(ConvertIn, TextBecomesTheFormOfTheVr) {
  struct Row {
    VX_VR vr;
    const char* text;
    VX_STATUS status;
    const char* stored;
  };
  const Row rows[] = {
      {VX_VR_US, "70000", kOk, "4464"},
      {VX_VR_SS, "65535", kOk, "-1"},
      {VX_VR_SL, "-5", kOk, "-5"},
      {VX_VR_UL, "99999999999", kOk, "4294967295"},
      {VX_VR_UL, "12 ", VX_INVALID_VALUE_FOR_VR, "#4017"},
      {VX_VR_UL, "x", VX_INVALID_VALUE_FOR_VR, "#4017"},
      {VX_VR_AT, "2621456", kOk, "2621456"},
      {VX_VR_FD, "1.5e3", kOk, "1500"},
      {VX_VR_FD, "1.5.2", VX_INVALID_VALUE_FOR_VR, "#4017"},
      {VX_VR_FD, "1e400", VX_VALUE_OUT_OF_RANGE, "#4017"},
      {VX_VR_FL, "1e39", VX_VALUE_OUT_OF_RANGE, "#4017"},
      {VX_VR_FL, "1e-39", VX_VALUE_OUT_OF_RANGE, "#4017"},
      {VX_VR_FL, "1.1754943508222875e-38", kOk, "1.175494e-38"},
      {VX_VR_FL, "3.4028234663852886e38", kOk, "3.402823e+38"},
      {VX_VR_FL, "-0.0", kOk, "0"},
      {VX_VR_SQ, "12345678", VX_INVALID_VALUE_FOR_VR, "#4017"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << "VR " << row.vr << " text " << row.text);
    const uint32_t tag = attribute(row.vr);
    clear_log();
    EXPECT_EQ(VX_Set_Value_From_String(id, tag, row.text), row.status);
    EXPECT_EQ(text(tag), row.stored);
    EXPECT_EQ(has_log("Failed to convert String to VR for tag 0x0099"), row.status != kOk);
  }
}

TEST_F(ConvertIn, RefusalsComeInOrder) {
  EXPECT_EQ(VX_Set_Value_From_String(99999, 0x00100010, nullptr), VX_INVALID_MESSAGE_ID);
  EXPECT_EQ(VX_Set_Value_From_String(id, 0x00990001, nullptr), VX_INVALID_TAG);
  EXPECT_EQ(VX_Set_Value_From_String(id, 0x00420011, nullptr), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Set_Value_From_String(id, 0x00420011, "x"), VX_INCOMPATIBLE_VR);
  const int32_t number = 5;
  EXPECT_EQ(VX_Set_Value(id, 0x00420011, 77, &number), VX_INCOMPATIBLE_VR);
  EXPECT_EQ(VX_Set_Value(id, 0x00280010, 77, nullptr), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Set_Value(id, 0x00280010, 77, &number), VX_INVALID_DATA_TYPE);
  EXPECT_TRUE(has_log("Convert data type 77 to VR failed - Invalid data type"));
  EXPECT_EQ(VX_Set_Value(id, 0x00280010, VX_BUFFER_TYPE, &number), VX_INVALID_DATA_TYPE);
}

TEST_F(ConvertIn, AFailedConversionOfAFirstValueLeavesNothing) {
  const uint32_t tag = attribute(VX_VR_US);
  ASSERT_EQ(VX_Set_Value_From_Int(id, tag, 1), kOk);
  ASSERT_EQ(VX_Set_Next_Value_From_Int(id, tag, 2), kOk);
  EXPECT_EQ(VX_Set_Next_Value_From_LongInt(id, tag, -1), VX_VALUE_OUT_OF_RANGE);
  EXPECT_EQ(count(tag), 2);
  EXPECT_EQ(VX_Set_Value_From_LongInt(id, tag, -1), VX_VALUE_OUT_OF_RANGE);
  EXPECT_EQ(text(tag), "#" + std::to_string(VX_EMPTY_VALUE));
}

TEST_F(ConvertIn, AnInvalidTextIsStoredAllTheSame) {
  const uint32_t ae = attribute(VX_VR_AE);
  EXPECT_EQ(VX_Set_Value_From_String(id, ae, "SEVENTEEN_LETTERS"), VX_INVALID_VALUE_FOR_VR);
  EXPECT_EQ(text(ae), "SEVENTEEN_LETTERS");
  const uint32_t cs = attribute(VX_VR_CS);
  EXPECT_EQ(VX_Set_Value_From_String(id, cs, "GOOD"), kOk);
  EXPECT_EQ(VX_Set_Next_Value_From_String(id, cs, "bad"), VX_INVALID_CHARS_IN_VALUE);
  EXPECT_EQ(text(cs), "GOOD");
  EXPECT_EQ(next_text(cs), "bad");
}

TEST_F(ConvertIn, AnEmptyTextIsANullValueOfATextVr) {
  const uint32_t lo = attribute(VX_VR_LO);
  EXPECT_EQ(VX_Set_Value_From_String(id, lo, ""), kOk);
  EXPECT_EQ(text(lo), "#" + std::to_string(VX_NULL_VALUE));
  EXPECT_EQ(VX_Set_Next_Value_From_String(id, lo, "second"), kOk);
  EXPECT_EQ(count(lo), 2);
  EXPECT_EQ(text(lo), "#" + std::to_string(VX_NULL_VALUE));
  EXPECT_EQ(next_text(lo), "second");
  EXPECT_EQ(VX_Set_Value_From_String(id, attribute(VX_VR_US), ""), VX_INVALID_VALUE_FOR_VR);
  // A null value of these does not stay behind a new one.
  for (const VX_VR vr : {VX_VR_ST, VX_VR_LT, VX_VR_UT, VX_VR_UR, VX_VR_US}) {
    const uint32_t tag = attribute(vr);
    ASSERT_EQ(VX_Set_Value_To_NULL(id, tag), kOk);
    EXPECT_EQ(VX_Set_Next_Value_From_String(id, tag, vr == VX_VR_UR ? "//x" : "7"), kOk);
    EXPECT_EQ(count(tag), 1) << vr;
  }
}

TEST_F(ConvertIn, CommasAreRefusedOrTurnIntoPoints) {
  for (const VX_VR vr : {VX_VR_DS, VX_VR_FL, VX_VR_FD}) {
    SCOPED_TRACE(vr);
    const uint32_t tag = attribute(vr);
    ASSERT_EQ(VX_Set_Value_From_String(id, tag, "4"), kOk);
    EXPECT_EQ(VX_Set_Value_From_String(id, tag, "1,5"), VX_INVALID_VALUE_FOR_VR);
    EXPECT_EQ(VX_Set_Value_From_String(id, tag, std::string(257, '1').c_str()), VX_INVALID_VALUE_FOR_VR);
    EXPECT_EQ(text(tag), "4");  // refused before the old value went
    set_bool(VX_CFG_ALLOW_COMMA_IN_DS_FL_FD_STRINGS, true);
    EXPECT_EQ(VX_Set_Value_From_String(id, tag, "1,5"), kOk);
    EXPECT_EQ(text(tag), "1.5");
    set_bool(VX_CFG_ALLOW_COMMA_IN_DS_FL_FD_STRINGS, false);
  }
}

TEST_F(ConvertIn, PaddingGoesWhenTheSettingSaysSo) {
  struct Row {
    VX_VR vr;
    const char* given;
    const char* stored;
  };
  constexpr Row kRows[] = {{VX_VR_LO, " a b  ", "a b"}, {VX_VR_LT, " a b  ", " a b"},
                           {VX_VR_ST, "  x ", "  x"},   {VX_VR_UT, " y", " y"},
                           {VX_VR_LO, "   ", "   "},    {VX_VR_DS, " 1.5 ", "1.5"}};
  for (const bool remove : {false, true}) {
    set_bool(VX_CFG_REMOVE_PADDING_CHARS, remove);
    for (const Row& row : kRows) {
      const uint32_t tag = attribute(row.vr);
      EXPECT_EQ(VX_Set_Value_From_String(id, tag, row.given), kOk) << row.given;
      EXPECT_EQ(text(tag), remove ? row.stored : row.given);
    }
  }
}

TEST_F(ConvertIn, SequencesTakeItemsOnly) {
  const uint32_t tag = attribute(VX_VR_SQ);
  const int32_t first = item(), second = item();
  EXPECT_EQ(VX_Set_Value_From_Int(id, tag, id), VX_INVALID_VALUE_FOR_VR);
  EXPECT_TRUE(has_log("Failed to convert Int to VR for tag 0x0099101E"));
  EXPECT_EQ(VX_Set_Value_From_Int(id, tag, first), kOk);
  EXPECT_EQ(VX_Set_Next_Value_From_Double(id, tag, second + 0.75), kOk);
  EXPECT_EQ(text(tag), std::to_string(first));
  EXPECT_EQ(next_text(tag), std::to_string(second));
  const vx::MsgObj& held = *vx::find_object(first);
  EXPECT_EQ(held.ParentID, id);
  EXPECT_EQ(held.PrivateTag, tag);
  EXPECT_EQ(held.RefCount, 1);
}

TEST_F(ConvertIn, EncapsulatedPixelsStayOutOfAPlainMessage) {
  const uint32_t tag = attribute(VX_VR_SQ);
  const int32_t icon = item();
  ASSERT_EQ(VX_Add_Standard_Attribute(icon, 0x7FE00010), kOk);
  vx::find_object(icon)->TransferSyntax = JPEG_BASELINE;
  EXPECT_EQ(VX_Set_Value_From_Int(id, tag, icon), VX_INVALID_ENCAPSULATED_PIXEL_DATA);
  EXPECT_TRUE(has_log("Trying to set encapsulated pixel data (7FE0,0010) to a non-encapsulated message"));
  EXPECT_EQ(vx::find_object(icon)->RefCount, 0);
  object().TransferSyntax = JPEG_BASELINE;
  EXPECT_EQ(VX_Set_Value_From_Int(id, tag, icon), kOk);
}

TEST_F(ConvertIn, WithoutMemoryNothingIsStored) {
  for (const VX_VR vr : {VX_VR_LO, VX_VR_US, VX_VR_DS}) {
    const uint32_t tag = attribute(vr);
    // An attribute has room of its own for a little.
    for (int i = 0; i < 8; ++i) ASSERT_EQ(VX_Set_Next_Value_From_String(id, tag, "12"), kOk);
    vx::fail_allocation_after(1);
    EXPECT_EQ(VX_Set_Next_Value_From_String(id, tag, "34"), VX_SYSTEM_ERROR);
    vx::fail_allocation_after(0);
    EXPECT_EQ(count(tag), 8);
    EXPECT_EQ(text(tag), "12");
    EXPECT_EQ(VX_Set_Next_Value_From_String(id, tag, "34"), kOk);
  }
  const uint32_t sequence = attribute(VX_VR_SQ);
  ASSERT_EQ(VX_Set_Value_From_Int(id, sequence, item()), kOk);
  const int32_t second = item();
  vx::fail_allocation_after(1);
  EXPECT_EQ(VX_Set_Next_Value_From_Int(id, sequence, second), VX_SYSTEM_ERROR);
  vx::fail_allocation_after(0);
  EXPECT_EQ(vx::find_object(second)->RefCount, 0);
}

TEST_F(ConvertIn, AFullAttributeTakesNoMore) {
  const uint32_t tag = attribute(VX_VR_LO);
  ASSERT_EQ(VX_Set_Value_From_String(id, tag, "x"), kOk);
  find(tag)->ValueCount = std::numeric_limits<int32_t>::max();
  EXPECT_EQ(VX_Set_Next_Value_From_String(id, tag, "y"), VX_TOO_MANY_VALUES);
  find(tag)->ValueCount = 1;
}

}  // namespace
