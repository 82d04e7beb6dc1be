// Specific Character Sets: names to masks, inheritance, characters and escape sequences, where texts split.
#include "model/charset_scan.h"

#include <string>
#include <vector>

#include "value_fixture.h"

namespace {

constexpr VX_STATUS kOk = VX_NORMAL_COMPLETION;

class Charsets : public support::ValueTest {
 protected:
  vx::CharsetMasks masks(const std::string& names) {
    set_charset(id, names);
    vx::CharsetMasks result;
    EXPECT_EQ(vx::charset_masks(object(), result), kOk) << names;
    return result;
  }
};

TEST_F(Charsets, NamesBecomeMasks) {
  struct Row {
    const char* names;
    uint32_t values, first;
  };
  constexpr Row kRows[] = {
      {"", 1, 1},
      {"ISO_IR 6", 1, 1},
      {"ISO_IR 100", 0x2, 0x2},
      {"ISO_IR 138", 0x100, 0x100},
      {"ISO_IR 13", 0x800, 0x800},
      {" ISO_IR 192 ", 0x1000, 0x1000},
      {"GB18030", 0x2000, 0x2000},
      {"ISO 2022 IR 6\\ISO 2022 IR 149", 0x90001, 1},
      {"ISO_IR 100\\ISO_IR 192", 0x1000, 0x2},
      {"\\ISO 2022 IR 87", 0x30001, 1},
      {"ISO 2022 IR 13\\ISO 2022 IR 87\\ISO 2022 IR 159", 0x70800, 0x800},
      {"ISO 2022 IR 100", 0x10002, 0x2},
      {"ISO_IR 100\\ISO_IR 144", 0x10022, 0x2},  // several values: code extensions are meant
      {"ISO_IR 6\\ISO_IR 87", 0x30001, 1},
      {"ISO_IR 87", 0, 0},
      {"ISO 2022 IR 6\\\\ISO 2022 IR 100", 0x10001, 1},  // an empty value ends the list
      {"NO SUCH SET", 0, 0},
  };
  for (const Row& row : kRows) {
    const vx::CharsetMasks found = masks(row.names);
    EXPECT_EQ(found.values, row.values) << row.names;
    EXPECT_EQ(found.first, row.first) << row.names;
  }
}

TEST_F(Charsets, SixNamesOfSixteenBytes) {
  EXPECT_EQ(masks("ISO 2022 IR 6\\ISO 2022 IR 100\\ISO 2022 IR 101\\ISO 2022 IR 109\\ISO 2022 IR 110\\"
                  "ISO 2022 IR 144\\ISO 2022 IR 127")
                .values,
            0x1003FU);
  set_charset(id, "ISO 2022 IR 10000");
  clear_log();
  EXPECT_EQ(VX_Set_Value_From_String(id, 0x00100020, "plain"), VX_VALUE_TOO_LARGE);
  EXPECT_TRUE(has_log("VXI_GetValue failed with status: "));
  EXPECT_TRUE(has_log("VXI_GetSpecificCharSetValue failed with status: "));
  EXPECT_EQ(text(0x00100020), "plain");
  EXPECT_EQ(VX_Set_Value_From_String(id, 0x00080060, "CT"), kOk);  // not a text of the character sets
}

TEST_F(Charsets, ItemsTakeAfterTheirHolders) {
  const int32_t outer = item(), inner = item();
  ASSERT_EQ(VX_Set_Value_From_Int(id, 0x00081140, outer), kOk);
  ASSERT_EQ(VX_Set_Value_From_Int(outer, 0x00081140, inner), kOk);
  const auto inner_mask = [&] {
    vx::CharsetMasks result;
    EXPECT_EQ(vx::charset_masks(*vx::find_object(inner), result), kOk);
    return result.values;
  };
  EXPECT_EQ(inner_mask(), 1U);
  set_charset(id, "ISO_IR 192");
  EXPECT_EQ(inner_mask(), 0x1000U);
  set_charset(outer, "ISO_IR 100");
  EXPECT_EQ(inner_mask(), 2U);
  ASSERT_EQ(VX_Set_Value_To_Empty(inner, 0x00080005), kOk);
  EXPECT_EQ(inner_mask(), 1U);  // present without a value: the default
}

TEST_F(Charsets, TheCacheHoldsForOneObject) {
  vx::CharsetCache cache;
  vx::CharsetMasks result;
  set_charset(id, "ISO_IR 100");
  ASSERT_EQ(vx::charset_masks(object(), &cache, result), kOk);
  set_charset(id, "ISO_IR 192");
  ASSERT_EQ(vx::charset_masks(object(), &cache, result), kOk);
  EXPECT_EQ(result.values, 2U);
}

TEST_F(Charsets, RealNamesPass) {
  struct Row {
    const char* names;
    const char* text;
  };
  constexpr Row kRows[] = {
      {"\\ISO 2022 IR 87",
       "Yamada^Tarou=\x1b$B;3ED\x1b(B^\x1b$BB@O:\x1b(B=\x1b$B$d$^$@\x1b(B^\x1b$B$?$m$&\x1b(B"},
      {"ISO 2022 IR 13\\ISO 2022 IR 87",
       "\xd4\xcf\xc0\xde^\xc0\xdb\xb3=\x1b$B;3ED\x1b(J^\x1b$BB@O:\x1b(J=\x1b$B$d$^$@\x1b(J^\x1b$B$?$m$&\x1b("
       "J"},
      {"\\ISO 2022 IR 149",
       "Hong^Gildong=\x1b$)C\xfb\xf3^\x1b$)C\xd1\xce\xd4\xd7=\x1b$)C\xc8\xab^\x1b$)C\xb1\xe6\xb5\xbf"},
      {"\\ISO 2022 IR 58", "Zhang^XiaoDong=\x1b$)A\xd5\xc5^\x1b$)A\xd0\xa1\xb6\xab="},
      {"ISO_IR 192", "Wang^XiaoDong=\xe7\x8e\x8b^\xe5\xb0\x8f\xe6\x9d\xb1="},
      {"GB18030", "Wang^XiaoDong=\xcd\xf5^\xd0\xa1\xb6\xab="},
      {"GBK", "Wang^XiaoDong=\xcd\xf5^\xd0\xa1\xb6\xab="},
      {"ISO_IR 166", "\xb9\xd2\xc2\xca\xc1\xaa\xd2\xc2"},
      {"ISO 2022 IR 6\\ISO 2022 IR 100\\ISO 2022 IR 144", "Fran\x1b-A\xe7ois^\x1b-L\xbd\xd8\xda\xd8\xe2\xd0"},
      {"ISO 2022 IR 6\\ISO 2022 IR 203", "\x1b-b\xa4uro"},
      {"ISO_IR 6\\ISO_IR 100", "Fran\x1b-A\xe7ois"},
  };
  set_bool(VX_CFG_TOLERATE_INVALID_IN_DEFAULT_CHARSET, false);
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.names);
    set_charset(id, row.names);
    clear_log();
    EXPECT_EQ(VX_Set_Value_From_String(id, 0x00100010, row.text), kOk);
    EXPECT_TRUE(log_lines().empty()) << log_lines()[0];
  }
}

