// De-identification: each row of the profile with each option, and what no row says.
#include <algorithm>
#include <bit>
#include <cstring>
#include <map>
#include <set>

#include "config/services.h"
#include "deidentify/pseudonyms.h"
#include "deidentify/sha256.h"
#include "model/attributes.h"
#include "model/message_info.h"
#include "model/vr.h"
#include "objects.h"

namespace {

using objects::edit;
using objects::split;
constexpr VX_STATUS kOk = VX_NORMAL_COMPLETION;
constexpr char kSecret[] = "a secret of this test";
constexpr char kCtClass[] = "00080016=1.2.840.10008.5.1.4.1.1.2;";

const std::map<std::string, uint32_t> kOptions = {
    {"retain-safe-private", VX_RETAIN_SAFE_PRIVATE},
    {"retain-uids", VX_RETAIN_UIDS},
    {"retain-device-identity", VX_RETAIN_DEVICE_IDENTITY},
    {"retain-institution-identity", VX_RETAIN_INSTITUTION_IDENTITY},
    {"retain-patient-characteristics", VX_RETAIN_PATIENT_CHARACTERISTICS},
    {"retain-full-dates", VX_RETAIN_FULL_DATES},
    {"retain-modified-dates", VX_RETAIN_MODIFIED_DATES},
    {"clean-descriptors", VX_CLEAN_DESCRIPTORS},
    {"clean-structured-content", VX_CLEAN_STRUCTURED_CONTENT},
    {"clean-graphics", VX_CLEAN_GRAPHICS}};

struct Row {
  uint32_t tag = 0;
  std::string action;
  std::map<uint32_t, char> options;
};

// None, each, each two, and all that go together: dates are kept or moved.
std::vector<uint32_t> sets_of_options() {
  constexpr uint32_t kDates = VX_RETAIN_FULL_DATES | VX_RETAIN_MODIFIED_DATES;
  std::set<uint32_t> sets = {0};
  uint32_t all = 0;
  for (const auto& [name, one] : kOptions) {
    all |= one;
    for (const auto& [other_name, other] : kOptions) {
      if ((one | other) != kDates) sets.insert(one | other);
    }
  }
  sets.insert({all & ~+VX_RETAIN_FULL_DATES, all & ~+VX_RETAIN_MODIFIED_DATES});
  return {sets.begin(), sets.end()};
}

// The public rows, read apart from the tool's own reader.
std::vector<Row> table() {
  std::vector<Row> rows;
  for (const std::string& line :
       split(support::read_file(VEXAL_SOURCE_DIR "/data/confidentiality.tsv"), '\n')) {
    const std::vector<std::string> columns = split(line, '\t');
    if (columns.size() < 3 || columns[0].size() != 9 || columns[0][4] != ',') continue;
    Row row;
    std::string digits = columns[0].substr(0, 4) + columns[0].substr(5);
    if (digits.ends_with("xxxx")) digits.replace(4, 4, "3000");
    std::replace(digits.begin(), digits.end(), 'x', '0');
    row.tag = objects::to_tag(digits);
    row.action = columns[1];
    if (columns.size() > 3) {
      for (const std::string& word : split(columns[3], ' ')) {
        const std::vector<std::string> parts = split(word, '=');
        if (kOptions.contains(parts[0])) row.options[kOptions.at(parts[0])] = parts[1][0];
      }
    }
    rows.push_back(row);
  }
  return rows;
}

const char* secret_text(int32_t vr) {
  static const std::map<int32_t, const char*> kTexts = {
      {VX_VR_AS, "047Y"},   {VX_VR_DA, "20010203"}, {VX_VR_DT, "20010203101112"},
      {VX_VR_TM, "101112"}, {VX_VR_UI, "1.2.3.47"}, {VX_VR_UR, "http://secret/47"},
      {VX_VR_DS, "47"},     {VX_VR_IS, "47"}};
  const auto found = kTexts.find(vr);
  return found != kTexts.end() ? found->second : "SECRET 47";
}

class Deidentify : public support::LibraryTest {
 protected:
  void SetUp() override { ASSERT_EQ(begin_with_full_data(), kOk); }

