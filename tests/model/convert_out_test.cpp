// Values into native types: parsing, bounds, formats, the cursor.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <random>

#include "value_fixture.h"

namespace {

class ConvertOut : public support::ValueTest {
 protected:
  uint32_t with_text(VX_VR vr, const std::string& value) {
    const uint32_t tag = attribute(vr);
    VX_Set_Value_From_String(id, tag, value.c_str());  // an invalid one is stored too
    return tag;
  }
  uint32_t with_double(VX_VR vr, double value) {
    const uint32_t tag = attribute(vr);
    EXPECT_EQ(VX_Set_Value_From_Double(id, tag, value), VX_NORMAL_COMPLETION);
    return tag;
  }
  // Status, and the value as a double.
  VX_STATUS get(uint32_t tag, VX_DATA_TYPE type, double& value) {
    unsigned char bytes[8] = {};
    uint32_t length = 0;
    const VX_STATUS status = VX_Get_Value(id, tag, type, sizeof bytes, bytes, &length);
    static const std::map<VX_DATA_TYPE, double (*)(const unsigned char*)> kReaders = {
        {VX_INT_TYPE, read<int32_t>},      {VX_LONGINT_TYPE, read<int32_t>},
        {VX_UINT_TYPE, read<uint32_t>},    {VX_ULONGINT_TYPE, read<uint32_t>},
        {VX_SHORTINT_TYPE, read<int16_t>}, {VX_USHORTINT_TYPE, read<uint16_t>},
        {VX_FLOAT_TYPE, read<float>},      {VX_DOUBLE_TYPE, read<double>}};
    value = kReaders.at(type)(bytes);
    return status;
  }

