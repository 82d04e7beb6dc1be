// The rules of each text VR, at their edges. The attribute is stored in any case; the status tells.
#include <string>

#include "model/convert.h"
#include "value_fixture.h"

namespace {

constexpr VX_STATUS kOk = VX_NORMAL_COMPLETION;
constexpr VX_STATUS kInvalid = VX_INVALID_VALUE_FOR_VR;
constexpr VX_STATUS kBad = VX_INVALID_CHARS_IN_VALUE;

class VrCheck : public support::ValueTest {
 protected:
  struct Row {
    VX_VR vr;
    VX_STATUS status;
    std::vector<std::string> texts;
  };
  void expect(std::initializer_list<Row> rows) {
    for (const Row& row : rows) {
      for (const std::string& text : row.texts) {
        EXPECT_EQ(VX_Set_Value_From_String(id, attribute(row.vr), text.c_str()), row.status)
            << "VR " << row.vr << " '" << text << "'";
      }
    }
  }
};

std::string repeat(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

TEST_F(VrCheck, TitlesCodesAndIdentifiers) {
  expect({
      {VX_VR_AE, kOk, {"SIXTEEN_LETTERS_", " A "}},
      {VX_VR_AE, kInvalid, {"SIXTEEN_LETTERS_ ", "   "}},
      {VX_VR_AE, kBad, {"A\\B", "A\tB", "\x7F", "\xE9"}},
      {VX_VR_CS, kOk, {"AZ09 _*?", repeat(" ", 16)}},
      {VX_VR_CS, kInvalid, {repeat(" ", 17)}},
      {VX_VR_CS, kBad, {"AbC", "A-B"}},
      {VX_VR_UI, kOk, {repeat("1", 64), "1.2.840"}},
      {VX_VR_UI, kInvalid, {repeat("1", 65)}},
      {VX_VR_UI, kBad, {"1.2 ", " 1.2", "  ", "1.2.x"}},
  });
  using std::string_view_literals::operator""sv;
  EXPECT_EQ(vx::check_value(object(), 0x00080018, VX_VR_UI, "1.2\0\0"sv, nullptr), kOk);
  EXPECT_EQ(vx::check_value(object(), 0x00080018, VX_VR_UI, "1.2 \0"sv, nullptr), kBad);
  EXPECT_EQ(vx::check_value(object(), 0x00080018, VX_VR_UI, "1\0.2"sv, nullptr), kBad);
  EXPECT_EQ(vx::check_value(object(), 0x00280010, VX_VR_US, "\xFF\xFF"sv, nullptr), kOk);
}

TEST_F(VrCheck, AgesDatesAndTimes) {
  expect({
      {VX_VR_AS, kOk, {"018M", "0180"}},
      {VX_VR_AS, kInvalid, {"18M", "0M8M"}},
      {VX_VR_AS, kBad, {"018X", " 18M", "018M "}},
      {VX_VR_DA, kOk, {"20241231", "20240101-20241231", "20240101-20241231 ", "20240101-", "-20240101"}},
      {VX_VR_DA,
       kInvalid,
       {"20241331", "20242031", "20241232", "20241241", "2024123", "20241231 ", " 20241231",
        "20240101-20241231  ", "20240101--", "-20241301", "20240101-2024123100"}},
      {VX_VR_DA, kBad, {"2024.12.31"}},
      {VX_VR_TM,
       kOk,
       {"23", "235959.123456", "235959.123456 ", "1000-1200", "-1200", "10-", "100000.000000-235959.999999"}},
      {VX_VR_TM,
       kInvalid,
       {"24", "30", "2360", "235960", "235", "2359.5", " 23", "100-12", "100000.000000-245959.999999",
        "100000-2359599.9", "100000.00000000"}},
      {VX_VR_TM, kBad, {"23:59"}},
      {VX_VR_DT,
       kOk,
       {"20240131120000.123456+0100", "2024", "2024-", "20240101-20240131", repeat("1", 26),
        "2024-" + repeat("1", 49)}},
      {VX_VR_DT,
       kInvalid,
       {"2024+01", "2024-202", "2024.", " 2024", repeat("1", 27), "2024-0100-2024-0100",
        "2024-" + repeat("1", 50)}},
      {VX_VR_DT, kBad, {"2024Z"}},
  });
}

TEST_F(VrCheck, NumbersInText) {
  expect({
      {VX_VR_DS, kOk, {"   ", repeat(" ", 40), "-1.234567890E-10", "+1e+5", " .5 "}},
      {VX_VR_DS,
       kInvalid,
       {"-1.234567890E-100", "1,5", "1.2.3", "1E2E3", "E5", "1E2.5", "1-5", "5-", "--5", "-5-", "-1E-+5"}},
      {VX_VR_DS, kBad, {"1 5", "0x10"}},
      {VX_VR_IS, kOk, {repeat(" ", 40), "2147483647", "-2147483648", " 12 "}},
      {VX_VR_IS,
       kInvalid,
       {"2147483648", "-2147483649", "+2147483648", "00000000001", "1234567890123", "1-"}},
      {VX_VR_IS, kBad, {"1.0"}},
  });
}

TEST_F(VrCheck, LocatorsOfResources) {
  expect({
      {VX_VR_UR, kOk, {"http://host/path?x=%20y", "//host", "a+b-c.9://host", "http://host/a  "}},
      {VX_VR_UR, kInvalid, {"/path", "9p://host", "http:/host", "http", "http://host/%2", " http://host"}},
      {VX_VR_UR, kBad, {"ht_tp://host", "http://host/%2G", "http://host/a b", "http://host/<a>"}},
  });
}

TEST_F(VrCheck, TextsUnderTheDefaultRepertoire) {
  expect({
      {VX_VR_LO, kOk, {repeat("x", 64), repeat(" ", 100)}},
      {VX_VR_LO, kInvalid, {repeat("x", 65), repeat("x", 63) + "  "}},
      {VX_VR_LO, kBad, {"a\\b", "a\rb", "a\x7F"}},
      {VX_VR_SH, kOk, {repeat("x", 16)}},
      {VX_VR_SH, kInvalid, {repeat("x", 17)}},
      {VX_VR_LT, kOk, {"line\r\nline\tx\f", "a\\b", repeat("x", 10240)}},
      {VX_VR_LT, kBad, {"a\vb"}},
      {VX_VR_LT, kInvalid, {repeat("x", 10241)}},
      {VX_VR_ST, kOk, {repeat("x", 1024)}},
      {VX_VR_ST, kInvalid, {repeat("x", 1025)}},
      {VX_VR_UT, kOk, {repeat("x", 20000)}},
      {VX_VR_UT, kBad, {"a\x1F"}},
      {VX_VR_UC, kOk, {repeat("x", 20000)}},
      {VX_VR_UC, kInvalid, {" x"}},
      {VX_VR_UC, kBad, {"a\nb"}},
      {VX_VR_PN,
       kOk,
       {"Family^Given", repeat("x", 64), repeat("x", 64) + "=" + repeat("y", 63),
        "=" + repeat("y", 63) + "=" + repeat("z", 63)}},
      {VX_VR_PN,
       kInvalid,
       {" Family", repeat("x", 65), repeat("x", 64) + "=" + repeat("y", 64), repeat("x", 65) + "=y",
        "==" + repeat("z", 64)}},
      {VX_VR_PN, kBad, {"a\tb"}},
  });
  set_bool(VX_CFG_TOLERATE_INVALID_IN_DEFAULT_CHARSET, false);
  clear_log();
  EXPECT_EQ(VX_Set_Value_From_String(id, 0x00100020, "M\xFCller"), kBad);
  EXPECT_TRUE(has_log("Character (0xFC) invalid for ISO-IR 6 character set in attribute (0010,0020)"));
  set_bool(VX_CFG_TOLERATE_INVALID_IN_DEFAULT_CHARSET, true);
  EXPECT_EQ(VX_Set_Value_From_String(id, 0x00100020, "M\xFCller"), kOk);
  EXPECT_EQ(count_log("Character (0xFC)"), 2);
  EXPECT_EQ(VX_Set_Value_From_String(id, 0x00100020, "M\x9Cller"), kBad);
}

TEST_F(VrCheck, ALongValueIsNamedInTheLog) {
  EXPECT_EQ(VX_Set_Value_From_String(id, 0x00100020, repeat("x", 65).c_str()), kInvalid);
  EXPECT_TRUE(has_log("Attribute Patient ID (0010,0020): value exceeds 64 characters"));
  ASSERT_EQ(VX_Add_Private_Attribute(id, "ACME 1.0", 0x0009, 1, VX_VR_LO), kOk);
  EXPECT_EQ(VX_Set_pValue_From_String(id, "ACME 1.0", 0x0009, 1, repeat("x", 65).c_str()), kInvalid);
  EXPECT_TRUE(has_log("Attribute Private Text (0009,1001): value exceeds 64 characters"));
}

TEST_F(VrCheck, CharactersCountNotBytes) {
  struct {
    const char* names;
    std::string character;
    int bytes_are_characters;
  } const rows[] = {{"ISO_IR 192", "\xC3\xA9", 0},
                    {"ISO_IR 192", "\xE5\xB1\xB1", 0},
                    {"GB18030", "\xCD\xF5", 0},
                    {"GB18030", "\x81\x30\x81\x30", 0},
                    {"GBK", "\xCD\xF5", 0},
                    {"ISO_IR 100", "\xE9", 1},
                    {"ISO 2022 IR 6\\ISO 2022 IR 149", "\xB1\xE8", 0},
                    {"ISO_IR 203", "\xA4", 1}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.names);
    set_charset(id, row.names);
    EXPECT_EQ(VX_Set_Value_From_String(id, attribute(VX_VR_SH), repeat(row.character, 16).c_str()), kOk);
    EXPECT_EQ(VX_Set_Value_From_String(id, attribute(VX_VR_SH), repeat(row.character, 17).c_str()), kInvalid);
    EXPECT_EQ(VX_Set_Value_From_String(id, attribute(VX_VR_PN),
                                       (repeat(row.character, 64) + "=" + repeat(row.character, 63)).c_str()),
              kOk);
  }
}

// Texts of single-byte sets take a short road; the long one must answer the same.
TEST_F(VrCheck, BothRoadsAgree) {
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
  set_charset(id, "ISO_IR 100");
  for (const std::string& text : texts) {
    for (const VX_VR vr : kVrs) plain.push_back(vx::check_value(object(), 0x00991000, vr, text, nullptr));
  }
  set_charset(id, "ISO 2022 IR 100\\ISO 2022 IR 87");
  std::size_t at = 0;
  for (const std::string& text : texts) {
    for (const VX_VR vr : kVrs) {
      ASSERT_EQ(vx::check_value(object(), 0x00991000, vr, text, nullptr), plain[at++]) << vr << ' ' << text;
    }
  }
}

}  // namespace
