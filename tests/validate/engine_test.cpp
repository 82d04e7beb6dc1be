// The validation as a program sees it: findings of small objects against a small template.
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "frame/pool.h"
#include "frame/seams.h"
#include "info_file.h"
#include "support.h"

namespace {

using support::Body;
using support::InfoBuilder;

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

// Tag, value number, status.
using Found = std::tuple<uint32_t, int32_t, VX_STATUS>;
using Findings = std::vector<Found>;

struct Case {
  const char* name;
  std::function<void(int32_t)> edit;
  Findings errors;
  Findings warnings;  // those of the errors left out, in the order of the walk behind them
  Findings remarks;
};

void set(int32_t id, uint32_t tag, const char* value) {
  VX_Set_Value_From_String(id, tag, value);  // refused values are stored all the same
}
void add(int32_t id, uint32_t tag, const char* value) {
  VX_Set_Next_Value_From_String(id, tag, value);
}
int32_t add_item(int32_t id, uint32_t tag, const char* name) {
  int32_t item = -1;
  EXPECT_EQ(name == nullptr ? VX_Open_Empty_Item(&item) : VX_Open_Item(&item, name), kOk);
  EXPECT_EQ(VX_Set_Next_Value_From_Int(id, tag, item), kOk);
  return item;
}

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