TEST_F(Charsets, FaultsAreNamed) {
  struct Row {
    const char* names;
    const char* text;
    VX_STATUS status;
    const char* log;
  };
  constexpr VX_STATUS kBad = VX_INVALID_CHARS_IN_VALUE;
  constexpr const char* kJapanese = "\\ISO 2022 IR 87\\ISO 2022 IR 159";
  constexpr const char* kKorean = "ISO 2022 IR 6\\ISO 2022 IR 149";
  constexpr Row kRows[] = {
      {"ISO_IR 100", "a\x1b(B", kBad,
       "Specific Character Set doesn't contain code extension but ESC character found"},
      {kJapanese, "a\x1b(", kBad, "Insufficient input in escape sequence"},
      {kJapanese, "\x1b$B\x73\x7e\x1b(B", kOk, nullptr},
      {kJapanese, "\x1b$B\x74\x21\x1b(B", kBad, "IR 87 character out of range 74, 21"},
      {kJapanese, "\x1b$B\x30", kBad, "IR 87 insufficent buffer length"},
      {kJapanese, "\x1b$(D\x6d\x6d\x1b(B", kOk, nullptr},
      {kJapanese, "\x1b$(D\x22\x1f", kBad, "IR 159 character out of range 22, 1f"},
      {kJapanese, "\x1b-A\xe9", kBad, "Unexpected ISO IR 100 escape sequence found: ESC 2d 41"},
      {kJapanese, "\x1b-F\xe9", kBad, "Unexpected ISO IR 126 escape sequence found: ESC 2d, 46"},
      {kJapanese, "\x1b-Zx", kBad, "Unexpected escape sequence found: ESC 2d 5a"},
      {kJapanese, "\x1b.Ax", kBad, "Unknown escape sequence found: ESC 2e 41"},
      {kJapanese, "\x1b$)C\xb1\xe8", kBad, "Unexpected ISO IR 149 escape sequence found: ESC 24 29 43"},
      {"ISO 2022 IR 13\\ISO 2022 IR 87", "\x1b(Bx", kOk,
       "Unexpected ISO IR 6 escape sequence found: ESC 28 42"},
      {"ISO 2022 IR 6\\ISO 2022 IR 13", "\x1b$B00", kBad,
       "Unexpected ISO IR 87 escape sequence found: ESC 24 42"},
      {kKorean, "\xb1", kBad, "IR 149 insufficient buffer length"},
      {kKorean, "\xb1\x41", kBad, "IR 149 second byte out of encoding range b1, 41"},
      {"GB18030", "a\x81", kBad, "Insufficient input in GB18030 byte sequence"},
      {"GB18030", "\x81\x30\x81", kBad, "Insufficient input in GB18030 byte sequence"},
      {"GB18030", "\x80", kBad, nullptr},
      {"ISO_IR 192", "\xC0\xAF", kOk, "Unexpected UTF-8 2-byte control code found: c0"},
      {"ISO_IR 192", "\xFC\x80\x80\x80\x80\x80", kOk, "Unexpected UTF-8 6-byte control code found: fc"},
      {"ISO_IR 192", "a\xE5\xB1", kOk, nullptr},  // cut short, but nothing runs past the end
      {"ISO_IR 192", "\xB1", kOk, nullptr},
      // Behind a delimiter the first set is in force again.
      {"ISO 2022 IR 6\\ISO 2022 IR 100", "\x1b-A\xe9^\xe9", kBad, "Character (0xE9) invalid for ISO-IR 6"},
      {"ISO 2022 IR 6\\ISO 2022 IR 100", "\x1b-A\xe9 \xe9", kOk, nullptr},
  };
  set_bool(VX_CFG_TOLERATE_INVALID_IN_DEFAULT_CHARSET, false);
  for (const Row& row : kRows) {
    SCOPED_TRACE(testing::Message() << row.names << " " << testing::PrintToString(row.text));
    set_charset(id, row.names);
    clear_log();
    EXPECT_EQ(VX_Set_Value_From_String(id, 0x00100010, row.text), row.status);
    if (row.log == nullptr) {
      EXPECT_TRUE(log_lines().empty()) << log_lines()[0];
    } else {
      EXPECT_TRUE(has_log(row.log)) << (log_lines().empty() ? "no line" : log_lines()[0]);
    }
  }
}

