// Message templates: what a file's records become, what objects get of it, faulty files.
#include "model/message_info.h"

#include <sys/mman.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "frame/pool.h"
#include "frame/seams.h"
#include "info_file.h"
#include "model/message_info_file.h"
#include "model/private_blocks.h"
#include "model/rule_list.h"
#include "value_fixture.h"

namespace {

using support::Body;
using support::InfoBuilder;
using support::number;

constexpr VX_STATUS kOk = VX_NORMAL_COMPLETION;

// Service 2 is STANDARD_CT, 3 STANDARD_MR; items 501 and 502 are REF_IMAGE and PATIENT.
Body ct_body() {
  Body body;
  body.add(0x00080008, "1", "CS")
      .with(1, "ORIGINAL")
      .with(1, "DERIVED")
      .with(1002, "PRIMARY")
      .with(3, "AXIAL");
  body.add(0x00080016, "1", "UI").with(9600, "1.2.840.10008.5.1.4.1.1.2");
  body.add(0x00081140, "1C", "SQ").with(2000, "SOME_CONDITION").with(1, "REF_IMAGE");
  body.add(0x00090001 | 0x1000, "3").with(9700, "ACME 1.0");
  body.add(0x00090002 | 0x1000, "2").with(9700, "ACME 1.0");
  body.add(0x00100010, "2");
  body.add(0x00280100, "1", "US").with(1, "8").with(1, "16").with(9600, "16");
  body.add(0x00290010 | 0x1000, "3", "LT").with(9700, "OTHER CODE");
  body.add(0x7FE00010, "1C");
  return body;
}

class MessageInfo : public support::ValueTest {
 protected:
  void SetUp() override {
    ValueTest::SetUp();
    InfoBuilder builder;
    builder.service(2, C_STORE_RQ, ct_body());
    builder.item(501, Body().add(0x00081150, "1").add(0x00081155, "1"));
    install(builder.bytes());
  }
  void TearDown() override {
    vx::model_drop();
    ValueTest::TearDown();
  }
  void install(const std::string& bytes) {
    vx::model_drop();
    clear_log();
    set_text(VX_CFG_MSG_INFO_FILE, folder().write("test.msg", bytes));
  }
  static std::string file_of(const Body& body) { return InfoBuilder().service(2, C_STORE_RQ, body).bytes(); }
  VX_STATUS open_ct() { return VX_Open_Message(&id, "STANDARD_CT", C_STORE_RQ); }
};

TEST_F(MessageInfo, AMessageOpensWithItsAttributes) {
  ASSERT_EQ(open_ct(), kOk);
  const std::vector<uint32_t> expected = {0x00080008, 0x00080016, 0x00081140, 0x00090010,
                                          0x00091001, 0x00091002, 0x00100010, 0x00280100,
                                          0x00290010, 0x00291010, 0x7FE00010};
  EXPECT_EQ(tags_of(id, 0x00080000), expected);
  EXPECT_EQ(text(0x00090010), "ACME 1.0");
  EXPECT_EQ(text(0x00290010), "OTHER CODE");
  EXPECT_EQ(text(0x00280100), "#" + std::to_string(VX_EMPTY_VALUE));  // defaults stay in the template
  EXPECT_EQ(find(0x00091002)->VR, VX_VR_US);
  EXPECT_EQ(find(0x00080008)->VMLow, 2);
  EXPECT_EQ(find(0x00291010)->VR, VX_VR_LT);
  EXPECT_EQ(find(0x00291010)->VMHigh, 255);
  EXPECT_EQ(object().TemplateApplied, 1);
  EXPECT_EQ(VX_Set_Value_From_String(id, 0x00100020, "x"), VX_INVALID_TAG);
  EXPECT_EQ(VX_Set_Value_From_String(id, 0x00100010, "x"), kOk);
  // A required attribute that comes back has its rules again.
  ASSERT_EQ(VX_Delete_Attribute(id, 0x00100010), kOk);
  ASSERT_EQ(VX_Add_Standard_Attribute(id, 0x00100010), kOk);
  ASSERT_NE(find(0x00100010)->Template, nullptr);
  EXPECT_EQ(find(0x00100010)->Template->AttributeType, vx::kType2);
}

TEST_F(MessageInfo, RulesAreSharedAndReadOnce) {
  ASSERT_EQ(open_ct(), kOk);
  const vx::ValTagObj* rules = find(0x00080008)->Template;
  set_text(VX_CFG_MSG_INFO_FILE, folder().path("absent.msg"));
  ASSERT_EQ(open_ct(), kOk);
  EXPECT_EQ(find(0x00080008)->Template, rules);
  int32_t other = -1;
  EXPECT_EQ(VX_Open_Message(&other, "STANDARD_CT", N_GET_RQ), VX_MSGFILE_ERROR);
  EXPECT_EQ(other, -1);
  EXPECT_TRUE(has_log("Could not open message info file " + folder().path("absent.msg")));
  // These hold nothing but the command, and need no file.
  for (const uint16_t command : {C_STORE_RSP, N_DELETE_RQ, N_DELETE_RSP, C_ECHO_RQ, C_ECHO_RSP}) {
    ASSERT_EQ(VX_Open_Message(&other, "STANDARD_CT", command), kOk) << command;
    EXPECT_EQ(vx::find_object(other)->TemplateApplied, 0);
    EXPECT_TRUE(tags_of(other, 0x00080000).empty());
  }
}

TEST_F(MessageInfo, RecordsBecomeRules) {
  const vx::MsgTemplate* found = nullptr;
  ASSERT_EQ(vx::get_template("STANDARD_CT", C_STORE_RQ, found), kOk);
  EXPECT_STREQ(found->Name, "STANDARD_CT");
  std::map<uint32_t, const vx::TagObj*> attributes;
  for (const vx::TagObj* at = found->FirstTag; at != nullptr; at = at->Next) attributes[at->Tag] = at;
  const auto values = [&](uint32_t tag) {
    std::string all;
    const vx::ValTagObj& rules = *attributes.at(tag)->Template;
    for (const vx::CNode* node = rules.ValidValues.Head; node != nullptr; node = node->Next) {
      const auto* value = static_cast<const vx::ValidValueObj*>(node->Data);
      EXPECT_EQ(value->Value[value->Length], '\0');
      all += std::to_string(value->ValueNumber) + (value->IsEnumerated != 0 ? "=" : "~") +
             (value->Length == 2 ? std::to_string(value->Value[0]) : value->Value) + " ";
    }
    return all + std::to_string(rules.MaxValueNumber);
  };
  EXPECT_EQ(values(0x00080008), "1=ORIGINAL 1=DERIVED 2~PRIMARY 3=AXIAL 3");
  EXPECT_EQ(values(0x00081140), "1=REF_IMAGE 1");
  EXPECT_EQ(values(0x00280100), "1=8 1=16 1");  // numbers in the form that values have
  EXPECT_STREQ(attributes.at(0x00081140)->Template->Condition, "SOME_CONDITION");
  EXPECT_TRUE(has_log("Unknown validate function: SOME_CONDITION"));
  EXPECT_EQ(attributes.at(0x00080016)->Template->Condition, nullptr);
  EXPECT_EQ(attributes.at(0x00280100)->FirstValue->Length, 2U);
  const vx::TagObj& creator = *attributes.at(0x00290010);
  EXPECT_EQ(creator.VMLow, 0);
  EXPECT_EQ(creator.VMHigh, 1);
  EXPECT_EQ(creator.Template->AttributeType, vx::kType1);
  EXPECT_STREQ(vx::template_creator(*found, *attributes.at(0x00291010)), "OTHER CODE");
  EXPECT_STREQ(vx::template_creator(*found, *attributes.at(0x00100010)), "");

  Body body;
  body.add(0x00100010, "2", "PN").with(9600, "A^B").with(9600, "<null>");
  body.add(0x00100020, "2").with(9600, "");
  install(file_of(body));
  ASSERT_EQ(vx::get_template("STANDARD_CT", C_STORE_RQ, found), kOk);
  EXPECT_EQ(found->FirstTag->ValueCount, 1);
  EXPECT_EQ(found->FirstTag->Length, 0U);
  EXPECT_EQ(found->FirstTag->Next->ValueCount, 0);
}

// What applications see of a rule.
std::string line_of(const RuleObj& rule) {
  const auto text = [](const char* name, const char* value) {
    return value == nullptr ? std::string() : std::string(" ") + name + "=" + value;
  };
  std::string line = vx::attribute_type_text(rule.Type) + std::to_string(rule.VR) + " " +
                     std::to_string(rule.VMLow) + "-" + std::to_string(rule.VMHigh) +
                     text("condition", rule.Condition) + text("rule", rule.ConditionRule) +
                     (rule.MayBePresent != 0 ? " may" : "") + text("module", rule.Module) +
                     text("creator", rule.Creator) + text("default", rule.DefaultValue);
  for (int32_t i = 0; i < rule.ValueCount; ++i) {
    const RuleValueObj& value = rule.Values[i];
    line += " " + std::to_string(value.ValueNumber) + (value.IsEnumerated != 0 ? "=" : "~") + value.Text;
  }
  return line;
}

TEST_F(MessageInfo, ApplicationsSeeTheRules) {
  Body body;
  body.add(0x00080008, "1", "CS").with(1, "ORIGINAL").with(1002, "PRIMARY").with(2003, "C.7-9 General Image");
  body.add(0x00081140, "1C", "SQ").with(2000, "NOBODY_KNOWS_IT").with(1001, "REF_IMAGE").with(2002, "may");
  body.add(0x00091002, "2", "LO").with(9700, "ACME 1.0");
  body.add(0x00100010, "2C").with(2001, "00100020 present").with(2003, "").with(9600, "<null>");
  body.add(0x00101234, "3");
  body.add(0x00280100, "1C", "US").with(2000, "A00280002_GREATER_THAN_1").with(1, "8").with(9600, "16");
  body.add(0x60000010, "3", "US");
  InfoBuilder builder;
  builder.service(2, N_SET_RQ, Body()).service(2, C_STORE_RQ, body).item(501, Body().add(0x00081150, "1"));
  install(builder.service(2, N_CREATE_RQ, Body().add(0x00100010, "1")).bytes());

  const std::string expected[] = {
      "1 2 2-255 module=C.7-9 General Image 1=ORIGINAL 2~PRIMARY",
      "1C30 1-1 condition=NOBODY_KNOWS_IT may 1~REF_IMAGE",
      "2 18 1-255 creator=ACME 1.0",
      "2C9 1-1 rule=00100020 present default=<null>",
      "3 24 1-255",
      "1C18 1-1 condition=A00280002_GREATER_THAN_1 rule=00280002 > 1 default=16 1=8",
      "3 18 1-255"};
  const RuleObj* rules = nullptr;
  int32_t count = 0;
  ASSERT_EQ(VX_Get_Rules("STANDARD_CT", C_STORE_RQ, &rules, &count), kOk);
  ASSERT_EQ(count, static_cast<int32_t>(std::size(expected)));
  for (int32_t i = 0; i < count; ++i) EXPECT_EQ(line_of(rules[i]), expected[i]);
  const RuleObj* found = nullptr;
  EXPECT_EQ(VX_Find_Rule("STANDARD_CT", C_STORE_RQ, 0x00100010, &found), kOk);
  EXPECT_EQ(found, rules + 3);  // read once
  EXPECT_EQ(VX_Find_Rule("STANDARD_CT", C_STORE_RQ, 0x60020010, &found), kOk);
  EXPECT_EQ(found, rules + 6);  // of a repeating group
  EXPECT_EQ(VX_Find_Rule("STANDARD_CT", C_STORE_RQ, 0x60020011, &found), VX_INVALID_TAG);
  EXPECT_EQ(found, nullptr);
  ASSERT_EQ(VX_Get_Rules("REF_IMAGE", 0, &rules, &count), kOk);
  EXPECT_EQ(line_of(*rules), "1 16 1-1");

  uint16_t commands[2] = {};
  EXPECT_EQ(VX_Get_Rule_Commands("STANDARD_CT", commands, 2, &count),
            kOk);  // without those that hold nothing
  EXPECT_EQ(count, 2);
  EXPECT_EQ(commands[0], C_STORE_RQ);
  EXPECT_EQ(commands[1], N_CREATE_RQ);
  EXPECT_EQ(VX_Get_Rule_Commands("STANDARD_CT", commands, 1, &count), VX_BUFFER_TOO_SMALL);
  EXPECT_EQ(count, 2);
  EXPECT_EQ(VX_Get_Rule_Commands("NO_SUCH_SERVICE", commands, 2, &count), kOk);
  EXPECT_EQ(count, 0);

  clear_log();
  const struct {
    const char* name;
    uint16_t command;
  } unknown[] = {{"STANDARD_CT", N_SET_RQ},   {"STANDARD_CT", N_GET_RQ},       {"STANDARD_CT", C_STORE_RSP},
                 {"STANDARD_MR", C_STORE_RQ}, {"NO_SUCH_SERVICE", C_STORE_RQ}, {"NO_SUCH_ITEM", 0}};
  for (const auto& row : unknown) {
    EXPECT_EQ(VX_Get_Rules(row.name, row.command, &rules, &count), VX_NOT_FOUND) << row.name << row.command;
    EXPECT_EQ(rules, nullptr);
    EXPECT_EQ(count, 0);
  }
  EXPECT_TRUE(log_lines().empty()) << testing::PrintToString(log_lines());  // to ask is no fault
  install("no such file");
  EXPECT_EQ(VX_Get_Rules("STANDARD_CT", C_STORE_RQ, &rules, &count), VX_MSGFILE_ERROR);
  EXPECT_EQ(VX_Get_Rule_Commands("STANDARD_CT", commands, 2, &count), VX_MSGFILE_ERROR);
}

TEST_F(MessageInfo, TypesInLetters) {
  for (const int32_t type : {vx::kType1, vx::kType1C, vx::kType2, vx::kType2C, vx::kType3}) {
    EXPECT_EQ(vx::attribute_type_from_text(vx::attribute_type_text(type), 2), type);
  }
  EXPECT_STREQ(vx::attribute_type_text(vx::kTypeNotSet), "??");
  EXPECT_EQ(vx::attribute_type_from_text("2", 1), vx::kType2);
  EXPECT_EQ(vx::attribute_type_from_text("3C", 2), vx::kTypeNotSet);
  EXPECT_EQ(vx::attribute_type_from_text("", 0), vx::kTypeNotSet);
}

TEST_F(MessageInfo, ItemsOpenByName) {
  ASSERT_EQ(VX_Open_Item(&id, "REF_IMAGE"), kOk);
  EXPECT_EQ(tags_of(id, 0x00080000), (std::vector<uint32_t>{0x00081150, 0x00081155}));
  EXPECT_EQ(VX_Open_Item(&id, "PATIENT"), VX_MSGFILE_ERROR);
  EXPECT_TRUE(has_log("This item is not in the info file: PATIENT."));
  EXPECT_EQ(VX_Open_Item(&id, "NO_SUCH_ITEM"), kOk);
}

TEST_F(MessageInfo, BlocksTakeTheFirstFreePlace) {
  ASSERT_EQ(VX_Add_Private_Block(id, "RESIDENT", 0x0009), kOk);
  ASSERT_EQ(VX_Set_Service_Command(id, "STANDARD_CT", C_STORE_RQ), kOk);
  ASSERT_EQ(VX_Add_Standard_Attribute(id, 0x00100010), kOk);
  EXPECT_EQ(vx::fill_from_template(object(), 0, false), kOk);
  EXPECT_EQ(text(0x00090010), "RESIDENT");
  EXPECT_EQ(text(0x00090011), "ACME 1.0");
  EXPECT_NE(find(0x00091102), nullptr);
  EXPECT_EQ(find(0x00091002), nullptr);
  EXPECT_NE(find(0x00100010)->Template, nullptr);  // one that was there takes the rules
}

TEST_F(MessageInfo, ValidationPutsRulesOnWhatIsThere) {
  ASSERT_EQ(VX_Set_Service_Command(id, "STANDARD_CT", C_STORE_RQ), kOk);
  ASSERT_EQ(VX_Set_Value_From_String(id, 0x00100010, "A^B"), kOk);
  ASSERT_EQ(VX_Set_Value_From_Int(id, 0x00280100, 16), kOk);
  // One attribute only.
  EXPECT_EQ(vx::fill_from_template(object(), 0x00280100, true), kOk);
  EXPECT_NE(find(0x00280100)->Template, nullptr);
  EXPECT_EQ(find(0x00100010)->Template, nullptr);
  // A private block that is not there ends it.
  EXPECT_EQ(vx::fill_from_template(object(), 0, true), VX_NOT_FOUND);
  ASSERT_EQ(VX_Add_Private_Block(id, "OTHER CODE", 0x0029), kOk);
  ASSERT_EQ(VX_Add_Private_Block(id, "FIRST", 0x0009), kOk);
  ASSERT_EQ(VX_Add_Private_Block(id, "ACME 1.0", 0x0009), kOk);
  ASSERT_EQ(VX_Add_Private_Attribute(id, "ACME 1.0", 0x0009, 2, VX_VR_US), kOk);
  EXPECT_EQ(vx::fill_from_template(object(), 0, true), kOk);
  EXPECT_EQ(text(0x00100010), "A^B");
  EXPECT_EQ(find(0x00100010)->Template->AttributeType, vx::kType2);
  EXPECT_NE(find(0x00091102)->Template, nullptr);
  EXPECT_EQ(find(0x00080016), nullptr);
  EXPECT_EQ(object().TemplateApplied, 0);
}

TEST_F(MessageInfo, FaultsOfTheFileAreNamed) {
  const std::string good = file_of(Body().add(0x00100010, "2"));
  const auto patched = [&](std::size_t at, const std::string& bytes) {
    return std::string(good).replace(at, bytes.size(), bytes);
  };
  const struct {
    std::string bytes;
    const char* log;
  } rows[] = {
      {"", "End of Info file reached."},
      {patched(0, "X"), "is not a valid VexalKit-3 Message Info file."},
      {patched(5, "X"), "is not a valid VexalKit-3 Message Info file."},
      {good.substr(0, 15), "Error reading preamble cmd offset: "},
      {good.substr(0, 27), "Unable to read preamble from "},
      {patched(12, number(1, 2)), "This service is not in the info file: STANDARD_CT."},
      {patched(28 + 6, number(9, 2)), "private services numbered incorrectly"},
      {patched(8, number(0xFFFFFFF0, 4)), "Unable to read msg from "},
      {patched(14, number(0xFFFFFFF0, 4)), "Unable to read cmd from "},
      {patched(28 + 8, number(0xFFFFFFFF, 4)), "Unable to read cmd from "},
      {InfoBuilder().service(2, N_GET_RQ, Body()).bytes(),
       "Unable to find STANDARD_CT in Info file. Incompatible vexalkit.srv and info.pfl files."},
      {patched(24, number(0xFFFFFFFF, 4)), "Cannot find beginning of message."},
      {file_of(Body().record(0x00100010, 9999, "4")), "Invalid Cond.Type in message."},
      {file_of(Body().add(0x00100010, "2", "UN")), "Invalid VR Code in message."},
      {file_of(Body().add(0x00100010, "2", "ZZ")), "Invalid VR Code in message."},
      {file_of(Body().add(0x00100010, "2", "L")), "Invalid VR Code in message."},
      {file_of(Body().add(0x00100010, "2").add(0x00080005, "2")), "Message is not in tag/parm sequence"},
      {file_of(Body().record(0x00100010, 9500, "PN")), "No type code for tag 0x00100010 in Message File."},
      {file_of(Body().add(0x00101234, "2")), "No dictionary entry for tag 0x00101234 in Message File."},
      {file_of(Body().add(0x00091077, "2").with(9700, "ACME 1.0")),
       "No dictionary entry for private tag 0x0009, \"ACME 1.0\", 0x77 in Message File."},
      {file_of(Body().add(0x00280100, "2", "US").with(1, "word")),
       "Failed to read valid value for tag 0x280100"},
      {file_of(Body().add(0x00280100, "2", "US").with(9600, "word")),
       "Failed to read default for tag 0x280100"},
      {good.substr(0, good.size() - 1), "test.msg: Unexpected EOF"},
      {good.substr(0, good.size() - 3), "Error reading message info file."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.log);
    install(row.bytes);
    id = 5;
    EXPECT_EQ(open_ct(), VX_MSGFILE_ERROR);
    EXPECT_EQ(id, -1);
    EXPECT_TRUE(has_log(row.log)) << testing::PrintToString(log_lines());
  }
  set_text(VX_CFG_MSG_INFO_FILE, "");
  EXPECT_EQ(open_ct(), VX_MSGFILE_ERROR);
  EXPECT_TRUE(has_log("Could not open message info file, configuration value not set."));
}

// The dictionary's VR counts; values read for another class of VR must not be taken for items or numbers.
TEST_F(MessageInfo, TheDictionaryOverridesTheFile) {
  install(file_of(Body().add(0x00081140, "3", "LO").with(9600, "text")));
  const vx::MsgTemplate* found = nullptr;
  ASSERT_EQ(vx::get_template("STANDARD_CT", C_STORE_RQ, found), kOk);
  EXPECT_EQ(found->FirstTag->VR, VX_VR_SQ);
  EXPECT_EQ(found->FirstTag->FirstValue, nullptr);
}

// Memory that runs out at any point of opening leaves no message and no half of a template.
TEST_F(MessageInfo, OpeningWithoutMemory) {
  VX_STATUS status = VX_SYSTEM_ERROR;
  int failures = 0;
  for (uint64_t allocation = 1; status != kOk; ++allocation) {
    ASSERT_LT(allocation, 1000U);
    vx::model_drop();
    id = 5;
    vx::fail_allocation_after(allocation);
    status = open_ct();
    vx::fail_allocation_after(0);
    if (status == kOk) break;
    ++failures;
    ASSERT_EQ(status, VX_SYSTEM_ERROR) << allocation;
    ASSERT_EQ(id, -1);
    ASSERT_EQ(open_ct(), kOk);
    ASSERT_EQ(tags_of(id, 0x00080000).size(), 11U);
    VX_Free_Message(&id);
  }
  const RuleObj* rules = nullptr;
  int32_t count = 0;
  for (uint64_t allocation = 1; allocation < 4; ++allocation) {
    vx::fail_allocation_after(allocation);
    EXPECT_EQ(VX_Get_Rules("STANDARD_CT", C_STORE_RQ, &rules, &count), VX_SYSTEM_ERROR) << allocation;
    vx::fail_allocation_after(0);
  }
  EXPECT_EQ(VX_Get_Rules("STANDARD_CT", C_STORE_RQ, &rules, &count), kOk);
  EXPECT_GT(failures, 50);
}

// Any cut and any changed byte ends in a template or in a status, with nothing left behind.
TEST_F(MessageInfo, DamagedFilesEndInAStatus) {
  InfoBuilder builder;
  builder.service(2, C_STORE_RQ, ct_body());
  builder.item(1, Body().add(0x00081150, "1"));
  const std::string good = builder.bytes();
  // A file in memory: thousands of small ones on a disk would take their time.
  const int memory = ::memfd_create("damaged", 0);
  ASSERT_GE(memory, 0);
  const std::string path = "/proc/self/fd/" + std::to_string(memory);
  int good_reads = 0;
  const auto read = [&](const std::string& bytes) {
    ASSERT_EQ(::ftruncate(memory, 0), 0);
    ASSERT_EQ(::pwrite(memory, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    good_reads = 0;
    for (const int command : {static_cast<int>(C_STORE_RQ), 0}) {
      vx::MsgTemplate result{};
      const int32_t which = command == 0 ? 1 : 2;
      const VX_STATUS status =
          vx::read_template({path.c_str(), "NAME", static_cast<uint16_t>(command), which}, result);
      EXPECT_TRUE(status == kOk || status == VX_MSGFILE_ERROR) << status;
      if (status == kOk) {
        ++good_reads;
        uint32_t previous = 0;
        for (const vx::TagObj* at = result.FirstTag; at != nullptr; at = at->Next) {
          EXPECT_GT(at->Tag, previous);
          previous = at->Tag;
        }
        vx::free_template_parts(result);
      } else {
        EXPECT_EQ(result.FirstTag, nullptr);
      }
      vx::RuleList rules{};
      std::vector<uint16_t> commands;
      vx::list_commands({path.c_str(), "NAME", 0, which}, commands);
      if (vx::read_rules({path.c_str(), "NAME", static_cast<uint16_t>(command), which}, rules) == kOk) {
        for (int32_t i = 1; i < rules.Count; ++i) EXPECT_GT(rules.Rules[i].Tag, rules.Rules[i - 1].Tag);
      } else {
        EXPECT_EQ(rules.Rules, nullptr);
      }
      vx::release(const_cast<RuleObj*>(rules.Rules));
    }
  };
  read(good);
  EXPECT_EQ(good_reads, 2);
  const uint64_t used_before = support::memory().used();
  for (std::size_t size = 0; size < good.size(); ++size) read(good.substr(0, size));
  for (std::size_t at = 0; at < good.size(); ++at) {
    for (const char value : {'\0', '\xFF', static_cast<char>(good[at] ^ 1)}) {
      std::string bad = good;
      bad[at] = value;
      read(bad);
    }
  }
  EXPECT_EQ(support::memory().used(), used_before);
  ::close(memory);
}

}  // namespace
