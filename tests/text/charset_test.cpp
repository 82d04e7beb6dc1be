#include "text/charset.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <vector>

#include "codec/streams.h"
#include "frame/pool.h"

namespace {

// How many allocations of this thread go well before one fails; below 0: all.
thread_local int allocations_left = -1;

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
  if (allocations_left == 0) throw std::bad_alloc();
  if (allocations_left > 0) --allocations_left;
  void* const memory = std::malloc(size != 0 ? size : 1);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return std::malloc(size != 0 ? size : 1);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

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
  std::string_view bytes, utf8;
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
    {{"ISO_IR 166"}, "\xE3\xA8\xE8\xE9\xEA\xEB\xEC", "ใจ\u0E48\u0E49\u0E4A\u0E4B\u0E4C"},
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

// Cut anywhere, a text gives the characters before the cut, and then what tells that there is no more.
TEST_F(Charsets, CutAnywhere) {
  for (const Case& row : kCases) {
    const vx::TextCharsets sets = vx::text_charsets(row.names);
    std::u16string all;
    vx::decode_text(sets, row.bytes, true, all);
    for (std::size_t size = 0; size < row.bytes.size(); ++size) {
      // Exact allocations, so that a sanitizer sees one byte too many.
      const std::vector<char> bytes(row.bytes.begin(), row.bytes.begin() + static_cast<std::ptrdiff_t>(size));
      std::u16string text;
      const vx::TextResult result = vx::decode_text(sets, {bytes.data(), size}, true, text);
      const std::size_t end = text.find_first_of(u"\xFFFD\x1B");
      EXPECT_EQ(all.substr(0, std::min(end, text.size())), text.substr(0, end)) << row.utf8 << size;
      EXPECT_EQ(result != vx::TextResult::Whole, text.find(u'\xFFFD') != std::u16string::npos)
          << row.utf8 << size;
    }
  }
}

TEST_F(Charsets, WithoutMemory) {
  const Object message;
  const char* const names[] = {"", "ISO 2022 IR 87"};
  VX_Set_Value_To_NULL(message, 0x00080005);
  VX_Set_Next_Value_From_String(message, 0x00080005, names[1]);
  ASSERT_EQ(VX_Set_Value_From_UnicodeString(message, 0x00100010, -1, u"山田^太郎"), VX_NORMAL_COMPLETION);
  char16_t wide[64];
  char bytes[64];
  int32_t length = 0;
  const std::vector<std::function<VX_STATUS()>> calls = {
      [&] { return VX_Get_Value_To_UnicodeString(message, 0x00100010, 64, &length, wide); },
      [&] { return VX_Byte_To_Unicode("ISO 2022 IR 6", kCases[15].bytes.data(), -1, 64, &length, wide); },
      [&] { return VX_Unicode_To_Byte(names, 2, u"山田山田山田山田^太郎", -1, 64, &length, bytes); },
      [&] { return VX_Set_Value_From_UnicodeString(message, 0x00100010, -1, u"山田山田山田^太郎"); },
  };
  for (const auto& call : calls) {
    int n = 0;
    VX_STATUS status = VX_SYSTEM_ERROR;
    for (; status != VX_NORMAL_COMPLETION && n < 100; ++n) {
      allocations_left = n;
      status = call();
      allocations_left = -1;
      EXPECT_TRUE(status == VX_NORMAL_COMPLETION || status == VX_SYSTEM_ERROR) << status;
    }
    EXPECT_GT(n, 1);
    EXPECT_LT(n, 100);
  }
  ASSERT_EQ(VX_Get_Value_To_UnicodeString(message, 0x00100010, 64, &length, wide), VX_NORMAL_COMPLETION);
  EXPECT_EQ(std::u16string(wide), u"山田山田山田^太郎");
  for (uint64_t n = 1; n < 20; ++n) {
    vx::fail_allocation_after(n);
    VX_Set_Value_From_UnicodeString(message, 0x00100010, -1, std::u16string(300, u'山').c_str());
    vx::fail_allocation_after(0);
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
  // Bytes that ICU's converter knows and the standard's set does not.
  const std::string_view thai[] = {"ISO_IR 166"};
  utf8.clear();
  EXPECT_EQ(vx::decode_text(vx::text_charsets(thai), "\xA1\xFE\x80", false, utf8), vx::TextResult::Lost);
  EXPECT_EQ(utf8, "ก\xEF\xBF\xBD\xEF\xBF\xBD");
  bytes.clear();
  EXPECT_EQ(vx::encode_text(vx::text_charsets(thai), "€", bytes), vx::TextResult::Lost);
  // An escape sequence to nowhere stays in the text.
  const std::string_view korean[] = {"", "ISO 2022 IR 149"};
  utf8.clear();
  vx::decode_text(vx::text_charsets(korean), "a\x1B[2J", false, utf8);
  EXPECT_EQ(utf8, "a\x1B[2J");
}

// A character that two tables of one set have different code points for can be written with either.
TEST_F(Charsets, SpellingsOfOneCharacter) {
  const struct {
    std::string_view set, one, other, bytes, read;
  } rows[] = {
      {"ISO 2022 IR 87", "〜−", "～－", "\x1B$B!A!]\x1B(B", "〜−"},
      {"ISO 2022 IR 58", "买·—", "买・―", "\x1B$)A\xC2\xF2\xA1\xA4\xA1\xAA", "买・―"},
  };
  for (const auto& row : rows) {
    const std::string_view names[] = {"", row.set};
    const vx::TextCharsets sets = vx::text_charsets(names);
    for (const std::string_view text : {row.one, row.other}) {
      std::string bytes;
      EXPECT_EQ(vx::encode_text(sets, text, bytes), vx::TextResult::Whole) << text;
      EXPECT_EQ(bytes, row.bytes) << text;
    }
    std::string utf8;
    vx::decode_text(sets, row.bytes, false, utf8);
    EXPECT_EQ(utf8, row.read);
  }
  // Where another set has it as it is, that one is taken.
  const std::string_view names[] = {"ISO 2022 IR 100", "ISO 2022 IR 58"};
  const vx::TextCharsets sets = vx::text_charsets(names);
  std::string bytes, utf8;
  EXPECT_EQ(vx::encode_text(sets, "买·", bytes), vx::TextResult::Whole);
  EXPECT_EQ(vx::decode_text(sets, bytes, false, utf8), vx::TextResult::Whole);
  EXPECT_EQ(utf8, "买·");
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

  // Text forms go by the values of bytes then, which is right for one set alone, and say so.
  const auto drop = [](int32_t, void*, uint32_t, void*, int32_t, int32_t) -> VX_STATUS {
    return VX_NORMAL_COMPLETION;
  };
  for (const char* set : {"ISO_IR 144", "ISO_IR 100"}) {
    VX_Set_Value_From_String(message, 0x00080005, set);
    support::LogCapture::clear();
    EXPECT_EQ(VX_Message_To_Json(message, nullptr, VX_JSON_STANDARD, drop), VX_NORMAL_COMPLETION);
    EXPECT_EQ(has_log("(0010,0010) has bytes that are no text"), std::string_view(set) == "ISO_IR 144")
        << set;
  }
}

}  // namespace
