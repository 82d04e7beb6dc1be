// The validation as a program sees it: findings of small objects against a small template.
#include <string>
#include <tuple>
#include <vector>

#include "frame/pool.h"
#include "frame/seams.h"
#include "info_file.h"
#include "objects.h"

namespace {

using support::Body;
using support::InfoBuilder;

using namespace objects;

constexpr VX_STATUS kOk = VX_NORMAL_COMPLETION;
constexpr uint32_t kImageType = 0x00080008;
constexpr uint32_t kSopClass = 0x00080016;
constexpr uint32_t kModality = 0x00080060;
constexpr uint32_t kReferring = 0x00080090;
constexpr uint32_t kReferenced = 0x00081140;
constexpr uint32_t kPatientId = 0x00100020;
constexpr uint32_t kBirthDate = 0x00100030;
constexpr uint32_t kSex = 0x00100040;
constexpr uint32_t kPosition = 0x00200032;
constexpr uint32_t kSpacing = 0x00280030;
constexpr uint32_t kBits = 0x00280100;
constexpr VX_STATUS kMissing = VX_REQUIRED_ATTRIBUTE_MISSING;
constexpr VX_STATUS kNoValue = VX_REQUIRED_VALUE_MISSING;
constexpr VX_STATUS kNull = VX_VALUE_MAY_NOT_BE_NULL;
constexpr VX_STATUS kForbidden = VX_VALUE_NOT_ALLOWED;
constexpr VX_STATUS kUntold = VX_UNABLE_TO_CHECK_CONDITION;
constexpr VX_STATUS kForeign = VX_NON_SERVICE_ATTRIBUTE;
constexpr VX_STATUS kNotListed = VX_NOT_ONE_OF_ENUMERATED_VALUES;
constexpr VX_STATUS kBadChars = VX_INVALID_CHARS_IN_VALUE;

// Tag, value number, status.
using Found = std::tuple<uint32_t, int32_t, VX_STATUS>;
using Findings = std::vector<Found>;

struct Case {
  const char* name;
  const char* steps;  // from the complete object
  Findings errors{};
  Findings warnings{};  // those of the errors left out, in the order of the walk behind them
  Findings remarks{};
};

class Engine : public support::LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    Body ct;
    ct.add(0x00080005, "3", "CS").with(1001, "ISO_IR 100").with(1001, "ISO_IR 6");
    ct.add(kImageType, "1", "CS")
        .with(1, "ORIGINAL")
        .with(1, "DERIVED")
        .with(1002, "PRIMARY")
        .with(3, "AXIAL");
    ct.add(kSopClass, "1");
    ct.add(kModality, "1", "CS").with(1, "CT");
    ct.add(kReferring, "2");
    ct.add(0x00081030, "3");
    ct.add(kReferenced, "2", "SQ").with(1, "REF_IMAGE");
    ct.add(kPatientId, "1C").with(2000, "A00080008_IS_ORIGINAL");
    ct.add(kBirthDate, "2C").with(2000, "A00080008_IS_ORIGINAL");
    ct.add(kSex, "1C");
    ct.add(0x00101030, "1C").with(2000, "NO_SUCH_CONDITION");
    ct.add(kPosition, "2");
    ct.add(kSpacing, "3");
    ct.add(kBits, "1", "US").with(1, "8").with(1, "16");
    ct.add(0x60000010, "3", "US").with(1, "1").with(1, "2");
    InfoBuilder builder;
    builder.service(2, C_STORE_RQ, ct);
    builder.item(501, Body().add(0x00081150, "1").add(0x00081155, "1"));
    builder.item(502, Body().add(kPatientId, "2"));
    vx::model_drop();
    set_text(VX_CFG_MSG_INFO_FILE, folder().write("test.msg", builder.bytes()));
  }
  void TearDown() override {
    vx::model_drop();
    LibraryTest::TearDown();
  }
  std::string dictionary() override {
    support::DictionaryFile more;
    const std::size_t head = more.bytes().size();
    more.add(0x60000010, VX_VR_US, 1, 1, "Overlay Rows");
    std::string bytes = support::small_dictionary();
    bytes.insert(bytes.find("\x7F\xE0"), more.bytes().substr(head));
    return bytes;
  }

  static int32_t message(const std::string& steps) {
    int32_t id = -1;
    EXPECT_EQ(VX_Open_Empty_Message(&id), kOk);
    EXPECT_EQ(VX_Set_Service_Command(id, "STANDARD_CT", C_STORE_RQ), kOk);
    edit(id, steps);
    return id;
  }
  // An object that validates, and is changed then.
  static int32_t complete(const std::string& steps = "") {
    const int32_t id = message(
        "00080008=ORIGINAL\\PRIMARY\\AXIAL;00080016=1.2.840.10008.5.1.4.1.1.2;00080060=CT;00080090=Doe^Jane;"
        "00081140*1;00081140/00081150=1.2.3;00081140/00081155=1.2.4;00100020=A1;00100030=19700131;"
        "00200032=1\\2\\3;00280100=16");
    edit(id, steps);
    return id;
  }
  // What is left to read of the findings, from the first one.
  static Findings rest(int32_t id, ValErrObj* finding) {
    Findings found;
    while (finding != nullptr) {
      found.emplace_back(finding->Tag, finding->ValueNumber, finding->Status);
      const VX_STATUS status = VX_Get_Next_Validate_Error(id, &finding);
      EXPECT_EQ(status, finding != nullptr ? kOk : VX_END_OF_LIST);
    }
    return found;
  }
  static Findings validate(int32_t id, ValidationLevel level) {
    ValErrObj* finding = nullptr;
    const VX_STATUS status = VX_Validate_Message(id, &finding, level);
    EXPECT_EQ(status, finding != nullptr ? VX_DOES_NOT_VALIDATE : VX_MESSAGE_VALIDATES);
    return rest(id, finding);
  }
  static Findings validate_attribute(int32_t id, uint32_t tag) {
    ValErrObj* finding = nullptr;
    const VX_STATUS status = VX_Validate_Attribute(id, tag, &finding, VX_Errors_And_Warnings);
    EXPECT_EQ(status, finding != nullptr ? VX_DOES_NOT_VALIDATE : VX_MESSAGE_VALIDATES);
    return rest(id, finding);
  }
  static void check(std::initializer_list<Case> rows) {
    for (const Case& row : rows) check(row);
  }
  static void check(const Case& row) {
    SCOPED_TRACE(row.name);
    int32_t id = complete(row.steps);
    Findings expected = row.errors;
    const auto sorted = [](Findings findings) {
      std::sort(findings.begin(), findings.end());
      return findings;
    };
    EXPECT_EQ(validate(id, VX_Errors_Only), expected);
    expected.insert(expected.end(), row.warnings.begin(), row.warnings.end());
    EXPECT_EQ(sorted(validate(id, VX_Errors_And_Warnings)), sorted(expected));
    expected.insert(expected.end(), row.remarks.begin(), row.remarks.end());
    EXPECT_EQ(sorted(validate(id, VX_All_Findings)), sorted(expected));
    VX_Free_Message(&id);
  }
};