TEST_F(Charsets, TextsSplitWhereABackslashSeparates) {
  struct Row {
    const char* names;
    std::string text;
    std::vector<std::string> pieces;
  };
  const std::string kanji = "\x1b$B\x30\x5c\x5c\x30\x1b(B";  // two characters with a backslash byte each
  const std::string rare = "\x1b$(D\x30\x5c\x1b(B";
  const Row rows[] = {
      {"ISO_IR 100", "a\\\\b\\", {"a", "", "b", ""}},
      {"\\ISO 2022 IR 87", "x" + kanji + "\\y", {"x" + kanji, "y"}},
      {"\\ISO 2022 IR 87\\ISO 2022 IR 159", rare + "\\" + rare, {rare, rare}},
      {"\\ISO 2022 IR 87", "\x1b$B\x30\x5c", {"\x1b$B\x30\x5c"}},
      // Only characters of two bytes hide one: other sets do not.
      {"ISO 2022 IR 6\\ISO 2022 IR 87\\ISO 2022 IR 100", "\x1b-A\xe9\\b", {"\x1b-A\xe9", "b"}},
      {"\\ISO 2022 IR 149", "\x1b$)C\xb1\xe8\\b", {"\x1b$)C\xb1\xe8", "b"}},
      {"GB18030", "\x81\x5c\\b", {"\x81\x5c", "b"}},
      {"GBK", "\x81\x5c\x81", {"\x81\x5c\x81"}},
      {"ISO_IR 192", "\xC3\x9C\\b", {"\xC3\x9C", "b"}},
      {"ISO_IR 13", "\xB1\\b", {"\xB1", "b"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.names << " " << testing::PrintToString(row.text));
    const vx::SplitMode mode = vx::needs_escape_aware_split(masks(row.names));
    std::vector<std::string> pieces;
    std::size_t start = 0;
    for (;;) {
      const std::size_t end = vx::split_point(row.text, start, mode);
      pieces.push_back(row.text.substr(start, end - start));
      if (end >= row.text.size()) break;
      start = end + 1;
    }
    EXPECT_EQ(pieces, row.pieces);
  }
}

}  // namespace