 private:
  template <typename T>
  static double read(const unsigned char* bytes) {
    T value;
    std::memcpy(&value, bytes, sizeof value);
    return static_cast<double>(value);
  }
};

constexpr VX_STATUS kOk = VX_NORMAL_COMPLETION;
constexpr VX_STATUS kRange = VX_VALUE_OUT_OF_RANGE;

TEST_F(ConvertOut, TextsBecomeNumbers) {
  struct Row {
    VX_VR vr;
    const char* text;
    VX_DATA_TYPE type;
    VX_STATUS status;
    double value;
  };
  const Row rows[] = {
      {VX_VR_IS, "12", VX_INT_TYPE, kOk, 12},
      {VX_VR_IS, "12 ", VX_INT_TYPE, kOk, 12},
      {VX_VR_IS, " +12", VX_INT_TYPE, kOk, 12},
      {VX_VR_IS, "-2147483648", VX_INT_TYPE, kOk, -2147483648.0},
      {VX_VR_IS, "2147483648", VX_INT_TYPE, kRange, 0},
      {VX_VR_IS, "1.5", VX_INT_TYPE, kOk, 1},
      {VX_VR_IS, "12x", VX_INT_TYPE, VX_INCOMPATIBLE_VALUE, 0},
      {VX_VR_DS, "1.9", VX_INT_TYPE, kOk, 1},
      {VX_VR_DS, "-1.9", VX_INT_TYPE, kOk, -1},
      {VX_VR_DS, "1e3", VX_INT_TYPE, kOk, 1000},
      {VX_VR_DS, "1.9999999", VX_INT_TYPE, kOk, 2},  // as six decimals print it
      {VX_VR_DS, "-0.9999996", VX_INT_TYPE, kOk, -1},
      {VX_VR_DS, "letters", VX_INT_TYPE, VX_INCOMPATIBLE_VALUE, 0},
      {VX_VR_DS, "   ", VX_INT_TYPE, kOk, 0},
      {VX_VR_DS, "3000000000", VX_INT_TYPE, kRange, 0},
      {VX_VR_DS, "3000000000", VX_UINT_TYPE, kOk, 2147483647},
      {VX_VR_DS, "-1", VX_UINT_TYPE, kRange, 0},
      {VX_VR_DS, "1e400", VX_DOUBLE_TYPE, kRange, 0},
      {VX_VR_DS, "1e300", VX_DOUBLE_TYPE, kOk, 1e300},
      {VX_VR_DS, "1e300", VX_FLOAT_TYPE, kRange, 0},
      {VX_VR_DS, "32767.5", VX_SHORTINT_TYPE, kRange, 0},
      {VX_VR_DS, "0.1", VX_FLOAT_TYPE, kOk, static_cast<double>(0.1F)},
      {VX_VR_DS, "11111111111111111111111111111111111111111111111112", VX_DOUBLE_TYPE, VX_INCOMPATIBLE_VALUE,
       0},
      {VX_VR_DS, "1111111111111111111111111111111111111111111111111", VX_DOUBLE_TYPE, kOk,
       1111111111111111111111111111111111111111111111111.0},
      {VX_VR_LO, "12", VX_INT_TYPE, VX_INCOMPATIBLE_VR, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << "'" << row.text << "' type " << row.type);
    double value = 0;
    EXPECT_EQ(get(with_text(row.vr, row.text), row.type, value), row.status);
    if (row.status == kOk) {
      EXPECT_EQ(value, row.value);
    }
  }
}

TEST_F(ConvertOut, StoredNumbersMeetTheBoundsOfTheType) {
  struct Row {
    VX_VR vr;
    double stored;
    VX_DATA_TYPE type;
    VX_STATUS status;
    double value;
  };
  const Row rows[] = {
      {VX_VR_US, 65535, VX_SHORTINT_TYPE, kRange, 0},
      {VX_VR_US, 65535, VX_USHORTINT_TYPE, kOk, 65535},
      {VX_VR_SS, -1, VX_UINT_TYPE, kRange, 0},
      {VX_VR_SS, -1, VX_INT_TYPE, kOk, -1},
      {VX_VR_SL, -70000, VX_SHORTINT_TYPE, kRange, 0},
      {VX_VR_UL, 4294967295.0, VX_UINT_TYPE, kOk, 4294967295.0},
      {VX_VR_UL, 4294967295.0, VX_LONGINT_TYPE, kRange, 0},
      {VX_VR_UL, 4294967295.0, VX_DOUBLE_TYPE, kOk, 4294967295.0},
      {VX_VR_FD, 1.5, VX_INT_TYPE, kOk, 1},
      {VX_VR_FD, -1.5, VX_SHORTINT_TYPE, kOk, -1},
      {VX_VR_FD, 1e300, VX_FLOAT_TYPE, kRange, 0},
      {VX_VR_FD, 3e9, VX_ULONGINT_TYPE, kOk, 3e9},
      {VX_VR_FD, 3e9, VX_INT_TYPE, kRange, 0},
      {VX_VR_FL, 0.5, VX_DOUBLE_TYPE, kOk, 0.5},
      {VX_VR_FL, 1e39, VX_DOUBLE_TYPE, kRange, 0},  // stored as infinity
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << "VR " << row.vr << " " << row.stored << " type " << row.type);
    double value = 0;
    EXPECT_EQ(get(with_double(row.vr, row.stored), row.type, value), row.status);
    if (row.status == kOk) {
      EXPECT_EQ(value, row.value);
    }
  }
  double value = 0;
  EXPECT_EQ(get(with_double(VX_VR_FD, std::nan("")), VX_DOUBLE_TYPE, value), kOk);
  EXPECT_TRUE(std::isnan(value));
  EXPECT_EQ(get(with_double(VX_VR_FD, std::nan("")), VX_INT_TYPE, value), kOk);
  EXPECT_EQ(value, 0);
}

// The C library is the judge of what a decimal string means.
TEST_F(ConvertOut, DecimalStringsReadAsTheCLibraryReadsThem) {
  std::mt19937 random(11);
  for (int i = 0; i < 20000; ++i) {
    std::string number = random() % 3 == 0 ? "-" : "";
    const int digits = 1 + static_cast<int>(random() % 15);
    const int point = static_cast<int>(random() % 18);
    for (int digit = 0; digit < digits; ++digit) {
      if (digit == point) number += '.';
      number += static_cast<char>('0' + random() % 10);
    }
    if (random() % 5 == 0) number += "e" + std::to_string(static_cast<int>(random() % 20) - 10);
    if (random() % 4 == 0) number += ' ';
    double value = 0;
    const uint32_t tag = with_text(VX_VR_DS, number);
    ASSERT_EQ(get(tag, VX_DOUBLE_TYPE, value), kOk) << number;
    const double expected = std::strtod(number.c_str(), nullptr);
    ASSERT_EQ(value, expected) << number;
    if (std::fabs(expected) > 2147483647) continue;
    char fixed[64];
    std::snprintf(fixed, sizeof fixed, "%f", expected);
    ASSERT_EQ(get(tag, VX_INT_TYPE, value), kOk) << number;
    ASSERT_EQ(value, std::strtol(fixed, nullptr, 10)) << number;
  }
}