TEST_F(Engine, PresenceAndType) {
  check({
      {"complete", ""},
      {"type 1 missing", "-00080060", {{kModality, 0, kMissing}}},
      {"type 1 at the end missing", "-00280100", {{kBits, 0, kMissing}}},
      {"type 1 null", "00080060=", {{kModality, 0, kNull}}},
      {"type 1 without a value", "00080060", {{kModality, 0, kNoValue}}},
      {"type 2 missing", "-00080090", {{kReferring, 0, kMissing}}},
      {"type 2 null", "00080090="},
      {"type 2 without a value", "00080090", {{kReferring, 0, kNoValue}}},
      {"1C that holds, missing; 2C null", "-00100020;00100030=", {{kPatientId, 0, kMissing}}},
      {"1C that holds, null; 2C without a value",
       "00100020=;00100030",
       {{kPatientId, 0, kNull}, {kBirthDate, 0, kNoValue}}},
      {"forbidden, with a value and with a null one",
       "00080008=DERIVED\\PRIMARY;00100030=",
       {{kPatientId, 0, kForbidden}, {kBirthDate, 0, kForbidden}}},
      {"forbidden, absent or without a value", "00080008=DERIVED\\PRIMARY;-00100020;00100030"},
      {"condition that can not be told",
       "-00080008;-00100020",
       {{kImageType, 0, kMissing}},
       {},
       {{kBirthDate, 0, kUntold}}},
      {"no condition, unknown condition",
       "00100040=F;00101030=70",
       {},
       {},
       {{kSex, 0, VX_NO_CONDITION_FUNCTION}, {kSex, 0, kUntold}, {0x00101030, 0, kUntold}}},
      {"not of the service; without a value nobody minds",
       "00080030=101112;00080020",
       {},
       {{0x00080030, 0, kForeign}}},
      {"VR not known",
       "00211234#ab;00201234#ab",
       {{0x00201234, 0, VX_INVALID_VR_CODE}},
       {{0x00201234, 0, kForeign}}},
      {"group 0 and 2 are let alone", "00020010=not a UID"},
  });
}