  // An object that validates.
  static int32_t complete() {
    int32_t id = -1;
    EXPECT_EQ(VX_Open_Empty_Message(&id), kOk);
    EXPECT_EQ(VX_Set_Service_Command(id, "STANDARD_CT", C_STORE_RQ), kOk);
    set(id, kImageType, "ORIGINAL");
    add(id, kImageType, "PRIMARY");
    add(id, kImageType, "AXIAL");
    set(id, kSopClass, "1.2.840.10008.5.1.4.1.1.2");
    set(id, kModality, "CT");
    set(id, kReferring, "Doe^Jane");
    const int32_t item = add_item(id, kReferenced, nullptr);
    set(item, 0x00081150, "1.2.3");
    set(item, 0x00081155, "1.2.4");
    set(id, kPatientId, "A1");
    set(id, kBirthDate, "19700131");
    set(id, kPosition, "1");
    add(id, kPosition, "2");
    add(id, kPosition, "3");
    EXPECT_EQ(VX_Set_Value_From_Int(id, kBits, 16), kOk);
    return id;
  }
  static int32_t first_item(int32_t id, uint32_t tag) {
    int32_t item = -1;
    EXPECT_EQ(VX_Get_Value_To_Int(id, tag, &item), kOk);
    return item;
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
  static void check(const Case& row) {
    SCOPED_TRACE(row.name);
    int32_t id = complete();
    row.edit(id);
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
  const Case rows[] = {
      {"complete", [](int32_t) {}, {}, {}, {}},
      {"type 1 missing",
       [](int32_t id) { VX_Delete_Attribute(id, kModality); },
       {{kModality, 0, VX_REQUIRED_ATTRIBUTE_MISSING}},
       {},
       {}},
      {"type 1 at the end missing",
       [](int32_t id) { VX_Delete_Attribute(id, kBits); },
       {{kBits, 0, VX_REQUIRED_ATTRIBUTE_MISSING}},
       {},
       {}},
      {"type 1 null",
       [](int32_t id) { VX_Set_Value_To_NULL(id, kModality); },
       {{kModality, 0, VX_VALUE_MAY_NOT_BE_NULL}},
       {},
       {}},
      {"type 1 without a value",
       [](int32_t id) { VX_Set_Value_To_Empty(id, kModality); },
       {{kModality, 0, VX_REQUIRED_VALUE_MISSING}},
       {},
       {}},
      {"type 2 missing",
       [](int32_t id) { VX_Delete_Attribute(id, kReferring); },
       {{kReferring, 0, VX_REQUIRED_ATTRIBUTE_MISSING}},
       {},
       {}},
      {"type 2 null", [](int32_t id) { VX_Set_Value_To_NULL(id, kReferring); }, {}, {}, {}},
      {"type 2 without a value",
       [](int32_t id) { VX_Set_Value_To_Empty(id, kReferring); },
       {{kReferring, 0, VX_REQUIRED_VALUE_MISSING}},
       {},
       {}},
      {"1C that holds, missing; 2C null",
       [](int32_t id) {
         VX_Delete_Attribute(id, kPatientId);
         VX_Set_Value_To_NULL(id, kBirthDate);
       },
       {{kPatientId, 0, VX_REQUIRED_ATTRIBUTE_MISSING}},
       {},
       {}},
      {"1C that holds, null; 2C without a value",
       [](int32_t id) {
         VX_Set_Value_To_NULL(id, kPatientId);
         VX_Set_Value_To_Empty(id, kBirthDate);
       },
       {{kPatientId, 0, VX_VALUE_MAY_NOT_BE_NULL}, {kBirthDate, 0, VX_REQUIRED_VALUE_MISSING}},
       {},
       {}},
      {"forbidden, with a value and with a null one",
       [](int32_t id) {
         set(id, kImageType, "DERIVED");
         add(id, kImageType, "PRIMARY");
         VX_Set_Value_To_NULL(id, kBirthDate);
       },
       {{kPatientId, 0, VX_VALUE_NOT_ALLOWED}, {kBirthDate, 0, VX_VALUE_NOT_ALLOWED}},
       {},
       {}},
      {"forbidden, absent or without a value",
       [](int32_t id) {
         set(id, kImageType, "DERIVED");
         add(id, kImageType, "PRIMARY");
         VX_Delete_Attribute(id, kPatientId);
         VX_Set_Value_To_Empty(id, kBirthDate);
       },
       {},
       {},
       {}},
      {"condition that can not be told",
       [](int32_t id) {
         VX_Delete_Attribute(id, kImageType);
         VX_Delete_Attribute(id, kPatientId);
       },
       {{kImageType, 0, VX_REQUIRED_ATTRIBUTE_MISSING}},
       {},
       {{kBirthDate, 0, VX_UNABLE_TO_CHECK_CONDITION}}},
      {"no condition, unknown condition",
       [](int32_t id) {
         set(id, kSex, "F");
         set(id, 0x00101030, "70");
       },
       {},
       {},
       {{kSex, 0, VX_NO_CONDITION_FUNCTION},
        {kSex, 0, VX_UNABLE_TO_CHECK_CONDITION},
        {0x00101030, 0, VX_UNABLE_TO_CHECK_CONDITION}}},
      {"not of the service",
       [](int32_t id) {
         set(id, 0x00080030, "101112");
         VX_Add_Standard_Attribute(id, 0x00080020);  // without a value nobody minds
       },
       {},
       {{0x00080030, 0, VX_NON_SERVICE_ATTRIBUTE}},
       {}},
      {"VR not known",
       [](int32_t id) {
         VX_Add_Nonstandard_Attribute(id, 0x00211234, VX_VR_UN);
         VX_Set_Value_From_Buffer(id, 0x00211234, "ab", 2);
         VX_Add_Nonstandard_Attribute(id, 0x00201234, VX_VR_UN);
         VX_Set_Value_From_Buffer(id, 0x00201234, "ab", 2);
       },
       {{0x00201234, 0, VX_INVALID_VR_CODE}},
       {{0x00201234, 0, VX_NON_SERVICE_ATTRIBUTE}},
       {}},
      {"group 0 and 2 are let alone", [](int32_t id) { set(id, 0x00020010, "not a UID"); }, {}, {}, {}},
  };
  for (const Case& row : rows) check(row);
}

TEST_F(Engine, ValuesOfAttributes) {
  const Case rows[] = {
      {"too few", [](int32_t id) { set(id, kSpacing, "1"); }, {{kSpacing, 0, VX_TOO_FEW_VALUES}}, {}, {}},
      {"too many",
       [](int32_t id) {
         set(id, kSpacing, "1");
         add(id, kSpacing, "2");
         add(id, kSpacing, "3");
         add(id, kModality, "CT");
       },
       {{kModality, 0, VX_TOO_MANY_VALUES}, {kSpacing, 0, VX_TOO_MANY_VALUES}},
       {},
       {}},
      {"type 2 null may be few", [](int32_t id) { VX_Set_Value_To_NULL(id, kPosition); }, {}, {}, {}},
      {"breaks its VR",
       [](int32_t id) {
         set(id, kPosition, "1");
         add(id, kPosition, "x");
         add(id, kPosition, "12345678901234567");
         set(id, kBirthDate, "19701301");
       },
       {{kBirthDate, 1, VX_INVALID_VALUE_FOR_VR},
        {kPosition, 2, VX_INVALID_CHARS_IN_VALUE},
        {kPosition, 3, VX_INVALID_VALUE_FOR_VR}},
       {},
       {}},
      {"enumerated, also when it breaks its VR",
       [](int32_t id) { set(id, kModality, "ct"); },
       {{kModality, 1, VX_INVALID_CHARS_IN_VALUE}, {kModality, 1, VX_NOT_ONE_OF_ENUMERATED_VALUES}},
       {},
       {}},
      {"blanks do not count", [](int32_t id) { set(id, kModality, " CT  "); }, {}, {}, {}},
      {"a list for each value",
       [](int32_t id) {
         set(id, 0x00080005, "ISO_IR 6");
         add(id, 0x00080005, "ISO_IR 101");
       },
       {},
       {{0x00080005, 2, VX_NOT_ONE_OF_DEFINED_TERMS}},
       {}},
      {"lists by value number: the last entry tells the kind, the fourth value is free",
       [](int32_t id) {
         set(id, kImageType, "ORIGINAL");
         add(id, kImageType, "AXIAL");
         add(id, kImageType, "PRIMARY");
         add(id, kImageType, "ANYTHING");
       },
       {{kImageType, 2, VX_NOT_ONE_OF_ENUMERATED_VALUES}, {kImageType, 3, VX_NOT_ONE_OF_ENUMERATED_VALUES}},
       {},
       {}},
      {"numbers",
       [](int32_t id) { VX_Set_Value_From_Int(id, kBits, 12); },
       {{kBits, 1, VX_NOT_ONE_OF_ENUMERATED_VALUES}},
       {},
       {}},
      {"repeating groups go by the first",
       [](int32_t id) {
         VX_Set_Value_From_Int(id, 0x60000010, 1);
         VX_Set_Value_From_Int(id, 0x60020010, 3);
         VX_Set_Value_From_Int(id, 0x601E0010, 2);
       },
       {{0x60020010, 1, VX_NOT_ONE_OF_ENUMERATED_VALUES}},
       {},
       {}},
      {"private text",
       [](int32_t id) {
         VX_Add_Private_Block(id, "ACME 1.0", 0x0009);
         VX_Set_pValue_From_String(id, "ACME 1.0", 0x0009, 1, "good");
         VX_Add_Private_Attribute(id, "ACME 1.0", 0x0009, 0x10, VX_VR_DA);
         VX_Set_pValue_From_String(id, "ACME 1.0", 0x0009, 0x10, "20261301");
       },
       {{0x00091010, 1, VX_INVALID_VALUE_FOR_VR}},
       {},
       {}},
  };
  for (const Case& row : rows) check(row);
}

TEST_F(Engine, NullOptionalValuesAsConfigured) {
  const struct {
    const char* setting;
    std::size_t errors, warnings, all;
  } rows[] = {{"ERR", 1, 1, 1}, {"WARN", 0, 1, 1}, {"INFO", 0, 0, 1}, {"", 1, 1, 1}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.setting);
    set_text(VX_CFG_NULL_TYPE3_VALIDATION, row.setting);
    int32_t id = complete();
    ASSERT_EQ(VX_Add_Standard_Attribute(id, kSpacing), kOk);
    ASSERT_EQ(VX_Set_Value_To_NULL(id, kSpacing), kOk);
    EXPECT_EQ(validate(id, VX_Errors_Only).size(), row.errors);
    EXPECT_EQ(validate(id, VX_Errors_And_Warnings).size(), row.warnings);
    EXPECT_EQ(validate(id, VX_All_Findings).size(), row.all);
    VX_Free_Message(&id);
  }
}

TEST_F(Engine, Sequences) {
  const Case rows[] = {
      {"missing inside",
       [](int32_t id) { VX_Delete_Attribute(first_item(id, kReferenced), 0x00081155); },
       {{0x00081155, 0, VX_REQUIRED_ATTRIBUTE_MISSING}},
       {},
       {}},
      {"a bad value inside, and one the item does not have",
       [](int32_t id) {
         const int32_t item = first_item(id, kReferenced);
         set(item, 0x00081150, "1.2.x");
         set(item, kModality, "CT");
       },
       {{0x00081150, 1, VX_INVALID_CHARS_IN_VALUE}},
       {{kModality, 0, VX_NON_SERVICE_ATTRIBUTE}},
       {}},
      {"an item without anything in it", [](int32_t id) { add_item(id, kReferenced, nullptr); }, {}, {}, {}},
      {"an item of another type",
       [](int32_t id) { set(add_item(id, kReferenced, "PATIENT"), kPatientId, "1"); },
       {{kReferenced, 2, VX_NOT_ONE_OF_DEFINED_TERMS}},
       {},
       {}},
      {"a sequence without rules: items with a type are looked at",
       [](int32_t id) {
         ASSERT_EQ(VX_Add_Standard_Attribute(id, 0x0040A730), kOk);
         add_item(id, 0x0040A730, nullptr);
         add_item(id, 0x0040A730, "REF_IMAGE");
       },
       {{0x00081150, 0, VX_REQUIRED_VALUE_MISSING}, {0x00081155, 0, VX_REQUIRED_VALUE_MISSING}},
       {{0x0040A730, 0, VX_NON_SERVICE_ATTRIBUTE}},
       {}},
      {"no items",
       [](int32_t id) { VX_Set_Value_To_Empty(id, kReferenced); },
       {{kReferenced, 0, VX_REQUIRED_VALUE_MISSING}},
       {},
       {}},
  };
  for (const Case& row : rows) check(row);
}

TEST_F(Engine, FindingsOfItemsNameTheItem) {
  int32_t id = complete();
  const int32_t item = first_item(id, kReferenced);
  set(item, 0x00081150, "bad");
  set(id, kModality, "MR");
  ValErrObj* finding = nullptr;
  ASSERT_EQ(VX_Validate_Message(id, &finding, VX_Errors_Only), VX_DOES_NOT_VALIDATE);
  EXPECT_EQ(finding->Tag, kModality);
  EXPECT_EQ(finding->MsgItemID, id);
  ASSERT_EQ(VX_Get_Next_Validate_Error(id, &finding), kOk);
  EXPECT_EQ(finding->Tag, 0x00081150U);
  EXPECT_EQ(finding->MsgItemID, item);
  // The item has no list of its own until it is asked for.
  EXPECT_EQ(VX_Get_Next_Validate_Error(item, &finding), VX_END_OF_LIST);
  EXPECT_EQ(validate(item, VX_Errors_Only), (Findings{{0x00081150, 1, VX_INVALID_CHARS_IN_VALUE}}));
  // An item that comes in after a validation takes its type as the first one did.
  set(add_item(id, kReferenced, nullptr), 0x00081150, "1.2");
  EXPECT_EQ(validate(id, VX_Errors_Only), (Findings{{kModality, 1, VX_NOT_ONE_OF_ENUMERATED_VALUES},
                                                    {0x00081150, 1, VX_INVALID_CHARS_IN_VALUE},
                                                    {0x00081155, 0, VX_REQUIRED_ATTRIBUTE_MISSING}}));
}

TEST_F(Engine, OneAttribute) {
  int32_t id = complete();
  set(id, kModality, "MR");
  set(first_item(id, kReferenced), 0x00081150, "bad");
  VX_Delete_Attribute(id, kBits);
  EXPECT_EQ(validate_attribute(id, kPatientId), Findings{});
  EXPECT_EQ(validate_attribute(id, kModality), (Findings{{kModality, 1, VX_NOT_ONE_OF_ENUMERATED_VALUES}}));
  EXPECT_EQ(validate_attribute(id, kReferenced), (Findings{{0x00081150, 1, VX_INVALID_CHARS_IN_VALUE}}));
  EXPECT_EQ(validate_attribute(id, kBits), (Findings{{kBits, 0, VX_REQUIRED_VALUE_MISSING}}));
  // A repeating group takes after its base, there or not.
  ASSERT_EQ(VX_Set_Value_From_Int(id, 0x60000010, 1), kOk);
  ASSERT_EQ(VX_Set_Value_From_Int(id, 0x60020010, 7), kOk);
  EXPECT_EQ(validate_attribute(id, 0x60020010), (Findings{{0x60020010, 1, VX_NOT_ONE_OF_ENUMERATED_VALUES}}));
  EXPECT_EQ(validate_attribute(id, 0x60040010), Findings{});

  ValErrObj* finding = nullptr;
  for (const uint32_t tag : {0x00101234U, 0x00020010U, 0x00000002U}) {
    EXPECT_EQ(VX_Validate_Attribute(id, tag, &finding, VX_Errors_Only), VX_INVALID_TAG) << tag;
  }
  int32_t opened = -1;
  ASSERT_EQ(VX_Open_Message(&opened, "STANDARD_CT", C_STORE_RQ), kOk);
  EXPECT_EQ(VX_Validate_Attribute(opened, 0x00080030, &finding, VX_Errors_Only), VX_INVALID_TAG);
  EXPECT_EQ(validate_attribute(opened, kModality), (Findings{{kModality, 0, VX_REQUIRED_VALUE_MISSING}}));
}

// What a template asks for is missing in an empty object, and without a value in one that was opened with it.
TEST_F(Engine, EmptyObjects) {
  int32_t id = -1;
  ASSERT_EQ(VX_Open_Empty_Message(&id), kOk);
  ASSERT_EQ(VX_Set_Service_Command(id, "STANDARD_CT", C_STORE_RQ), kOk);
  int32_t opened = -1;
  ASSERT_EQ(VX_Open_Message(&opened, "STANDARD_CT", C_STORE_RQ), kOk);
  Findings missing;
  Findings without;
  for (const uint32_t tag : {kImageType, kSopClass, kModality, kReferring, kReferenced, kPosition, kBits}) {
    missing.emplace_back(tag, 0, VX_REQUIRED_ATTRIBUTE_MISSING);
    without.emplace_back(tag, 0, VX_REQUIRED_VALUE_MISSING);
  }
  EXPECT_EQ(validate(id, VX_All_Findings), missing);
  EXPECT_EQ(validate(opened, VX_Errors_Only), without);
}

TEST_F(Engine, WhatCanNotBeValidated) {
  ValErrObj one{};
  ValErrObj* finding = &one;
  EXPECT_EQ(VX_Validate_Message(-1, &finding, VX_Errors_Only), VX_INVALID_MESSAGE_ID);
  EXPECT_EQ(finding, nullptr);
  EXPECT_EQ(VX_Validate_Message(-1, nullptr, VX_Errors_Only), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Get_Next_Validate_Error(-1, &finding), VX_INVALID_MESSAGE_ID);
  int32_t message = -1;
  int32_t item = -1;
  int32_t file = -1;
  ASSERT_EQ(VX_Open_Empty_Message(&message), kOk);
  ASSERT_EQ(VX_Open_Empty_Item(&item), kOk);
  ASSERT_EQ(VX_Create_Empty_File(&file, "x"), kOk);
  const struct {
    int32_t id;
    const char* log;
  } rows[] = {{message, "Unable to validate, no service and command for message object."},
              {item, "Unable to validate, no item type for object."},
              {file, "Unable to validate, no service and command for file object."}};
  for (const auto& row : rows) {
    EXPECT_EQ(VX_Validate_File(row.id, &finding, VX_Errors_Only), VX_MSGFILE_ERROR);
    EXPECT_EQ(VX_Get_Next_Validate_Error(row.id, &finding), VX_END_OF_LIST);
    EXPECT_TRUE(has_log(row.log)) << row.log;
  }
  // A command without a data set needs no template, a service without one can not do.
  set_text(VX_CFG_MSG_INFO_FILE, folder().path("none.msg"));
  ASSERT_EQ(VX_Set_Service_Command(message, "STANDARD_CT", C_STORE_RSP), kOk);
  EXPECT_EQ(validate(message, VX_All_Findings), Findings{});
  ASSERT_EQ(VX_Set_Service_Command(file, "STANDARD_MR", C_STORE_RQ), kOk);
  EXPECT_EQ(VX_Validate_File(file, &finding, VX_Errors_Only), VX_MSGFILE_ERROR);
  VX_Library_Release();
  EXPECT_EQ(VX_Validate_Message(message, &finding, VX_Errors_Only), VX_LIBRARY_NOT_INITIALIZED);
}

TEST_F(Engine, FindingsAreLogged) {
  ASSERT_EQ(VX_Set_Log_Destination(VX_CFG_T5_MESSAGE, VX_LOG_TO_MEMORY), kOk);
  int32_t id = complete();
  set(id, kModality, "MR");
  set(id, 0x00081030, "a text of more than thirty characters that also is longer than the sixty-four of LO");
  set(id, 0x00080030, "101112");
  clear_log();
  validate(id, VX_Errors_Only);
  EXPECT_TRUE(
      has_log(std::string("(0008,0060) VE: [MR] ") + VX_Error_Message(VX_NOT_ONE_OF_ENUMERATED_VALUES)));
  EXPECT_TRUE(has_log("(0008,1030) VE: [a text of more than thirty cha] "));
  EXPECT_FALSE(has_log("(0008,0030)"));
  validate(id, VX_All_Findings);
  EXPECT_TRUE(has_log(std::string("(0008,0030) VW: ") + VX_Error_Message(VX_NON_SERVICE_ATTRIBUTE)));
}

// The cursor of a value stays where the program left it.
TEST_F(Engine, ReadingGoesOnBehindAValidation) {
  int32_t id = complete();
  set(id, kPosition, "1");
  add(id, kPosition, "x");
  add(id, kPosition, "3");
  char text[16] = "";
  ASSERT_EQ(VX_Get_Value_To_String(id, kPosition, sizeof text, text), kOk);
  ASSERT_EQ(VX_Set_Log_Destination(VX_CFG_T5_MESSAGE, VX_LOG_TO_MEMORY), kOk);
  EXPECT_EQ(validate(id, VX_Errors_Only).size(), 1U);
  ASSERT_EQ(VX_Get_Next_Value_To_String(id, kPosition, sizeof text, text), kOk);
  EXPECT_STREQ(text, "x");
}

TEST_F(Engine, FindingsAreFreed) {
  const auto used = [] {
    uint64_t total = 0;
    uint64_t free_bytes = 0;
    vx::report_memory(total, free_bytes);
    return total - free_bytes;
  };
  validate(complete(), VX_Errors_Only);  // reads the templates
  const uint64_t before = used();
  int32_t id = complete();
  set(id, kModality, "MR");
  set(first_item(id, kReferenced), 0x00081150, "bad");
  validate(id, VX_All_Findings);
  const uint64_t once = used();
  for (int i = 0; i < 100; ++i) validate(id, VX_All_Findings);
  EXPECT_EQ(used(), once);
  VX_Free_Message(&id);
  EXPECT_EQ(used(), before);
}

// Memory that runs out at any point leaves the findings so far, and a later validation is whole again.
TEST_F(Engine, WithoutMemory) {
  int failures = 0;
  for (uint64_t allocation = 1;; ++allocation) {
    ASSERT_LT(allocation, 1000U);
    int32_t id = complete();
    set(id, kModality, "MR");
    VX_Delete_Attribute(id, kBits);
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
  Body message;
  message.add(kImageType, "3");
  message.add(kReferenced, "3", "SQ").with(1, "REF_IMAGE");
  message.add(kPatientId, "1C").with(2001, "00080060 is CT").with(2002, "may");
  message.add(kBirthDate, "2C").with(2001, "00081140>00081150 present & 00080008! is DERIVED");
  message.add(kSex, "1C").with(2001, "00081140>own absent");
  Body reference;
  reference.add(0x00081150, "1C").with(2001, "^00080060 is CT");
  reference.add(0x00081155, "1C").with(2001, "~00080060? is MR | ^^00080060 absent");
  InfoBuilder builder;
  builder.service(2, C_STORE_RQ, message).item(501, reference);
  vx::model_drop();
  set_text(VX_CFG_MSG_INFO_FILE, folder().write("rules.msg", builder.bytes()));
  const struct {
    const char* name;
    std::function<void(int32_t message, int32_t item)> edit;
    Findings errors;
  } rows[] = {
      {"nothing asked", [](int32_t, int32_t) {}, {{kSex, 0, VX_REQUIRED_ATTRIBUTE_MISSING}}},
      {"may be there", [](int32_t id, int32_t) { set(id, kPatientId, "A"), set(id, kSex, "M"); }, {}},
      {"but not be null",
       [](int32_t id, int32_t) { set(id, kSex, "M"), VX_Set_Value_To_NULL(id, kPatientId); },
       {{kPatientId, 0, VX_VALUE_MAY_NOT_BE_NULL}}},
      {"asked for, in the item too",
       [](int32_t id, int32_t) { set(id, kModality, "CT"), set(id, kSex, "M"); },
       {{0x00081150, 0, VX_REQUIRED_ATTRIBUTE_MISSING}, {kPatientId, 0, VX_REQUIRED_ATTRIBUTE_MISSING}}},
      {"what the message says",
       [](int32_t id, int32_t) { set(id, kModality, "MR"), set(id, kSex, "M"); },
       {{0x00081155, 0, VX_REQUIRED_ATTRIBUTE_MISSING}}},
      {"forbidden by the item",
       [](int32_t id, int32_t item) {
         set(id, kSex, "M");
         set(item, kSex, "M");
       },
       {{kSex, 0, VX_VALUE_NOT_ALLOWED}}},
      {"open where a clause fails",
       [](int32_t id, int32_t item) {
         set(id, kModality, "CT"), set(id, kPatientId, "A"), set(id, kSex, "M"), set(item, 0x00081150, "1.2");
         set(id, kImageType, "ORIGINAL"), add(id, kImageType, "PRIMARY"), set(id, kBirthDate, "20000101");
       },
       {}},
  };
  for (const auto& row : rows) {
    int32_t id = -1;
    VX_Open_Empty_Message(&id);
    VX_Set_Service_Command(id, "STANDARD_CT", C_STORE_RQ);
    const int32_t below = add_item(id, kReferenced, nullptr);
    set(below, kModality, "OT");  // a blank item would be passed over
    row.edit(id, below);
    EXPECT_EQ(validate(id, VX_Errors_Only), row.errors) << row.name;
    VX_Free_Message(&id);
  }
}

}  // namespace
