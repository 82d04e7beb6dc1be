#include "frame/text.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>

#include "frame/status.h"

namespace vx {
namespace {

TEST(Text, IntegersSaturateAndTellWhereTheyEnd) {
  const struct {
    const char* text;
    int32_t number;
    uint32_t unsigned_number;
    const char* rest;
  } rows[] = {
      {"0", 0, 0, ""},
      {"  +12abc", 12, 12, "abc"},
      {"\t-7 ", -7, 4294967289U, " "},
      {"2147483647", INT32_MAX, 2147483647U, ""},
      {"2147483648", INT32_MAX, 2147483648U, ""},
      {"-2147483648", INT32_MIN, 2147483648U, ""},
      {"-2147483649", INT32_MIN, 2147483647U, ""},
      {"4294967295", INT32_MAX, UINT32_MAX, ""},
      {"4294967296", INT32_MAX, UINT32_MAX, ""},
      {"-99999999999999999999999999", INT32_MIN, UINT32_MAX, ""},
      {"99999999999999999999999999x", INT32_MAX, UINT32_MAX, "x"},
      {"", 0, 0, ""},
      {"-", 0, 0, "-"},
      {" x1", 0, 0, " x1"},
      {"0x10", 0, 0, "x10"},
  };
  for (const auto& row : rows) {
    std::string_view rest;
    EXPECT_EQ(parse_int32(row.text, &rest), row.number) << row.text;
    EXPECT_EQ(rest, row.rest) << row.text;
    EXPECT_EQ(parse_uint32(row.text, &rest), row.unsigned_number) << row.text;
    EXPECT_EQ(rest, row.rest) << row.text;
  }
}

TEST(Text, DoublesEndWhereTheViewEnds) {
  const std::string longer = std::string(300, '0') + "12.25";
  const struct {
    std::string_view text;
    double number;
    std::string_view rest;
  } rows[] = {{{"1.5e3999", 5}, 1500, ""}, {" -2,5", -2, ",5"}, {"abc", 0, "abc"}, {longer, 12.25, ""}};
  for (const auto& row : rows) {
    std::string_view rest;
    EXPECT_EQ(parse_double(row.text, &rest), row.number) << row.text;
    EXPECT_EQ(rest, row.rest) << row.text;
  }
  EXPECT_TRUE(std::isinf(parse_double("1e999")));
}

TEST(Text, NumbersPrintAsPrintfPrintsThem) {
  const double values[] = {0,
                           -0.0,
                           1,
                           -1.5,
                           0.1,
                           1e-300,
                           123456789,
                           1e22,
                           1.0 / 3,
                           5e-324,
                           std::numeric_limits<double>::max(),
                           HUGE_VAL};
  for (const double value : values) {
    for (const int precision : {-1, 0, 1, 6, 10, 17, 40}) {
      char expected[512], actual[512];
      const int length = precision < 0 ? std::snprintf(expected, sizeof expected, "%f", value)
                                       : std::snprintf(expected, sizeof expected, "%.*g", precision, value);
      EXPECT_EQ(format_g(actual, sizeof actual, precision, value), length);
      EXPECT_STREQ(actual, expected);
    }
  }
  char tiny[4] = "xyz";
  EXPECT_EQ(format_g(tiny, sizeof tiny, 10, 3.14159), 7);
  EXPECT_STREQ(tiny, "3.1");
}

TEST(Text, CopiesNeverOutrunTheBuffer) {
  char buffer[5] = "????";
  EXPECT_TRUE(copy_text(buffer, 5, "four"));
  EXPECT_STREQ(buffer, "four");
  EXPECT_FALSE(copy_text(buffer, 3, "four"));
  EXPECT_STREQ(buffer, "fo");
  EXPECT_FALSE(copy_text(buffer, 0, ""));
  EXPECT_STREQ(buffer, "fo");
}

TEST(Text, BlanksAndCase) {
  EXPECT_EQ(trim("  a b  "), "a b");
  EXPECT_EQ(trim("   "), "");
  EXPECT_EQ(trim("\ta"), "\ta");
  EXPECT_TRUE(equals_ignoring_case("VexalKit3", "vexalKIT3"));
  EXPECT_FALSE(equals_ignoring_case("a", "ab"));
  EXPECT_FALSE(equals_ignoring_case("\xC4", "\xE4")) << "only ASCII has case";
}

TEST(Status, TextsOfCodesAndErrors) {
  const struct {
    VX_STATUS status;
    const char* text;
  } rows[] = {{VX_NORMAL_COMPLETION, "Normal Completion"},
              {VX_ALREADY_REGISTERED, "Application was already registered"},
              {VX_ATTRIBUTE_HAS_VALUES, "Attribute has value[s] - VR cannot be changed to SQ"},
              {VX_DUPLICATE_SYNTAX, "Unknown Error"},
              {VX_NOT_SUPPORTED, "Requested function is not supported"},
              {0, "Unknown Error"},
              {4036, "Unknown Error"},
              {4141, "Unknown Error"},
              {INT32_MIN, "Unknown Error"},
              {INT32_MAX, "Unknown Error"}};
  for (const auto& row : rows) EXPECT_STREQ(VX_Error_Message(row.status), row.text) << row.status;
  EXPECT_STREQ(system_error_text(ECONNREFUSED), "Connection refused");
  const char* first = system_error_text(98765);
  EXPECT_STREQ(system_error_text(ENOENT), "error #2");
  EXPECT_STREQ(first, "error #98765") << "a second text overwrote the first";
}

}  // namespace
}  // namespace vx