TEST_F(Engine, ValuesOfAttributes) {
  check({
      {"too few", "00280030=1", {{kSpacing, 0, VX_TOO_FEW_VALUES}}},
      {"too many",
       "00280030=1\\2\\3;00080060=CT\\CT",
       {{kModality, 0, VX_TOO_MANY_VALUES}, {kSpacing, 0, VX_TOO_MANY_VALUES}}},
      {"type 2 null may be few", "00200032="},
      {"breaks its VR",
       "00200032=1\\x\\12345678901234567;00100030=19701301",
       {{kBirthDate, 1, VX_INVALID_VALUE_FOR_VR},
        {kPosition, 2, kBadChars},
        {kPosition, 3, VX_INVALID_VALUE_FOR_VR}}},
      {"enumerated, also when it breaks its VR",
       "00080060=ct",
       {{kModality, 1, kBadChars}, {kModality, 1, kNotListed}}},
      {"blanks do not count", "00080060= CT  "},
      {"a list for each value",
       "00080005=ISO_IR 6\\ISO_IR 101",
       {},
       {{0x00080005, 2, VX_NOT_ONE_OF_DEFINED_TERMS}}},
      {"lists by value number: the last entry tells the kind, the fourth value is free",
       "00080008=ORIGINAL\\AXIAL\\PRIMARY\\ANYTHING",
       {{kImageType, 2, kNotListed}, {kImageType, 3, kNotListed}}},
      {"numbers", "00280100=12", {{kBits, 1, kNotListed}}},
      {"repeating groups go by the first", "60000010=1;60020010=3;601E0010=2", {{0x60020010, 1, kNotListed}}},
  });
  const int32_t id = complete();
  VX_Add_Private_Block(id, "ACME 1.0", 0x0009);
  VX_Set_pValue_From_String(id, "ACME 1.0", 0x0009, 1, "good");
  VX_Add_Private_Attribute(id, "ACME 1.0", 0x0009, 0x10, VX_VR_DA);
  VX_Set_pValue_From_String(id, "ACME 1.0", 0x0009, 0x10, "20261301");
  for (const ValidationLevel level : {VX_Errors_Only, VX_All_Findings}) {
    EXPECT_EQ(validate(id, level), (Findings{{0x00091010, 1, VX_INVALID_VALUE_FOR_VR}}));
  }
}

TEST_F(Engine, NullOptionalValuesAsConfigured) {
  const struct {
    const char* setting;
    std::size_t errors, warnings, all;
  } rows[] = {{"ERR", 1, 1, 1}, {"WARN", 0, 1, 1}, {"INFO", 0, 0, 1}, {"", 1, 1, 1}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.setting);
    set_text(VX_CFG_NULL_TYPE3_VALIDATION, row.setting);
    const int32_t id = complete("00280030=");
    EXPECT_EQ(validate(id, VX_Errors_Only).size(), row.errors);
    EXPECT_EQ(validate(id, VX_Errors_And_Warnings).size(), row.warnings);
    EXPECT_EQ(validate(id, VX_All_Findings).size(), row.all);
  }
}