TEST_F(ConvertOut, StatesBeforeTheValue) {
  char buffer[16] = "untouched";
  int32_t number = 77;
  EXPECT_EQ(VX_Get_Value_To_Int(99999, 0x00280010, nullptr), VX_INVALID_MESSAGE_ID);
  EXPECT_EQ(VX_Get_Value_To_Int(id, 0x00280010, nullptr), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Get_Value_To_Int(id, 0x00280010, &number), VX_INVALID_TAG);
  EXPECT_EQ(VX_Get_Value_To_String(id, attribute(VX_VR_OB), 16, buffer), VX_INCOMPATIBLE_VR);
  EXPECT_EQ(VX_Get_Value_To_String(id, attribute(VX_VR_UN), 16, buffer), VX_EMPTY_VALUE);
  EXPECT_EQ(VX_Get_Value_To_Int(id, attribute(VX_VR_LO), &number), VX_EMPTY_VALUE);
  const uint32_t un = attribute(VX_VR_UN);
  ASSERT_EQ(VX_Set_Value_From_Buffer(id, un, "ab", 2), kOk);
  EXPECT_EQ(VX_Get_Value_To_String(id, un, 16, buffer), VX_INCOMPATIBLE_VR);
  EXPECT_EQ(VX_Get_Value_To_Int(id, un, &number), VX_INCOMPATIBLE_VR);
  for (const VX_VR vr : {VX_VR_US, VX_VR_DS, VX_VR_SQ}) {
    const uint32_t tag = attribute(vr);
    ASSERT_EQ(VX_Set_Value_To_NULL(id, tag), kOk);
    EXPECT_EQ(VX_Get_Value_To_Int(id, tag, &number), VX_NULL_VALUE) << vr;
    EXPECT_EQ(VX_Get_Next_Value_To_Int(id, tag, &number), VX_NO_MORE_VALUES) << vr;
  }
  uint32_t length = 0;
  EXPECT_EQ(VX_Get_Value(id, attribute(VX_VR_LO), 77, 16, buffer, &length), VX_EMPTY_VALUE);
  EXPECT_EQ(VX_Get_Value(id, with_text(VX_VR_LO, "x"), 77, 16, buffer, &length), VX_INVALID_DATA_TYPE);
  EXPECT_EQ(number, 77);
}

TEST_F(ConvertOut, TheCursorWalksTheValues) {
  const std::string end = "#" + std::to_string(VX_NO_MORE_VALUES);
  for (const VX_VR vr : {VX_VR_IS, VX_VR_US, VX_VR_FD}) {
    SCOPED_TRACE(vr);
    const uint32_t tag = attribute(vr);
    for (int32_t value = 1; value <= 3; ++value) ASSERT_EQ(VX_Set_Next_Value_From_Int(id, tag, value), kOk);
    EXPECT_EQ(next_text(tag), "1") << "without a first one, the first";
    EXPECT_EQ(text(tag), "1");
    int32_t number = 0;
    EXPECT_EQ(VX_Get_Next_Value_To_Int(id, tag, &number), kOk);
    EXPECT_EQ(number, 2);
    char small[2];
    EXPECT_EQ(VX_Get_Next_Value_To_String(id, tag, 2, small), kOk);
    EXPECT_STREQ(small, "3");
    for (int i = 0; i < 2; ++i) EXPECT_EQ(next_text(tag), end);
    EXPECT_EQ(text(tag), "1");
  }
  // A value that can't be read is passed, the next call goes on behind it.
  const uint32_t tag = with_text(VX_VR_IS, "word");
  VX_Set_Next_Value_From_String(id, tag, "8");
  int32_t number = 0;
  EXPECT_EQ(VX_Get_Value_To_Int(id, tag, &number), VX_INCOMPATIBLE_VALUE);
  EXPECT_EQ(VX_Get_Next_Value_To_Int(id, tag, &number), kOk);
  EXPECT_EQ(number, 8);
}

