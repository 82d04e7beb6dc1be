// The rules of each text VR, at their edges. The attribute is stored in any case; the status tells.
#include <string>

#include "model/attributes.h"
#include "model/convert.h"
#include "value_fixture.h"

namespace {

constexpr VX_STATUS kOk = VX_NORMAL_COMPLETION;
constexpr VX_STATUS kInvalid = VX_INVALID_VALUE_FOR_VR;
constexpr VX_STATUS kBad = VX_INVALID_CHARS_IN_VALUE;

struct Row {
  VX_VR vr;
  std::string text;
  VX_STATUS status;
};

class VrCheck : public support::ValueTest {
 protected:
  template <std::size_t N>
  void expect(const Row (&rows)[N]) {
    for (const Row& row : rows) {
      EXPECT_EQ(VX_Set_Value_From_String(id(), attribute(row.vr), row.text.c_str()), row.status)
          << "VR " << row.vr << " '" << row.text << "'";
    }
  }
  void set_charset(const std::string& names) {
    ASSERT_EQ(VX_Set_Value_To_Empty(id(), 0x00080005), kOk);
    std::size_t start = 0;
    while (start <= names.size()) {
      const std::size_t end = std::min(names.find('\\', start), names.size());
      VX_Set_Next_Value_From_String(id(), 0x00080005, names.substr(start, end - start).c_str());
      start = end + 1;
    }
  }
};

std::string repeat(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

TEST_F(VrCheck, TitlesCodesAndIdentifiers) {
  const Row rows[] = {
      {VX_VR_AE, "SIXTEEN_LETTERS_", kOk},
      {VX_VR_AE, " A ", kOk},
      {VX_VR_AE, "SIXTEEN_LETTERS_ ", kInvalid},
      {VX_VR_AE, "   ", kInvalid},
      {VX_VR_AE, "A\\B", kBad},
      {VX_VR_AE, "A\tB", kBad},
      {VX_VR_AE, "\x7F", kBad},
      {VX_VR_AE, "\xE9", kBad},
      {VX_VR_CS, "AZ09 _*?", kOk},
      {VX_VR_CS, repeat(" ", 16), kOk},
      {VX_VR_CS, repeat(" ", 17), kInvalid},
      {VX_VR_CS, "AbC", kBad},
      {VX_VR_CS, "A-B", kBad},
      {VX_VR_UI, repeat("1", 64), kOk},
      {VX_VR_UI, repeat("1", 65), kInvalid},
      {VX_VR_UI, "1.2.840", kOk},
      {VX_VR_UI, "1.2 ", kBad},
      {VX_VR_UI, " 1.2", kBad},
      {VX_VR_UI, "  ", kBad},
      {VX_VR_UI, "1.2.x", kBad},
  };
  expect(rows);
  vx::MsgObj& object = *vx::find_object(id());
  using std::string_view_literals::operator""sv;
  EXPECT_EQ(vx::check_value(object, 0x00080018, VX_VR_UI, "1.2\0\0"sv, nullptr), kOk);
  EXPECT_EQ(vx::check_value(object, 0x00080018, VX_VR_UI, "1.2 \0"sv, nullptr), kBad);
  EXPECT_EQ(vx::check_value(object, 0x00080018, VX_VR_UI, "1\0.2"sv, nullptr), kBad);
  EXPECT_EQ(vx::check_value(object, 0x00280010, VX_VR_US, "\xFF\xFF"sv, nullptr), kOk);
}

TEST_F(VrCheck, AgesDatesAndTimes) {
  const Row rows[] = {
      {VX_VR_AS, "018M", kOk},
      {VX_VR_AS, "0180", kOk},
      {VX_VR_AS, "18M", kInvalid},
      {VX_VR_AS, "0M8M", kInvalid},
      {VX_VR_AS, "018X", kBad},
      {VX_VR_AS, " 18M", kBad},
      {VX_VR_AS, "018M ", kBad},
      {VX_VR_DA, "20241231", kOk},
      {VX_VR_DA, "20241331", kInvalid},
      {VX_VR_DA, "20242031", kInvalid},
      {VX_VR_DA, "20241232", kInvalid},
      {VX_VR_DA, "20241241", kInvalid},
      {VX_VR_DA, "2024123", kInvalid},
      {VX_VR_DA, "2024.12.31", kBad},
      {VX_VR_DA, "20241231 ", kInvalid},
      {VX_VR_DA, " 20241231", kInvalid},
      {VX_VR_DA, "20240101-20241231", kOk},
      {VX_VR_DA, "20240101-20241231 ", kOk},
      {VX_VR_DA, "20240101-20241231  ", kInvalid},
      {VX_VR_DA, "20240101-", kOk},
      {VX_VR_DA, "-20240101", kOk},
      {VX_VR_DA, "20240101--", kInvalid},
      {VX_VR_DA, "-20241301", kInvalid},
      {VX_VR_DA, "20240101-2024123100", kInvalid},
      {VX_VR_TM, "23", kOk},
      {VX_VR_TM, "24", kInvalid},
      {VX_VR_TM, "30", kInvalid},
      {VX_VR_TM, "235959.123456", kOk},
      {VX_VR_TM, "235959.123456 ", kOk},
      {VX_VR_TM, "2360", kInvalid},
      {VX_VR_TM, "235960", kInvalid},
      {VX_VR_TM, "235", kInvalid},
      {VX_VR_TM, "2359.5", kInvalid},
      {VX_VR_TM, "23:59", kBad},
      {VX_VR_TM, " 23", kInvalid},
      {VX_VR_TM, "1000-1200", kOk},
      {VX_VR_TM, "100-12", kInvalid},
      {VX_VR_TM, "-1200", kOk},
      {VX_VR_TM, "10-", kOk},
      {VX_VR_TM, "100000.000000-235959.999999", kOk},
      {VX_VR_TM, "100000.000000-245959.999999", kInvalid},
      {VX_VR_TM, "100000-2359599.9", kInvalid},
      {VX_VR_TM, "100000.00000000", kInvalid},
      {VX_VR_DT, "20240131120000.123456+0100", kOk},
      {VX_VR_DT, "2024", kOk},
      {VX_VR_DT, "2024+01", kInvalid},
      {VX_VR_DT, "2024-", kOk},
      {VX_VR_DT, "2024-202", kInvalid},
      {VX_VR_DT, "20240101-20240131", kOk},
      {VX_VR_DT, "2024.", kInvalid},
      {VX_VR_DT, "2024Z", kBad},
      {VX_VR_DT, " 2024", kInvalid},
      {VX_VR_DT, repeat("1", 26), kOk},
      {VX_VR_DT, repeat("1", 27), kInvalid},
      {VX_VR_DT, "2024-0100-2024-0100", kInvalid},
      {VX_VR_DT, "2024-" + repeat("1", 49), kOk},
      {VX_VR_DT, "2024-" + repeat("1", 50), kInvalid},
  };
  expect(rows);
}

TEST_F(VrCheck, NumbersInText) {
  const Row rows[] = {
      {VX_VR_DS, "   ", kOk},
      {VX_VR_DS, repeat(" ", 40), kOk},
      {VX_VR_DS, "-1.234567890E-10", kOk},
      {VX_VR_DS, "-1.234567890E-100", kInvalid},
      {VX_VR_DS, "1,5", kInvalid},
      {VX_VR_DS, "1 5", kBad},
      {VX_VR_DS, "0x10", kBad},
      {VX_VR_DS, "1.2.3", kInvalid},
      {VX_VR_DS, "1E2E3", kInvalid},
      {VX_VR_DS, "E5", kInvalid},
      {VX_VR_DS, "1E2.5", kInvalid},
      {VX_VR_DS, "1-5", kInvalid},
      {VX_VR_DS, "5-", kInvalid},
      {VX_VR_DS, "+1e+5", kOk},
      {VX_VR_DS, "--5", kInvalid},
      {VX_VR_DS, "-5-", kInvalid},
      {VX_VR_DS, "-1E-+5", kInvalid},
      {VX_VR_DS, " .5 ", kOk},
      {VX_VR_IS, repeat(" ", 40), kOk},
      {VX_VR_IS, "2147483647", kOk},
      {VX_VR_IS, "2147483648", kInvalid},
      {VX_VR_IS, "-2147483648", kOk},
      {VX_VR_IS, "-2147483649", kInvalid},
      {VX_VR_IS, "+2147483648", kInvalid},
      {VX_VR_IS, "00000000001", kInvalid},
      {VX_VR_IS, "1234567890123", kInvalid},
      {VX_VR_IS, "1.0", kBad},
      {VX_VR_IS, "1-", kInvalid},
      {VX_VR_IS, " 12 ", kOk},
  };
  expect(rows);
}

TEST_F(VrCheck, LocatorsOfResources) {
  const Row rows[] = {
      {VX_VR_UR, "http://host/path?x=%20y", kOk},
      {VX_VR_UR, "//host", kOk},
      {VX_VR_UR, "/path", kInvalid},
      {VX_VR_UR, "9p://host", kInvalid},
      {VX_VR_UR, "http:/host", kInvalid},
      {VX_VR_UR, "http", kInvalid},
      {VX_VR_UR, "ht_tp://host", kBad},
      {VX_VR_UR, "a+b-c.9://host", kOk},
      {VX_VR_UR, "http://host/%2", kInvalid},
      {VX_VR_UR, "http://host/%2G", kBad},
      {VX_VR_UR, "http://host/a b", kBad},
      {VX_VR_UR, "http://host/<a>", kBad},
      {VX_VR_UR, "http://host/a  ", kOk},
      {VX_VR_UR, " http://host", kInvalid},
  };
  expect(rows);
}

TEST_F(VrCheck, TextsUnderTheDefaultRepertoire) {
  const Row rows[] = {
      {VX_VR_LO, repeat("x", 64), kOk},
      {VX_VR_LO, repeat("x", 65), kInvalid},
      {VX_VR_LO, repeat("x", 63) + "  ", kInvalid},  // padding counts
      {VX_VR_LO, repeat(" ", 100), kOk},
      {VX_VR_LO, "a\\b", kBad},
      {VX_VR_LO, "a\rb", kBad},
      {VX_VR_LO, "a\x7F", kBad},
      {VX_VR_SH, repeat("x", 16), kOk},
      {VX_VR_SH, repeat("x", 17), kInvalid},
      {VX_VR_LT, "line\r\nline\tx\f", kOk},
      {VX_VR_LT, "a\\b", kOk},
      {VX_VR_LT, "a\vb", kBad},
      {VX_VR_LT, repeat("x", 10240), kOk},
      {VX_VR_LT, repeat("x", 10241), kInvalid},
      {VX_VR_ST, repeat("x", 1024), kOk},
      {VX_VR_ST, repeat("x", 1025), kInvalid},
      {VX_VR_UT, repeat("x", 20000), kOk},
      {VX_VR_UT, "a\x1F", kBad},
      {VX_VR_UC, repeat("x", 20000), kOk},
      {VX_VR_UC, " x", kInvalid},
      {VX_VR_UC, "a\nb", kBad},
      {VX_VR_PN, "Family^Given", kOk},
      {VX_VR_PN, " Family", kInvalid},
      {VX_VR_PN, repeat("x", 64), kOk},
      {VX_VR_PN, repeat("x", 65), kInvalid},
      {VX_VR_PN, repeat("x", 64) + "=" + repeat("y", 63), kOk},
      {VX_VR_PN, repeat("x", 64) + "=" + repeat("y", 64), kInvalid},
      {VX_VR_PN, repeat("x", 65) + "=y", kInvalid},
      {VX_VR_PN, "=" + repeat("y", 63) + "=" + repeat("z", 63), kOk},
      {VX_VR_PN, "==" + repeat("z", 64), kInvalid},
      {VX_VR_PN, "a\tb", kBad},
  };
  expect(rows);
  set_bool(VX_CFG_TOLERATE_INVALID_IN_DEFAULT_CHARSET, false);
  clear_log();
  EXPECT_EQ(VX_Set_Value_From_String(id(), 0x00100020, "M\xFCller"), kBad);
  EXPECT_TRUE(has_log("Character (0xFC) invalid for ISO-IR 6 character set in attribute (0010,0020)"));
  set_bool(VX_CFG_TOLERATE_INVALID_IN_DEFAULT_CHARSET, true);
  EXPECT_EQ(VX_Set_Value_From_String(id(), 0x00100020, "M\xFCller"), kOk);
  EXPECT_EQ(count_log("Character (0xFC)"), 2);
  EXPECT_EQ(VX_Set_Value_From_String(id(), 0x00100020, "M\x9Cller"), kBad);
}

TEST_F(VrCheck, ALongValueIsNamedInTheLog) {
  EXPECT_EQ(VX_Set_Value_From_String(id(), 0x00100020, repeat("x", 65).c_str()), kInvalid);
  EXPECT_TRUE(has_log("Attribute Patient ID (0010,0020): value exceeds 64 characters"));
  ASSERT_EQ(VX_Add_Private_Attribute(id(), "ACME 1.0", 0x0009, 1, VX_VR_LO), kOk);
  EXPECT_EQ(VX_Set_pValue_From_String(id(), "ACME 1.0", 0x0009, 1, repeat("x", 65).c_str()), kInvalid);
  EXPECT_TRUE(has_log("Attribute Private Text (0009,1001): value exceeds 64 characters"));
}

TEST_F(VrCheck, CharactersCountNotBytes) {
  struct {
    const char* names;
    std::string character;
    int bytes_are_characters;
  } const rows[] = {
      {"ISO_IR 192", "\xC3\xA9", 0},
      {"ISO_IR 192", "\xE5\xB1\xB1", 0},
      {"GB18030", "\xCD\xF5", 0},
      {"GB18030", "\x81\x30\x81\x30", 0},
      {"GBK", "\xCD\xF5", 0},
      {"ISO_IR 100", "\xE9", 1},
      {"ISO 2022 IR 6\\ISO 2022 IR 149", "\xB1\xE8", 0},
      {"ISO_IR 203", "\xA4", 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.names);
    set_charset(row.names);
    EXPECT_EQ(VX_Set_Value_From_String(id(), attribute(VX_VR_SH), repeat(row.character, 16).c_str()), kOk);
    EXPECT_EQ(VX_Set_Value_From_String(id(), attribute(VX_VR_SH), repeat(row.character, 17).c_str()),
              kInvalid);
    EXPECT_EQ(VX_Set_Value_From_String(id(), attribute(VX_VR_PN),
                                       (repeat(row.character, 64) + "=" + repeat(row.character, 63)).c_str()),
              kOk);
  }
}

// Texts of single-byte sets take a short road; the long one must answer the same.
TEST_F(VrCheck, BothRoadsAgree) {
  vx::MsgObj& object = *vx::find_object(id());
  unsigned seed = 1;
  std::vector<std::string> texts;
  for (int i = 0; i < 4000; ++i) {
    std::string text;
    for (unsigned left = seed % 70; left > 0; --left) {
      seed = seed * 1664525 + 1013904223;
      const unsigned pick = seed >> 24;
      text += pick < 8 ? static_cast<char>(seed >> 16) : pick < 40 ? '=' : pick < 90 ? '\xE9' : 'x';
    }
    std::erase(text, '\x1B');
    texts.push_back(text);
    seed = seed * 1664525 + 1013904223;
    seed ^= seed >> 13;
  }
  constexpr VX_VR kVrs[] = {VX_VR_LO, VX_VR_SH, VX_VR_PN, VX_VR_LT, VX_VR_UC, VX_VR_UT};
  std::vector<VX_STATUS> plain;
  set_charset("ISO_IR 100");
  for (const std::string& text : texts) {
    for (const VX_VR vr : kVrs) plain.push_back(vx::check_value(object, 0x00991000, vr, text, nullptr));
  }
  set_charset("ISO 2022 IR 100\\ISO 2022 IR 87");
  std::size_t at = 0;
  for (const std::string& text : texts) {
    for (const VX_VR vr : kVrs) {
      ASSERT_EQ(vx::check_value(object, 0x00991000, vr, text, nullptr), plain[at++]) << vr << ' ' << text;
    }
  }
}

}  // namespace