TEST_F(Engine, Sequences) {
  check({
      {"missing inside", "00081140/-00081155", {{0x00081155, 0, kMissing}}},
      {"a bad value inside, and one the item does not have",
       "00081140/00081150=1.2.x;00081140/00080060=CT",
       {{0x00081150, 1, kBadChars}},
       {{kModality, 0, kForeign}}},
      {"an item without anything in it", "00081140*1"},
      {"an item of another type",
       "00081140*PATIENT;00081140/00100020=1",
       {{kReferenced, 2, VX_NOT_ONE_OF_DEFINED_TERMS}}},
      {"a sequence without rules: items with a type are looked at",
       "0040A730*1;0040A730*REF_IMAGE",
       {{0x00081150, 0, kNoValue}, {0x00081155, 0, kNoValue}},
       {{0x0040A730, 0, kForeign}}},
      {"no items", "00081140", {{kReferenced, 0, kNoValue}}},
  });
}

TEST_F(Engine, FindingsOfItemsNameTheItem) {
  const int32_t id = complete("00081140/00081150=bad;00080060=MR");
  const int32_t item = last_item(id, kReferenced);
  ValErrObj* finding = nullptr;
  ASSERT_EQ(VX_Validate_Message(id, &finding, VX_Errors_Only), VX_DOES_NOT_VALIDATE);
  EXPECT_EQ(finding->Tag, kModality);
  EXPECT_EQ(finding->MsgItemID, id);
  ASSERT_EQ(VX_Get_Next_Validate_Error(id, &finding), kOk);
  EXPECT_EQ(finding->Tag, 0x00081150U);
  EXPECT_EQ(finding->MsgItemID, item);
  // The item has no list of its own until it is asked for.
  EXPECT_EQ(VX_Get_Next_Validate_Error(item, &finding), VX_END_OF_LIST);
  EXPECT_EQ(validate(item, VX_Errors_Only), (Findings{{0x00081150, 1, kBadChars}}));
  // An item that comes in after a validation takes its type as the first one did.
  edit(id, "00081140*1;00081140/00081150=1.2");
  EXPECT_EQ(validate(id, VX_Errors_Only),
            (Findings{{kModality, 1, kNotListed}, {0x00081150, 1, kBadChars}, {0x00081155, 0, kMissing}}));
}

TEST_F(Engine, OneAttribute) {
  const int32_t id = complete("00080060=MR;00081140/00081150=bad;-00280100");
  EXPECT_EQ(validate_attribute(id, kPatientId), Findings{});
  EXPECT_EQ(validate_attribute(id, kModality), (Findings{{kModality, 1, kNotListed}}));
  EXPECT_EQ(validate_attribute(id, kReferenced), (Findings{{0x00081150, 1, kBadChars}}));
  EXPECT_EQ(validate_attribute(id, kBits), (Findings{{kBits, 0, kNoValue}}));
  // A repeating group takes after its base, there or not.
  edit(id, "60000010=1;60020010=7");
  EXPECT_EQ(validate_attribute(id, 0x60020010), (Findings{{0x60020010, 1, kNotListed}}));
  EXPECT_EQ(validate_attribute(id, 0x60040010), Findings{});

  ValErrObj* finding = nullptr;
  for (const uint32_t tag : {0x00101234U, 0x00020010U, 0x00000002U}) {
    EXPECT_EQ(VX_Validate_Attribute(id, tag, &finding, VX_Errors_Only), VX_INVALID_TAG) << tag;
  }
  int32_t opened = -1;
  ASSERT_EQ(VX_Open_Message(&opened, "STANDARD_CT", C_STORE_RQ), kOk);
  EXPECT_EQ(VX_Validate_Attribute(opened, 0x00080030, &finding, VX_Errors_Only), VX_INVALID_TAG);
  EXPECT_EQ(validate_attribute(opened, kModality), (Findings{{kModality, 0, kNoValue}}));
}