  static VX_DEIDENTIFICATION how(uint32_t options, const char* secret = kSecret) {
    return {options, 0, secret, static_cast<uint32_t>(std::strlen(secret)), nullptr, nullptr};
  }
  static int32_t make(const std::string& steps) {
    int32_t id = -1;
    EXPECT_EQ(VX_Open_Empty_Message(&id), kOk);
    edit(id, steps);
    return id;
  }
  static std::string text(int32_t id, uint32_t tag) {
    char buffer[256] = "";
    VX_VR vr = 0;
    int32_t count = 0;
    if (VX_Get_Attribute_Info(id, tag, &vr, &count) != kOk) return "(none)";
    return VX_Get_Value_To_String(id, tag, sizeof buffer, buffer) == kOk ? buffer : "";
  }
  // Everything of an object in a text.
  static std::string listing(int32_t id) {
    std::string json;
    for (uint32_t tag = 0;;) {
      const vx::TagObj* attribute = vx::lower_bound_tag(*vx::find_object(id), tag);
      if (attribute == nullptr) return json;
      tag = attribute->Tag + 1;
      for (const vx::ValueObj* value = attribute->FirstValue; value != nullptr; value = value->Next) {
        if (value->Data == nullptr) continue;
        if (attribute->VR == VX_VR_SQ) {
          json += "[" + listing(static_cast<vx::MsgObj*>(value->Data)->ID) + "]";
        } else {
          json += std::to_string(attribute->Tag) + "=" +
                  std::string(static_cast<const char*>(value->Data), value->Length) + ";";
        }
      }
    }
  }
  // A value of any VR; of a sequence an item with a name and a description.
  static void put_secret(int32_t id, uint32_t tag) {
    VX_Add_Standard_Attribute(id, tag);
    VX_VR vr = 0;
    ASSERT_EQ(VX_Get_Attribute_Info(id, tag, &vr, nullptr), kOk);
    if (vr == VX_VR_SQ) {
      edit(objects::add_item(id, tag), "00080104=SECRET 47;00100010=SECRET^47;00200052=1.2.3.47");
    } else if (vx::is_bulk_vr(vr)) {
      ASSERT_EQ(VX_Set_Value_From_Buffer(id, tag, "SECRET47", 8), kOk);
    } else if (vx::is_text_vr(vr)) {
      ASSERT_EQ(VX_Set_Value_From_String(id, tag, secret_text(vr)), kOk);
    } else {
      ASSERT_EQ(VX_Set_Value_From_ULongInt(id, tag, 47), kOk);
    }
  }
  static char type_of(const vx::MsgTemplate& rules, uint32_t tag) {
    const vx::TagObj* rule = rules.FirstTag;
    while (rule != nullptr && rule->Tag != tag) rule = rule->Next;
    if (rule == nullptr || rule->Template->AttributeType >= vx::kType3 || tag >> 24 == 0x60) return '3';
    return rule->Template->AttributeType < vx::kType2 ? '1' : '2';
  }
  // What validation says of the attributes of the object itself.
  static std::set<std::pair<uint32_t, VX_STATUS>> errors_of(int32_t id) {
    std::set<std::pair<uint32_t, VX_STATUS>> errors;
    ValErrObj* finding = nullptr;
    for (VX_Validate_Message(id, &finding, VX_Errors_Only); finding != nullptr;
         VX_Get_Next_Validate_Error(id, &finding)) {
      if (finding->MsgItemID == id) errors.insert({finding->Tag, finding->Status});
    }
    return errors;
  }
  // What table E.1-1 asks for at a place of a type: the first of the letters that it allows. An option asks
  // for another one; where one keeps what another cleans, it is cleaned, so that what either hides is hidden.
  static char expected(const Row& row, uint32_t options, char type, bool sequence) {
    std::string asked;
    for (const auto& [option, letter] : row.options) {
      if ((options & option) != 0) asked += letter;
    }
    if (!asked.empty()) return asked.find('C') != std::string::npos ? 'C' : 'K';
    const auto may = [&](char letter) { return row.action.find(letter) != std::string::npos; };
    if (may('U') && (!sequence || type == '1')) return 'U';
    if (type == '1') return 'D';
    if (type == '2') return may('Z') ? 'Z' : may('D') ? 'D' : 'Z';
    return row.action[0];
  }
  static void check(int32_t id, uint32_t tag, char action, const std::string& before) {
    VX_VR vr = 0;
    int32_t count = 0;
    const bool there = VX_Get_Attribute_Info(id, tag, &vr, &count) == kOk;
    const std::string now = listing(id);
    const std::string value = there && vr != VX_VR_SQ && !vx::is_bulk_vr(vr) ? text(id, tag) : "";
    const bool dated = vr == VX_VR_DA || vr == VX_VR_DT;
    ASSERT_EQ(there, action != 'X');
    if (action == 'X') return;
    if (action == 'Z') {
      EXPECT_TRUE(value.empty() || value.starts_with("ANON-")) << value;
    }
    if (action == 'K' || action == 'Z') {
      const bool same = value.empty() ? now.find("SECRET") != std::string::npos : value == before;
      EXPECT_EQ(same, action == 'K') << value;
      return;
    }
    EXPECT_GT(count, 0);
    if (vx::is_text_vr(vr) && !(action == 'C' && (vr == VX_VR_TM || tag == 0x00080201))) {
      EXPECT_NE(value, before);
      EXPECT_FALSE(value.empty());
    }
    if (action == 'C' && dated) {
      EXPECT_EQ(value.size(), before.size());
      EXPECT_EQ(value.substr(8), before.substr(8));
    }
    if (action == 'U' && vr == VX_VR_UI) {
      EXPECT_TRUE(value.starts_with("2.25.")) << value;
    }
    if (vr == VX_VR_SQ && action == 'D') {
      EXPECT_EQ(now.find("SECRET"), std::string::npos) << now;
    }
  }
};

// FIPS 180-4 and RFC 4231.
TEST(Sha256, GivesThePublishedDigests) {
  const auto hex = [](const vx::Digest& digest) {
    std::string text;
    for (const uint8_t byte : digest) {
      text += "0123456789abcdef"[byte >> 4];
      text += "0123456789abcdef"[byte & 15];
    }
    return text;
  };
  EXPECT_EQ(hex(vx::sha256("abc")), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(hex(vx::sha256("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq")),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(hex(vx::hmac_sha256("Jefe", "what do ya want for nothing?")),
            "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
  EXPECT_EQ(hex(vx::hmac_sha256(std::string(131, '\xaa'),
                                "Test Using Larger Than Block-Size Key - Hash Key First")),
            "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54");
}

TEST(ShiftedDate, KeepsItsPrecisionTimeAndZone) {
  constexpr struct {
    const char *date, *shifted;
    int32_t days;
  } kCases[] = {{"20240301", "20240229", -1},
                {"20230301", "20230228", -1},
                {"20240101", "20231231", -1},
                {"202403", "202402", -20},
                {"2024", "2023", -200},
                {"20240301101112.123456+0200", "20240229101112.123456+0200", -1},
                {"20240230", "", -1},
                {"2024-03-01", "", -366},
                {"SMITH", "", -1},
                {"", "", -1},
                {"00010101", "", -1},
                {"20240301SMITH", "", -1},
                {"20240301101:12+0100", "", -1},
                {"2024+0200", "2023+0200", -200},
                {"20240301+02", "", -1}};
  for (const auto& [date, shifted, days] : kCases) EXPECT_EQ(vx::shifted_date(date, days), shifted) << date;
}

TEST_F(Deidentify, EachRowWithEachTwoOptionsDoesWhatTheTableSays) {
  const vx::MsgTemplate* rules = nullptr;
  ASSERT_EQ(vx::get_template("STANDARD_CT", C_STORE_RQ, rules), kOk);
  const std::vector<Row> rows = table();
  EXPECT_EQ(rows.size(), 633U);  // and that of private attributes
  const std::vector<uint32_t> sets = sets_of_options();
  EXPECT_EQ(sets.size(), 1U + 10 + 44 + 2);
  for (const Row& row : rows) {
    for (const uint32_t options : sets) {
      char where[64];
      std::snprintf(where, sizeof where, "%08X %s options %X", row.tag, row.action.c_str(), options);
      SCOPED_TRACE(where);
      int32_t id = make(kCtClass);
      put_secret(id, row.tag);
      VX_VR vr = 0;
      VX_Get_Attribute_Info(id, row.tag, &vr, nullptr);
      const std::string before = vx::is_bulk_vr(vr) || vr == VX_VR_SQ ? "" : text(id, row.tag);
      const VX_DEIDENTIFICATION wanted = how(options | VX_REPLACE_DOCUMENTS);
      ASSERT_EQ(VX_Deidentify_Message(id, &wanted), kOk);
      char action = expected(row, options, type_of(*rules, row.tag), vr == VX_VR_SQ);
      // What nobody looks at is not cleaned.
      if (action == 'C' && vx::is_bulk_vr(vr)) action = expected(row, 0, type_of(*rules, row.tag), false);
      check(id, row.tag, action, before);
      VX_Free_Message(&id);
    }
  }
}

// In each class and with each option: what has to have a value keeps one, what has to be there stays, and no
// rule is broken that was not.
TEST_F(Deidentify, TheTypesOfEachClassAreKept) {
  std::vector<Row> rows = table();
  std::erase_if(rows, [](const Row& row) {
    return row.tag < 0x00080000 || row.tag >> 24 == 0x60 || row.tag >> 24 == 0x50;
  });
  std::vector<uint32_t> sets = sets_of_options();
  std::erase_if(sets, [](uint32_t options) { return std::popcount(options) == 2; });
  int classes = 0;
  for (int number = 1; number < 1000; ++number) {
    const vx::SopObj* service = vx::find_service_by_number(number);
    const vx::MsgTemplate* rules = nullptr;
    if (service == nullptr || service->kind != vx::kBaseService ||
        std::string_view(service->name) == "DICOMDIR" ||
        vx::check_service_command(service->name, C_STORE_RQ) != kOk ||
        vx::get_template(service->name, C_STORE_RQ, rules) != kOk || rules->FirstTag == nullptr)
      continue;
    SCOPED_TRACE(service->name);
    ++classes;
    for (const uint32_t options : sets) {
      SCOPED_TRACE(options);
      int32_t id = make("");
      ASSERT_EQ(VX_Set_Service_Command(id, service->name, C_STORE_RQ), kOk);
      for (const Row& row : rows) put_secret(id, row.tag);
      std::set<std::pair<uint32_t, VX_STATUS>> before = errors_of(id);
      // The table keeps a dummy of the committee's name, and removes the approval that alone allows it.
      before.insert({0x00120081, VX_VALUE_NOT_ALLOWED});
      const VX_DEIDENTIFICATION wanted = how(options | VX_REPLACE_DOCUMENTS);
      ASSERT_EQ(VX_Deidentify_Message(id, &wanted), kOk);
      for (const Row& row : rows) {
        const char type = type_of(*rules, row.tag);
        int32_t count = 0;
        const bool there = VX_Get_Attribute_Info(id, row.tag, nullptr, &count) == kOk;
        EXPECT_TRUE(there || type == '3') << std::hex << row.tag;
        EXPECT_TRUE(type != '1' || count > 0) << std::hex << row.tag;
      }
      for (const auto& [tag, status] : errors_of(id))
        EXPECT_TRUE(before.contains({tag, status})) << std::hex << tag << VX_Error_Message(status);
      VX_Free_Message(&id);
    }
  }
  EXPECT_GE(classes, 180);
}

TEST_F(Deidentify, TheSameBecomesTheSameAndNothingElseDoes) {
  const std::string steps = std::string(kCtClass) +
                            "00080018=1.2.3;00080020=20240301;0008002A=20240301101112+0100;00080030=101112;"
                            "00100010=Doe^Jane;00100020= 4711 ;0020000D=1.2.4;00081140*1;"
                            "00081140/00081150=1.2.840.10008.5.1.4.1.1.2;00081140/00081155=1.2.4";
  const auto done = [&](const std::string& with, uint32_t options, const char* secret) {
    const int32_t id = make(with);
    const VX_DEIDENTIFICATION wanted = how(options, secret);
    EXPECT_EQ(VX_Deidentify_Message(id, &wanted), kOk);
    return id;
  };
  const uint32_t dates = VX_RETAIN_MODIFIED_DATES | VX_RETAIN_UIDS;
  const int32_t one = done(steps, dates, kSecret);
  const int32_t two = done(steps + ";00080030=202020", dates, kSecret);
  const int32_t other = done(steps + ";00100020=4712", dates, kSecret);
  const int32_t plain = done(steps, 0, kSecret);
  const int32_t strange = done(steps, 0, "another secret of this test");
  for (const uint32_t tag : {0x00080020U, 0x00100010U, 0x00100020U}) {
    EXPECT_EQ(text(one, tag), text(two, tag));
    EXPECT_NE(text(one, tag), text(other, tag));
  }
  EXPECT_EQ(text(one, 0x00100010), text(one, 0x00100020));
  EXPECT_EQ(text(one, 0x00080030), "101112");
  EXPECT_EQ(text(one, 0x0008002A), text(one, 0x00080020) + "101112+0100");
  EXPECT_EQ(text(one, 0x0020000D), "1.2.4");
  const int32_t item = objects::last_item(one, 0x00081140);
  EXPECT_EQ(text(item, 0x00081150), "1.2.840.10008.5.1.4.1.1.2");
  char uid[65];
  const VX_DEIDENTIFICATION same = how(0);
  ASSERT_EQ(VX_Deidentified_UID(&same, "1.2.4", uid), kOk);
  EXPECT_EQ(text(plain, 0x0020000D), uid);
  EXPECT_NE(text(strange, 0x0020000D), uid);
  EXPECT_NE(text(strange, 0x00100020), text(plain, 0x00100020));
  EXPECT_EQ(text(plain, 0x00080016), "1.2.840.10008.5.1.4.1.1.2");
  for (const int32_t id : {one, plain}) EXPECT_EQ(text(id, 0x00120062), "YES");
  EXPECT_EQ(text(one, 0x00280303), "MODIFIED");
  EXPECT_EQ(text(plain, 0x00280303), "REMOVED");
  int32_t codes = 0;
  VX_Get_Value_Count(one, 0x00120064, &codes);
  EXPECT_EQ(codes, 3);
  // UIDs that the standard gives stay, others below its root do not.
  ASSERT_EQ(VX_Deidentified_UID(&same, "1.2.840.10008.1.4.1.1", uid), kOk);
  EXPECT_STREQ(uid, "1.2.840.10008.1.4.1.1");
  ASSERT_EQ(VX_Deidentified_UID(&same, "1.2.840.10008.1.4.1.1.47", uid), kOk);
  EXPECT_STRNE(uid, "1.2.840.10008.1.4.1.1.47");
  EXPECT_EQ(text(objects::last_item(plain, 0x00120064), 0x00080100), "113100");
}

TEST_F(Deidentify, WhatNoRowNamesGoesByItsKind) {
  const struct {
    const char* steps;
    uint32_t tag;
    const char* expected;  // "(none)": gone
    uint32_t options = 0;
  } kCases[] = {
      {"00280010=47", 0x00280010, "47"},
      {"UN 00100010", 0x00100010, "ANON-"},
      {"UN 00100010;00281055=of SECRET47", 0x00281055, "ANONYMIZED"},
      {"UN 00180050", 0x00180050, ""},  // nor is it a thickness
      {"00180050=1.5", 0x00180050, "1.5"},
      {"00090010=ACME 1.0;00091001=SECRET", 0x00091001, "(none)"},
      {"00090010=ACME 1.0;00091001=SECRET", 0x00090010, "(none)"},
      {"70530010=Philips PET Private Group;70531000=47;70531001=SECRET", 0x70531000, "47",
       VX_RETAIN_SAFE_PRIVATE},
      {"70530010=Philips PET Private Group;70531000=47;70531001=SECRET", 0x70531001, "(none)",
       VX_RETAIN_SAFE_PRIVATE},
      {"70530010=Philips PET Private Group;70531001=SECRET", 0x70530010, "(none)", VX_RETAIN_SAFE_PRIVATE},
      {"00090010=ACME 1.0;00091001=47;00080300*1;00080300/00080301=9;00080300/00080302=ACME "
       "1.0;00080300/00080303=SAFE",
       0x00091001, "47", VX_RETAIN_SAFE_PRIVATE},
      {"00090010=ACME 1.0;00091001=47;00080300*1;00080300/00080301=9;00080300/00080302=ACME 1.0;"
       "00080300/00080303=MIXED;00080300/00080304=2",
       0x00091001, "(none)", VX_RETAIN_SAFE_PRIVATE},
      {"00090010=ACME 1.0;00091001=47;00080300*1;00080300/00080301=9;00080300/00080302=ACME 1.0;"
       "00080300/00080303=MIXED;00080300/00080304=2\\1",
       0x00091001, "47", VX_RETAIN_SAFE_PRIVATE},
      {"00080300*1;00080300/00080301=9", 0x00090010, "(none)", VX_RETAIN_SAFE_PRIVATE},
      {"00100000=47", 0x00100000, "(none)"},
      {"00080020=20240301;0008002A=20240301101:12", 0x0008002A, "(none)", VX_RETAIN_MODIFIED_DATES},
      {"00080005=ISO 2022 IR 999;00400280=SECRET", 0x00400280, "ANONYMIZED", VX_CLEAN_DESCRIPTORS},
      {"60020010=8;60023000=x;60024000=SECRET", 0x60020010, "(none)"},
      {"00080060=CT", 0x00080060, "CT"},
      {"00400280=SECRET", 0x00400280, "ANONYMIZED", VX_CLEAN_DESCRIPTORS},
      // What names the patient is found in other texts; parts of words, short words and public codes are not.
      {"00100010=Secret^Ann;00281055=so SECRET, no", 0x00281055, "ANONYMIZED"},
      {"00100020=AB-47;00281055=of ab-47", 0x00281055, "ANONYMIZED"},
      {"00100010=Insecret^Ann;00281055=Insecretly Ann", 0x00281055, "Insecretly Ann"},
      {"00080090=Secret^Doc;00281055=to SECRET", 0x00281055, "ANONYMIZED"},
      {"00080080=Secret House;00281055=the secret house", 0x00281055, "ANONYMIZED"},
      // Scripts without spaces, letters of two bytes, and what an escape sequence ends with.
      {"00080005=ISO_IR 192;00100010=王^小东;00281055=患者王小东SECRET", 0x00281055, "ANONYMIZED"},
      {"00080005=\\ISO 2022 IR 87;00100010=SECRET^A;00281055=\x1b$B03\x1b(BSecret", 0x00281055, "ANONYMIZED"},
      {"00080005=\\ISO 2022 IR 87;00100010=\x1b$BABCD\x1b(B^A;00281055=\x1b$B01ABCD23\x1b(B SECRET",
       0x00281055, "ANONYMIZED"},
      {"00100010=SECRET^Ann;00181000=a secret;", 0x00181000, "ANONYMIZED", VX_RETAIN_DEVICE_IDENTITY},
  };
  for (const auto& each : kCases) {
    SCOPED_TRACE(each.steps);
    int32_t id = -1;
    ASSERT_EQ(VX_Open_Empty_Message(&id), kOk);
    const std::string steps = each.steps;
    const bool unknown_vr = steps.starts_with("UN ");
    if (unknown_vr) {
      const uint32_t tag = objects::to_tag(steps.substr(3, 8));
      vx::new_tag(*vx::find_object(id), tag, VX_VR_UN, 1, 1, nullptr);
      VX_Set_Value_From_Buffer(id, tag, "SECRET47", 8);
    }
    edit(id, kCtClass + (unknown_vr ? steps.substr(11) : steps), [](uint32_t tag) {
      const bool numeric = tag == 0x70531000 || tag == 0x00091001;
      return static_cast<VX_VR>((tag & 0xFFFF) == 0 ? VX_VR_UL : numeric ? VX_VR_IS : VX_VR_LO);
    });
    const VX_DEIDENTIFICATION wanted = how(each.options);
    ASSERT_EQ(VX_Deidentify_Message(id, &wanted), kOk);
    const std::string now = text(id, each.tag);
    EXPECT_TRUE(now == each.expected ||
                (std::string_view(each.expected) == "ANON-" && now.starts_with("ANON-")))
        << now;
    EXPECT_EQ(listing(id).find("SECRET"), std::string::npos);
    VX_Free_Message(&id);
  }
}

TEST_F(Deidentify, TextsOnFilesAndOfOtherVRsAreNotPassedOver) {
  ASSERT_EQ(VX_Set_String_Config_Value(VX_CFG_LARGE_DATA_STORE, "FILE"), kOk);
  ASSERT_EQ(VX_Set_Int_Config_Value(VX_CFG_LARGE_DATA_SIZE, 6), kOk);
  const int32_t id = make(kCtClass);
  VX_Add_Standard_Attribute(id, 0x00080058);
  ASSERT_EQ(VX_Set_Value_From_String(id, 0x00080058, "1.2.3.47"), kOk);
  ASSERT_EQ(VX_Set_Next_Value_From_String(id, 0x00080058, "1.2.3.48"), kOk);
  ASSERT_EQ(vx::find_tag(*vx::find_object(id), 0x00080058)->Storage, vx::Stored::InFile);
  vx::new_tag(*vx::find_object(id), 0x00280008, VX_VR_LO, 1, 1, nullptr);
  ASSERT_EQ(VX_Set_Value_From_String(id, 0x00280008, "SECRET"), kOk);
  const VX_DEIDENTIFICATION wanted = how(0);
  ASSERT_EQ(VX_Deidentify_Message(id, &wanted), kOk);
  EXPECT_EQ(text(id, 0x00080058).substr(0, 5), "2.25.");
  EXPECT_EQ(text(id, 0x00280008), "(none)");
}

// Of the content of a report, codes that everyone has and numbers stay.
TEST_F(Deidentify, ReportsLoseWhatPeopleWrote) {
  const std::string report =
      "00080016=1.2.840.10008.5.1.4.1.1.88.22;0040A730*4;"
      "0040A730/0040A040=NUM;0040A730/0040A300*1;0040A730/0040A300/0040A30A=47;"
      "0040A730/0040A043*1;0040A730/0040A043/00080100=121071;0040A730/0040A043/00080102=DCM;"
      "0040A730/0040A043/00080104=Finding;"
      "0040A730/0040A168*1;0040A730/0040A168/00080100=SECRET1;0040A730/0040A168/00080102=99SITE;"
      "0040A730/0040A168/00080104=SECRET;0040A730/0040A160=SECRET;0040A730/0040A123=SECRET^X;"
      "0040A730/0040A121=20240301;0040A730/0040A124=1.2.3";
  for (const uint32_t options : {0, +VX_CLEAN_STRUCTURED_CONTENT}) {
    int32_t id = make(report);
    const VX_DEIDENTIFICATION wanted = how(options);
    ASSERT_EQ(VX_Deidentify_Message(id, &wanted), kOk);
    const int32_t item = objects::last_item(id, 0x0040A730);
    EXPECT_EQ(text(item, 0x0040A040), "NUM");
    EXPECT_EQ(text(objects::last_item(item, 0x0040A043), 0x00080104), "Finding");
    EXPECT_EQ(text(objects::last_item(item, 0x0040A300), 0x0040A30A), "47");
    EXPECT_EQ(text(objects::last_item(item, 0x0040A168), 0x00080104), "ANONYMIZED");
    EXPECT_NE(text(item, 0x0040A121), "20240301");
    EXPECT_TRUE(text(item, 0x0040A124).starts_with("2.25."));
    EXPECT_EQ(listing(id).find("SECRET"), std::string::npos) << listing(id);
    VX_Free_Message(&id);
  }
}

TEST_F(Deidentify, RefusesWhatItCanNotDoWhole) {
  const struct {
    const char* steps;
    uint32_t options;
    const char* secret;
    VX_STATUS status;
  } kCases[] = {
      {"00080016=1.2.3.4", 0, kSecret, VX_INVALID_SOP_CLASS_UID},
      {"00100010=Doe", 0, kSecret, VX_INVALID_SOP_CLASS_UID},
      {"00080016=1.2.3.4;00100010=Doe", VX_ANY_CLASS, kSecret, kOk},
      {"00080016=1.2.840.10008.5.1.4.1.1.104.1;00420011", 0, kSecret, VX_VALUE_NOT_ALLOWED},
      {"00080016=1.2.840.10008.5.1.4.1.1.104.1;00420011", VX_REPLACE_DOCUMENTS, kSecret, kOk},
      {kCtClass, VX_RETAIN_FULL_DATES | VX_RETAIN_MODIFIED_DATES, kSecret, VX_VALUE_OUT_OF_RANGE},
      {kCtClass, 0, "short", VX_VALUE_OUT_OF_RANGE},
  };
  for (const auto& each : kCases) {
    int32_t id = make(each.steps);
    if (VX_Get_Attribute_Info(id, 0x00420011, nullptr, nullptr) == kOk)
      VX_Set_Value_From_Buffer(id, 0x00420011, "%PDF", 4);
    const VX_DEIDENTIFICATION wanted = how(each.options, each.secret);
    const std::string before = listing(id);
    EXPECT_EQ(VX_Deidentify_Message(id, &wanted), each.status) << each.steps;
    EXPECT_EQ(listing(id) == before, each.status != kOk) << each.steps;
    VX_Free_Message(&id);
  }
  int32_t item = -1;
  ASSERT_EQ(VX_Open_Empty_Item(&item), kOk);
  const VX_DEIDENTIFICATION wanted = how(0);
  EXPECT_EQ(VX_Deidentify_Message(item, &wanted), VX_INVALID_MESSAGE_ID);
  EXPECT_EQ(VX_Deidentify_Message(9999, &wanted), VX_INVALID_MESSAGE_ID);
  EXPECT_EQ(VX_Deidentify_Message(item, nullptr), VX_NULL_POINTER_PARM);
  char uid[65];
  EXPECT_EQ(VX_Deidentified_UID(&wanted, std::string(65, '1').c_str(), uid), VX_VALUE_OUT_OF_RANGE);
}

TEST_F(Deidentify, ReportsEachChangeBeforeItIsMade) {
  int32_t id = make(std::string(kCtClass) +
                    "00080050=SECRET;00081030=SECRET;00081110*1;00081110/00081155=1.2.3;"
                    "0020000D=1.2.3;00280010=47;00081115*1;00081115/0020000E=1.2.4");
  std::string told;
  VX_DEIDENTIFICATION wanted = how(0);
  wanted.UserInfo = &told;
  wanted.Report = [](int32_t object, uint32_t tag, const char* path, char action, void* user) -> VX_STATUS {
    *static_cast<std::string*>(user) +=
        std::string(path) + action + (action == 'X' ? "" : text(object, tag)) + "\n";
    return VX_Set_Value_To_NULL(object, tag) == VX_STATE_VIOLATION ? kOk : VX_SYSTEM_ERROR;
  };
  ASSERT_EQ(VX_Deidentify_Message(id, &wanted), kOk);
  EXPECT_EQ(told, "00080050ZSECRET\n00081030X\n00081110X\n00081115[0].0020000EU1.2.4\n0020000DU1.2.3\n");
  wanted.Report = [](int32_t, uint32_t, const char*, char, void*) -> VX_STATUS { return VX_SYSTEM_ERROR; };
  EXPECT_EQ(VX_Deidentify_Message(id, &wanted), VX_CALLBACK_CANNOT_COMPLY);
  VX_Free_Message(&id);
}

}  // namespace
