// Service lists: from the profile, and made at run time.
#include "association/service_lists.h"

#include "net/peers.h"

namespace vx::test {
namespace {

constexpr char kLists[] = R"(
[Full]
SERVICES_SUPPORTED = 3
MAX_OPERATIONS_INVOKED = 70000
max_operations_performed = 4
SERVICE_1 = STANDARD_CT
SYNTAX_LIST_1 = Two
ROLE_1 = both
EXT_NEG_INFO_1 = 01 0a FF
SERVICE_CLASS_1 = 1.2.840.10008.4.2
REL_GENERAL_1 = Others
SERVICE_2 = STANDARD_ECHO
ROLE_2 = NOBODY
EXT_NEG_INFO_2 = 01 100
SERVICE_3 = STANDARD_MR
ROLE_3 = SCP
SERVICE_4 = STANDARD_MR
SYNTAX_LIST_4 = Nowhere
ROLE_0 = SCU
[Two]
SYNTAXES_SUPPORTED = 2
SYNTAX_1 = RLE
SYNTAX_2 = EXPLICIT_LITTLE_ENDIAN
[Short]
SYNTAXES_SUPPORTED = 3
SYNTAX_1 = RLE
[Odd]
SYNTAXES_SUPPORTED = 1
SYNTAX_1 = MORSE
[Nothing]
SYNTAXES_SUPPORTED = 0
[Gap]
SERVICES_SUPPORTED = 2
SERVICE_2 = STANDARD_CT
[Strange]
SERVICES_SUPPORTED = 1
SERVICE_1 = NO_SUCH_SERVICE
[Unlisted]
SERVICES_SUPPORTED = 1
SERVICE_1 = STANDARD_CT
SYNTAX_LIST_1 = Nowhere
)";

class ServiceListsTest : public support::LibraryTest {
 protected:
  std::string ini_lines() override { return "LOG_FILE_LINE_LENGTH = 254\n"; }
  std::string applications() override { return std::string(support::kApplications) + kLists; }
};

TEST_F(ServiceListsTest, AListOfTheProfileWithAllItsKeys) {
  const ServiceList* list = VXI_GetServiceNumbers("Full");
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(VXI_GetServiceNumbers("Full"), list) << "kept";
  EXPECT_EQ(joined(list->count, list->hasEcho, list->maxOperationsInvoked, list->maxOperationsPerformed),
            "3,1,65534,4,");
  const ServiceEntry& ct = list->entries[0];
  ASSERT_EQ(ct.extendedInfoLength, 3U);
  EXPECT_EQ(
      joined(ct.service->uid, ct.syntaxList->count, ct.syntaxList->syntaxes[0], ct.syntaxList->syntaxes[1],
             ct.scuRole, ct.scpRole, std::string(reinterpret_cast<const char*>(ct.extendedInfo), 3),
             ct.serviceClassUid, ct.relatedGeneralList),
      joined(kCt, 2, RLE, EXPLICIT_LITTLE_ENDIAN, 1, 1, "\x01\x0A\xFF", "1.2.840.10008.4.2", "Others"));
  const ServiceEntry& echo = list->entries[1];
  EXPECT_EQ(joined(echo.syntaxList->name, echo.scuRole), joined(kDefaultSyntaxList, kNoRole));
  EXPECT_EQ(echo.extendedInfo, nullptr) << "one value above FF drops them all";
  EXPECT_EQ(joined(list->entries[2].scuRole, list->entries[2].scpRole), "0,1,");
  for (const char* line : {"Found service STANDARD_MR assigned in list out of range",
                           "Found syntax list Nowhere assigned in list out of range",
                           "Found role SCU assigned in list out of range",
                           "Found an invalid role definition:  'NOBODY'. Role must be SCU, SCP, or BOTH.",
                           "Invalid extended negotiation, not using value: 01 100"}) {
    EXPECT_TRUE(has_log(line)) << line;
  }
}

TEST_F(ServiceListsTest, BuiltInLists) {
  const ServiceList* echo = VXI_GetServiceNumbers(kEchoServiceList);
  ASSERT_NE(echo, nullptr);
  EXPECT_EQ(joined(echo->hasEcho, echo->count), "1,1,");
  const auto syntaxes = syntaxes_of(*echo->entries[0].syntaxList);
  const VX_TRANSFER_SYNTAX expected[] = {EXPLICIT_LITTLE_ENDIAN, IMPLICIT_LITTLE_ENDIAN, EXPLICIT_BIG_ENDIAN,
                                         IMPLICIT_BIG_ENDIAN};
  EXPECT_TRUE(std::equal(syntaxes.begin(), syntaxes.end(), std::begin(expected), std::end(expected)));
  ASSERT_OK(VX_Library_Reset());
  EXPECT_NE(VXI_GetServiceNumbers(kEchoServiceList), nullptr) << "made anew after a reset";
}

TEST_F(ServiceListsTest, DefectsOfTheProfile) {
  struct Row {
    const char* name;
    bool syntaxes;
    const char* text;
  };
  constexpr Row kRows[] = {
      {"Short", true, "Too few syntaxes listed for syntax list [Short]"},
      {"Odd", true, "MORSE is an unknown transfer syntax"},
      {"Nothing", true, "|   SYNTAXES_SUPPORTED must be > 1"},
      {"Full", true, "Syntax List \"Full\" is not a syntax list"},
      {"Gap", false, "Service name for service number 1 missing"},
      {"Strange", false, "NO_SUCH_SERVICE is an unknown service"},
      {"Unlisted", false, "Syntax List was not loaded"},
      {"VEXAL_SCP", false,
       "Service List \"VEXAL_SCP\" is not a valid service list.  SERVICES_SUPPORTED must be first item in "
       "list"},
  };
  for (const Row& row : kRows) {
    const bool found =
        row.syntaxes ? VXI_GetSyntaxList(row.name) != nullptr : VXI_GetServiceNumbers(row.name) != nullptr;
    EXPECT_FALSE(found) << row.name;
    EXPECT_TRUE(has_log(row.text)) << row.text;
  }
  clear_log();
  EXPECT_EQ(VXI_GetSyntaxList("Nobody"), nullptr);
  EXPECT_EQ(VXI_GetServiceNumbers("Nobody"), nullptr);
  EXPECT_TRUE(log_lines().empty()) << "a missing section is no fault";
}

TEST_F(ServiceListsTest, ListsMadeAtRunTime) {
  const VX_TRANSFER_SYNTAX two[] = {RLE, IMPLICIT_LITTLE_ENDIAN, 0};
  const VX_TRANSFER_SYNTAX twice[] = {RLE, RLE, 0};
  const VX_TRANSFER_SYNTAX unknown[] = {99, 0};
  const VX_TRANSFER_SYNTAX none[] = {0};
  EXPECT_OK(VX_NewSyntaxList("Mine", two));
  EXPECT_EQ(VX_NewSyntaxList("Mine", two), VX_DUPLICATE_NAME);
  EXPECT_EQ(VX_NewSyntaxList("Two", two), VX_DUPLICATE_NAME) << "it is in the profile";
  EXPECT_EQ(VX_NewSyntaxList("Other", twice), VX_DUPLICATE_SYNTAX);
  EXPECT_EQ(VX_NewSyntaxList("Other", unknown), VX_SYSTEM_ERROR);
  EXPECT_EQ(VX_NewSyntaxList("Other", none), VX_EMPTY_LIST);
  EXPECT_EQ(VX_NewSyntaxList("1234567890123456789012345678901234", two), VX_SYSTEM_ERROR);

  const char info[] = {1, 2, 3};
  EXPECT_OK(VX_NewServiceFromName("ct", "STANDARD_CT", "Mine", 1, 0));
  EXPECT_EQ(VX_NewServiceFromName("ct", "STANDARD_MR", "Mine", 1, 0), VX_DUPLICATE_NAME);
  EXPECT_OK(
      VX_NewServiceWithExtInfoFromUID("find", "1.2.840.10008.5.1.4.1.2.2.1", nullptr, 0xFF, 0xFF, info, 3));
  EXPECT_OK(VX_NewServiceFromUID("echo", "1.2.840.10008.1.1", nullptr, 0xFF, 0xFF));
  EXPECT_EQ(VX_NewServiceFromName("x", "NOBODY", nullptr, 0, 0), VX_INVALID_SOP_CLASS_UID);
  EXPECT_EQ(VX_NewServiceFromName("x", "STANDARD_CT", "Nowhere", 0, 0), VX_SYSTEM_ERROR);
  EXPECT_TRUE(has_log("Bad Syntax List Name"));
  EXPECT_EQ(VX_NewServiceFromName(nullptr, "STANDARD_CT", nullptr, 0, 0), VX_SYSTEM_ERROR);

  const char* services[] = {"ct", "find", "echo", nullptr};
  const char* repeated[] = {"ct", "find", "ct", nullptr};
  const char* missing[] = {"ct", "gone", nullptr};
  const char* empty[] = {nullptr};
  EXPECT_EQ(VX_NewProposedServiceList("L", repeated), VX_DUPLICATE_NAME);
  EXPECT_TRUE(has_log("Duplicate Service"));
  EXPECT_EQ(VX_NewProposedServiceList("L", missing), VX_MISSING_NAME);
  EXPECT_TRUE(has_log("Missing Service gone"));
  EXPECT_EQ(VX_NewProposedServiceList("L", empty), VX_SYSTEM_ERROR);
  EXPECT_EQ(VX_NewProposedServiceList("Full", services), VX_DUPLICATE_NAME);
  ASSERT_OK(VX_NewProposedServiceList("L", services));
  ASSERT_OK(VX_NewProposedServiceListAsync("A", services, 1, 2));
  EXPECT_EQ(VXI_GetServiceNumbers("L")->maxOperationsInvoked, kNoWindow);
  EXPECT_EQ(VXI_GetServiceNumbers("L")->maxOperationsPerformed, kNoWindow);
  EXPECT_EQ(VXI_GetServiceNumbers("A")->maxOperationsInvoked, 1);
  EXPECT_EQ(VXI_GetServiceNumbers("A")->maxOperationsPerformed, 2);

  EXPECT_EQ(VX_FreeSyntaxList("Mine"), VX_SYNTAX_IN_USE);
  EXPECT_OK(VX_FreeService("ct")) << "lists keep their own copy";
  EXPECT_OK(VX_FreeService("find"));
  EXPECT_EQ(VX_FreeService("find"), VX_INVALID_SERVICE_NAME);
  EXPECT_OK(VX_FreeSyntaxList("Mine"));
  EXPECT_EQ(VX_FreeSyntaxList("Mine"), VX_INVALID_SYNTAX_NAME);
  const ServiceList* list = VXI_GetServiceNumbers("L");
  EXPECT_TRUE(list->hasEcho);
  EXPECT_EQ(list->entries[0].syntaxList->count, 2) << "a syntax list that is still used lives on";
  ASSERT_EQ(list->entries[1].extendedInfoLength, 3U);
  EXPECT_EQ(list->entries[1].extendedInfo[2], 3);
  EXPECT_OK(VX_FreeServiceList("L"));
  EXPECT_EQ(VX_FreeServiceList("L"), VX_INVALID_SERVICE_LIST_NAME);
  EXPECT_EQ(VX_FreeServiceList(nullptr), VX_SYSTEM_ERROR);
}

TEST_F(ServiceListsTest, NegotiationDataOfAnApplication) {
  int32_t id = -1;
  ASSERT_OK(VX_Register_Application(&id, "ME"));
  EXPECT_OK(VX_Set_Negotiation_Info(id, "STANDARD_CT", "abc", 3));
  EXPECT_OK(VX_Set_Negotiation_Info(id, "STANDARD_CT", "xy", 2));
  EXPECT_EQ(VX_Set_Negotiation_Info(id, "NOBODY", "xy", 2), VX_UNKNOWN_SERVICE);
  EXPECT_EQ(VX_Set_Negotiation_Info(77, "STANDARD_CT", "xy", 2), VX_INVALID_APPLICATION_ID);
  const NegotiationRecord* record = find_negotiation_info(*find_application(id), 2);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->length, 2U);
  EXPECT_EQ(record->data[0], 'x');
  EXPECT_OK(VX_Clear_Negotiation_Info(id, "STANDARD_CT"));
  EXPECT_EQ(VX_Clear_Negotiation_Info(id, "STANDARD_CT"), VX_NO_INFO_REGISTERED);
  EXPECT_OK(VX_Release_Application(&id));
}

}  // namespace
}  // namespace vx::test