// What a template asks for is missing in an empty object, and without a value in one that was opened with it.
TEST_F(Engine, EmptyObjects) {
  int32_t opened = -1;
  ASSERT_EQ(VX_Open_Message(&opened, "STANDARD_CT", C_STORE_RQ), kOk);
  Findings missing, without;
  for (const uint32_t tag : {kImageType, kSopClass, kModality, kReferring, kReferenced, kPosition, kBits}) {
    missing.emplace_back(tag, 0, kMissing);
    without.emplace_back(tag, 0, kNoValue);
  }
  EXPECT_EQ(validate(message(""), VX_All_Findings), missing);
  EXPECT_EQ(validate(opened, VX_Errors_Only), without);
}

TEST_F(Engine, WhatCanNotBeValidated) {
  ValErrObj one{};
  ValErrObj* finding = &one;
  EXPECT_EQ(VX_Validate_Message(-1, &finding, VX_Errors_Only), VX_INVALID_MESSAGE_ID);
  EXPECT_EQ(finding, nullptr);
  EXPECT_EQ(VX_Validate_Message(-1, nullptr, VX_Errors_Only), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Get_Next_Validate_Error(-1, &finding), VX_INVALID_MESSAGE_ID);
  int32_t blank = -1, item = -1, file = -1;
  ASSERT_EQ(VX_Open_Empty_Message(&blank), kOk);
  ASSERT_EQ(VX_Open_Empty_Item(&item), kOk);
  ASSERT_EQ(VX_Create_Empty_File(&file, "x"), kOk);
  const struct {
    int32_t id;
    const char* log;
  } rows[] = {{blank, "Unable to validate, no service and command for message object."},
              {item, "Unable to validate, no item type for object."},
              {file, "Unable to validate, no service and command for file object."}};
  for (const auto& row : rows) {
    EXPECT_EQ(VX_Validate_File(row.id, &finding, VX_Errors_Only), VX_MSGFILE_ERROR);
    EXPECT_EQ(VX_Get_Next_Validate_Error(row.id, &finding), VX_END_OF_LIST);
    EXPECT_TRUE(has_log(row.log)) << row.log;
  }
  // A command without a data set needs no template, a service without one can not do.
  set_text(VX_CFG_MSG_INFO_FILE, folder().path("none.msg"));
  ASSERT_EQ(VX_Set_Service_Command(blank, "STANDARD_CT", C_STORE_RSP), kOk);
  EXPECT_EQ(validate(blank, VX_All_Findings), Findings{});
  ASSERT_EQ(VX_Set_Service_Command(file, "STANDARD_MR", C_STORE_RQ), kOk);
  EXPECT_EQ(VX_Validate_File(file, &finding, VX_Errors_Only), VX_MSGFILE_ERROR);
  VX_Library_Release();
  EXPECT_EQ(VX_Validate_Message(blank, &finding, VX_Errors_Only), VX_LIBRARY_NOT_INITIALIZED);
}

TEST_F(Engine, FindingsAreLogged) {
  ASSERT_EQ(VX_Set_Log_Destination(VX_CFG_T5_MESSAGE, VX_LOG_TO_MEMORY), kOk);
  const int32_t id = complete(
      "00080060=MR;00080030=101112;"
      "00081030=a text of more than thirty characters that also is longer than the sixty-four of LO");
  clear_log();
  validate(id, VX_Errors_Only);
  EXPECT_TRUE(has_log(std::string("(0008,0060) VE: [MR] ") + VX_Error_Message(kNotListed)));
  EXPECT_TRUE(has_log("(0008,1030) VE: [a text of more than thirty cha] "));
  EXPECT_FALSE(has_log("(0008,0030)"));
  validate(id, VX_All_Findings);
  EXPECT_TRUE(has_log(std::string("(0008,0030) VW: ") + VX_Error_Message(kForeign)));
}

// The cursor of a value stays where the program left it.
TEST_F(Engine, ReadingGoesOnBehindAValidation) {
  const int32_t id = complete("00200032=1\\x\\3");
  char text[16] = "";
  ASSERT_EQ(VX_Get_Value_To_String(id, kPosition, sizeof text, text), kOk);
  ASSERT_EQ(VX_Set_Log_Destination(VX_CFG_T5_MESSAGE, VX_LOG_TO_MEMORY), kOk);
  EXPECT_EQ(validate(id, VX_Errors_Only).size(), 1U);
  ASSERT_EQ(VX_Get_Next_Value_To_String(id, kPosition, sizeof text, text), kOk);
  EXPECT_STREQ(text, "x");
}

