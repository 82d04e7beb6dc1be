#include "text/charset.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "codec/streams.h"

namespace {

using namespace streams;

class Charsets : public support::LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    ASSERT_EQ(VX_Enable_Unicode_Conversion(1), VX_NORMAL_COMPLETION);
  }
  void TearDown() override {
    VX_Enable_Unicode_Conversion(0);
    LibraryTest::TearDown();
  }
};

struct Case {
  std::vector<std::string_view> names;
  std::string_view bytes;
  std::string_view utf8;
  bool same_bytes = true;  // else an equal text
};
const Case kCases[] = {
    {{"ISO_IR 100"}, "Buc^J\xE9r\xF4me", "Buc^Jérôme"},
    {{"ISO_IR 101"}, "Dvo\xF8\xE1k", "Dvořák"},
    {{"ISO_IR 109"}, "\xC6u", "Ĉu"},
    {{"ISO_IR 110"}, "B\xBArzi\xF1\xB9", "Bērziņš"},
    {{"ISO_IR 126"}, "\xC4\xE9\xEF\xED", "Διον"},
    {{"ISO_IR 127"}, "\xE2\xC8\xC7\xE6\xEA", "قباني"},
    {{"ISO_IR 138"}, "\xF9\xF8\xE5\xEF", "שרון"},
    {{"ISO_IR 144"}, "\xBB\xEE\xDA", "Люк"},
    {{"ISO_IR 148"}, "\xDD\x62rahim", "İbrahim"},
    {{"ISO_IR 166"}, "\xE3\xA8", "ใจ"},
    {{"ISO_IR 203"}, "5 \xA4", "5 €"},
    {{"ISO_IR 13"}, "\xD4\xCF^\\~\x1A", "ﾔﾏ^\\~\x1A"},
    {{"ISO_IR 192"}, "日本 𝄞", "日本 𝄞"},
    {{"GB18030"}, "\xCD\xF5^\x95\x32\x82\x36", "王^𠀀"},
    {{"GBK"}, "\x96\x7C^\xCD\xF5", "東^王", false},
    {{"", "ISO 2022 IR 87"},
     "Yamada^Tarou=\x1B$B;3ED\x1B(B^\x1B$BB@O:\x1B(B=\x1B$B$d$^$@\x1B(B^\x1B$B$?$m$&\x1B(B",
     "Yamada^Tarou=山田^太郎=やまだ^たろう"},
    {{"ISO 2022 IR 13", "ISO 2022 IR 87"},
     "\xD4\xCF\xC0\xDE^\xC0\xDB\xB3=\x1B$B;3ED\x1B(J^\x1B$BB@O:\x1B(J",
     "ﾔﾏﾀﾞ^ﾀﾛｳ=山田^太郎"},
    {{"ISO 2022 IR 6", "ISO 2022 IR 159"}, "\x1B$(D0!\x1B(B", "丂"},
    {{"", "ISO 2022 IR 149"}, "Hong^Gildong=\x1B$)C\xFB\xF3^\x1B$)C\xD1\xCE\xD4\xD7", "Hong^Gildong=洪^吉洞"},
    {{"", "ISO 2022 IR 58"}, "\x1B$)A\xCD\xF5^\x1B$)A\xD0\xA1", "王^小"},
    {{"ISO_IR 100", "ISO_IR 144"}, "M\xFCller^\x1B-L\xBB\xEE\xDA\x1B-A", "Müller^Люк"},
    // A name goes back to the first set at its delimiters, whatever the writer left out.
    {{"ISO 2022 IR 100", "ISO 2022 IR 144"}, "\x1B-L\xBB\xEE\xDA^M\xFCller", "Люк^Müller", false},
};

TEST_F(Charsets, EverySetToUtf8AndBack) {
  for (const Case& row : kCases) {
    const vx::TextCharsets sets = vx::text_charsets(row.names);
    std::string utf8;
    const vx::TextResult result = vx::decode_text(sets, row.bytes, true, utf8);
    EXPECT_EQ(utf8, row.utf8) << row.names[0];
    EXPECT_EQ(result, vx::TextResult::Whole) << row.utf8;
    std::string bytes;
    EXPECT_EQ(vx::encode_text(sets, utf8, bytes), vx::TextResult::Whole) << row.utf8;
    EXPECT_TRUE(!row.same_bytes || bytes == row.bytes) << row.utf8;
    std::string again;
    vx::decode_text(sets, bytes, true, again);
    EXPECT_EQ(again, row.utf8);
  }
}

TEST_F(Charsets, WhatNoSetHas) {
  const std::string_view latin[] = {"ISO_IR 100"};
  std::string bytes;
  EXPECT_EQ(vx::encode_text(vx::text_charsets(latin), "é𝄞\xFF", bytes), vx::TextResult::Lost);
  EXPECT_EQ(bytes, "\xE9??");
  const std::string_view ascii[] = {""};
  std::string utf8;
  EXPECT_EQ(vx::decode_text(vx::text_charsets(ascii), "a\xE9", false, utf8), vx::TextResult::Lost);
  EXPECT_EQ(utf8, "a\xEF\xBF\xBD");
}

TEST_F(Charsets, CallsOfTheInterface) {
  char16_t wide[16];
  int32_t length = 0;
  EXPECT_EQ(VX_Byte_To_Unicode("NOSUCH", "\xE9", -1, 16, &length, wide), VX_NORMAL_COMPLETION);
  EXPECT_EQ(std::u16string(wide, static_cast<std::size_t>(length)), u"é");
  EXPECT_EQ(VX_Byte_To_Unicode("ISO_IR 100", "abc", -1, 2, &length, wide), VX_BUFFER_TOO_SMALL);
  EXPECT_EQ(length, 3);
  const char* seven[7] = {"", "", "", "", "", "", ""};
  char bytes[64];
  EXPECT_EQ(VX_Unicode_To_Byte(seven, 7, u"a", -1, 64, &length, bytes), VX_CANNOT_COMPLY);
  const char* alone[] = {"ISO 2022 IR 6", "GB18030"};
  EXPECT_EQ(VX_Unicode_To_Byte(alone, 2, u"a", -1, 64, &length, bytes), VX_CANNOT_COMPLY);

  const Object message;
  VX_Set_Value_From_String(message, 0x00080005, "ISO_IR 144");
  EXPECT_EQ(VX_Set_Value_From_UnicodeString(message, 0x00100010, -1, u"Люк"), VX_NORMAL_COMPLETION);
  char text[16];
  EXPECT_EQ(VX_Get_Value_To_String(message, 0x00100010, 16, text), VX_NORMAL_COMPLETION);
  EXPECT_STREQ(text, "\xBB\xEE\xDA");
  EXPECT_EQ(VX_Get_Value_To_UnicodeString(message, 0x00100010, 16, &length, wide), VX_NORMAL_COMPLETION);
  EXPECT_EQ(std::u16string(wide), u"Люк");
  EXPECT_EQ(VX_Set_Value_From_UnicodeString(message, 0x00080016, -1, u"1.2"), VX_INCOMPATIBLE_VR);

  VX_Enable_Unicode_Conversion(0);
  EXPECT_EQ(VX_Byte_To_Unicode("ISO_IR 100", "a", -1, 16, &length, wide), VX_CANNOT_COMPLY);
  EXPECT_EQ(VX_Get_Value_To_UnicodeString(message, 0x00100010, 16, &length, wide), VX_CANNOT_COMPLY);
}

}  // namespace