TEST_F(ConvertOut, TextsFitTheBufferOrAreCut) {
  const uint32_t tag = with_text(VX_VR_LO, "abcde");
  struct Row {
    int32_t size;
    VX_STATUS status;
    const char* text;
  };
  constexpr Row kRows[] = {{6, kOk, "abcde"},
                           {5, VX_BUFFER_TOO_SMALL, "abcd"},
                           {2, VX_BUFFER_TOO_SMALL, "a"},
                           {1, VX_BUFFER_TOO_SMALL, ""}};
  for (const Row& row : kRows) {
    char buffer[8] = "zzzzzzz";
    EXPECT_EQ(VX_Get_Value_To_String(id, tag, row.size, buffer), row.status) << row.size;
    EXPECT_STREQ(buffer, row.text) << row.size;
    EXPECT_EQ(buffer[7], '\0');
  }
  char guard[2] = "z";
  EXPECT_EQ(VX_Get_Value_To_String(id, tag, 0, guard), VX_BUFFER_TOO_SMALL);
  EXPECT_EQ(VX_Get_Value_To_String(id, tag, -5, guard), VX_BUFFER_TOO_SMALL);
  EXPECT_STREQ(guard, "z");
}

TEST_F(ConvertOut, TheGenericCallTellsTheLength) {
  const uint32_t tag = with_text(VX_VR_LO, "abcde");
  char buffer[8];
  uint32_t length = 99;
  EXPECT_EQ(VX_Get_Value(id, tag, VX_STRING_TYPE, 8, buffer, &length), kOk);
  EXPECT_EQ(length, 5U);
  EXPECT_EQ(VX_Get_Next_Value(id, tag, VX_STRING_TYPE, 8, buffer, &length), VX_NO_MORE_VALUES);
  EXPECT_EQ(length, 0U);
  EXPECT_EQ(VX_Get_Next_Value(id, tag, VX_BUFFER_TYPE, 8, buffer, &length), VX_INCOMPATIBLE_VR);
  const uint32_t number = with_text(VX_VR_US, "9");
  EXPECT_EQ(VX_Get_Value(id, number, VX_DOUBLE_TYPE, 7, buffer, &length), VX_BUFFER_TOO_SMALL);
  EXPECT_EQ(length, 8U);
  EXPECT_EQ(VX_Get_Value(id, number, VX_SHORTINT_TYPE, 2, buffer, &length), kOk);
  EXPECT_EQ(length, 2U);
}

TEST_F(ConvertOut, PointsTurnIntoCommasOnWish) {
  const uint32_t ds = with_text(VX_VR_DS, "1.5");
  const uint32_t lo = with_text(VX_VR_LO, "1.5");
  const uint32_t fd = with_double(VX_VR_FD, -2.25);
  set_bool(VX_CFG_RETURN_COMMA_IN_DS_FL_FD_STRINGS, true);
  EXPECT_EQ(text(ds), "1,5");
  EXPECT_EQ(text(lo), "1.5");
  EXPECT_EQ(text(fd), "-2,25");
  double number = 0;
  EXPECT_EQ(VX_Get_Value_To_Double(id, ds, &number), kOk);
  EXPECT_EQ(number, 1.5);
  ASSERT_EQ(VX_Add_Private_Block(id, "ACME", 0x0077), kOk);
  ASSERT_EQ(VX_Add_Private_Attribute(id, "ACME", 0x0077, 1, VX_VR_DS), kOk);
  ASSERT_EQ(VX_Set_pValue_From_String(id, "ACME", 0x0077, 1, "1.5"), kOk);
  char buffer[8];
  EXPECT_EQ(VX_Get_pValue_To_String(id, "ACME", 0x0077, 1, 8, buffer), kOk);
  EXPECT_STREQ(buffer, "1.5");
}

}  // namespace