TEST_F(Engine, FindingsAreFreed) {
  validate(complete(), VX_Errors_Only);  // reads the templates
  const uint64_t before = support::memory().used();
  int32_t id = complete("00080060=MR;00081140/00081150=bad");
  validate(id, VX_All_Findings);
  const uint64_t once = support::memory().used();
  for (int i = 0; i < 100; ++i) validate(id, VX_All_Findings);
  EXPECT_EQ(support::memory().used(), once);
  VX_Free_Message(&id);
  EXPECT_EQ(support::memory().used(), before);
}

// Memory that runs out at any point leaves the findings so far, and a later validation is whole again.
TEST_F(Engine, WithoutMemory) {
  int failures = 0;
  for (uint64_t allocation = 1;; ++allocation) {
    ASSERT_LT(allocation, 1000U);
    int32_t id = complete("00080060=MR;-00280100");
    vx::model_drop();
    ValErrObj* finding = nullptr;
    vx::fail_allocation_after(allocation);
    const VX_STATUS status = VX_Validate_Message(id, &finding, VX_Errors_Only);
    vx::fail_allocation_after(0);
    if (status == VX_DOES_NOT_VALIDATE) break;
    ++failures;
    ASSERT_EQ(status, VX_SYSTEM_ERROR) << allocation;
    ASSERT_EQ(finding, nullptr);
    while (VX_Get_Next_Validate_Error(id, &finding) == kOk) ASSERT_NE(finding, nullptr);
    ASSERT_EQ(validate(id, VX_Errors_Only).size(), 2U) << allocation;
    VX_Free_Message(&id);
  }
  EXPECT_GT(failures, 50);
}

// A place tells what its condition demands and what holds without it; rules of its own look around the
// object.
TEST_F(Engine, RulesStandAtThePlace) {
  Body body;
  body.add(kImageType, "3");
  body.add(kReferenced, "3", "SQ").with(1, "REF_IMAGE");
  body.add(kPatientId, "1C").with(2001, "00080060 is CT").with(2002, "may");
  body.add(kBirthDate, "2C").with(2001, "00081140>00081150 present & 00080008! is DERIVED");
  body.add(kSex, "1C").with(2001, "00081140>own absent");
  Body reference;
  reference.add(0x00081150, "1C").with(2001, "^00080060 is CT");
  reference.add(0x00081155, "1C").with(2001, "~00080060? is MR | ^^00080060 absent");
  InfoBuilder builder;
  builder.service(2, C_STORE_RQ, body).item(501, reference);
  vx::model_drop();
  set_text(VX_CFG_MSG_INFO_FILE, folder().write("rules.msg", builder.bytes()));
  const struct {
    const char* name;
    const char* steps;
    Findings errors;
  } rows[] = {
      {"nothing asked", "", {{kSex, 0, kMissing}}},
      {"may be there", "00100020=A;00100040=M", {}},
      {"but not be null", "00100040=M;00100020=", {{kPatientId, 0, kNull}}},
      {"asked for, in the item too",
       "00080060=CT;00100040=M",
       {{0x00081150, 0, kMissing}, {kPatientId, 0, kMissing}}},
      {"what the message says", "00080060=MR;00100040=M", {{0x00081155, 0, kMissing}}},
      {"forbidden by the item", "00100040=M;00081140/00100040=M", {{kSex, 0, kForbidden}}},
      {"open where a clause fails",
       "00080060=CT;00100020=A;00100040=M;00081140/00081150=1.2;00080008=ORIGINAL\\PRIMARY;00100030=20000101",
       {}},
  };
  for (const auto& row : rows) {
    const int32_t id = message("00081140*1;00081140/00080060=OT");  // a blank item would be passed over
    edit(id, row.steps);
    EXPECT_EQ(validate(id, VX_Errors_Only), row.errors) << row.name;
  }
}

}  // namespace
