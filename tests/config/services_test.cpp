// Services, items and transfer syntaxes.
#include "config/services.h"

#include <set>

#include "config/config.h"
#include "config/transfer_syntax.h"
#include "support.h"

namespace vx {
namespace {

class ServicesTest : public support::LibraryTest {
 protected:
  std::string services() override {
    return std::string(support::kServices) +
           "[0002]\nNAME = STANDARD_CT_AGAIN\nUID = 9.9\n"  // a number twice: a row of its own
           "[0009]\nNAME = NOT_USED\n";
  }
};

TEST_F(ServicesTest, LookupsByNameUidAndNumber) {
  constexpr char kCt[] = "1.2.840.10008.5.1.4.1.1.2";
  char name[32] = "?";
  const struct {
    const char* uid;
    int32_t size;
    VX_STATUS status;
    const char* name;  // what is in the buffer then
  } rows[] = {{kCt, 32, VX_NORMAL_COMPLETION, "STANDARD_CT"},
              {kCt, 5, VX_BUFFER_TOO_SMALL, "STAN"},  // as much as fits
              {kCt, -1, VX_BUFFER_TOO_SMALL, "STAN"},
              {"1.2.3", 32, VX_INVALID_SOP_CLASS_UID, ""},
              {"", 32, VX_INVALID_SOP_CLASS_UID, ""},
              {nullptr, 32, VX_NULL_POINTER_PARM, ""}};
  for (const auto& row : rows) {
    EXPECT_EQ(VX_Get_VexalKit_Service(row.uid, name, row.size), row.status) << row.size;
    EXPECT_STREQ(name, row.name) << row.size;
  }
  EXPECT_EQ(VX_Get_VexalKit_Service("1", nullptr, 3), VX_NULL_POINTER_PARM);
  char uid[64];
  EXPECT_EQ(VX_Get_UID_From_VexalKit_Service("STANDARD_ECHO", uid, 18), VX_NORMAL_COMPLETION);
  EXPECT_STREQ(uid, "1.2.840.10008.1.1");
  EXPECT_EQ(VX_Get_UID_From_VexalKit_Service("STANDARD_ECHO", uid, 17), VX_BUFFER_TOO_SMALL);
  EXPECT_EQ(VX_Get_UID_From_VexalKit_Service("standard_echo", uid, 64), VX_UNKNOWN_SERVICE) << "case matters";
  EXPECT_EQ(find_service_by_number(2)->uid, find_service("STANDARD_CT")->uid);
  EXPECT_EQ(find_service_by_number(77), nullptr);
  EXPECT_EQ(find_item_number("PATIENT"), 502);
  EXPECT_EQ(find_item_number("NOBODY"), -1);
}

TEST_F(ServicesTest, OnlyServicesInUseAreLoaded) {
  EXPECT_EQ(find_service("NOT_IN_THE_TABLE"), nullptr);
  EXPECT_EQ(find_service("NOT_USED"), nullptr);
  const SopObj* meta = find_service("BASIC_GRAYSCALE_PRINT_MANAGEMENT");
  ASSERT_NE(meta, nullptr);
  EXPECT_EQ(meta->kind, kMetaService);
  ASSERT_EQ(meta->sop_class_count, 1);
  EXPECT_EQ(meta->sop_classes[0], 5);
  const SopObj* member = find_service("BASIC_FILM_SESSION");
  ASSERT_NE(member, nullptr) << "a meta service brings its members along";
  EXPECT_EQ(member->kind, kBaseService);
  EXPECT_EQ(member->sop_class_count, 1);
}

// What is added is found like what was loaded, until a reset; bounded, and UIDs only.
TEST_F(ServicesTest, ClassesAndSyntaxesAreAdded) {
  constexpr char kUid[] = "1.3.6.1.4.1.9999.1";
  char name[50], uid[66];
  VX_TRANSFER_SYNTAX syntax = 0, again = 0;
  const auto known = [&] { return VX_Get_VexalKit_Service(kUid, name, sizeof name); };
  for (int life = 0; life < 2; ++life) {
    EXPECT_EQ(known(), VX_INVALID_SOP_CLASS_UID);
    EXPECT_EQ(VX_Add_Service(kUid), VX_NORMAL_COMPLETION);
    EXPECT_EQ(VX_Add_Service(kUid), VX_NORMAL_COMPLETION);
    ASSERT_EQ(known(), VX_NORMAL_COMPLETION);
    ASSERT_EQ(VX_Get_UID_From_VexalKit_Service(name, uid, sizeof uid), VX_NORMAL_COMPLETION);
    EXPECT_STREQ(uid, kUid);
    EXPECT_EQ(find_service_by_number(find_service(name)->number), find_service_by_uid(kUid));
    EXPECT_EQ(check_service_command(name, C_STORE_RQ), VX_NORMAL_COMPLETION);
    EXPECT_EQ(VX_Add_Transfer_Syntax("1.2.840.10008.1.2.5", &syntax), VX_NORMAL_COMPLETION);
    EXPECT_EQ(syntax, RLE);
    EXPECT_EQ(VX_Get_Enum_From_Transfer_Syntax(std::string(kUid).data(), &syntax),
              VX_INVALID_TRANSFER_SYNTAX);
    EXPECT_EQ(VX_Add_Transfer_Syntax(kUid, &syntax), VX_NORMAL_COMPLETION);
    EXPECT_EQ(VX_Get_Enum_From_Transfer_Syntax(std::string(kUid).data(), &again), VX_NORMAL_COMPLETION);
    EXPECT_EQ(syntax, again);
    EXPECT_EQ(VX_Get_Transfer_Syntax_From_Enum(syntax, uid, sizeof uid), VX_NORMAL_COMPLETION);
    EXPECT_STREQ(uid, kUid);
    for (const std::string& bad : {std::string(), std::string("1.2.x"), std::string(65, '1')}) {
      EXPECT_EQ(VX_Add_Service(bad.c_str()), VX_INVALID_SOP_CLASS_UID);
      EXPECT_EQ(VX_Add_Transfer_Syntax(bad.c_str(), &again), VX_INVALID_TRANSFER_SYNTAX);
    }
    for (int n = 1; n < 65536; ++n) VX_Add_Service(("8." + std::to_string(n)).c_str());
    EXPECT_EQ(VX_Add_Service("8.65536"), VX_INVALID_SOP_CLASS_UID);
    EXPECT_EQ(VX_Library_Reset(), VX_NORMAL_COMPLETION);
  }
}

TEST_F(ServicesTest, CommandsOfAService) {
  EXPECT_EQ(check_service_command("STANDARD_CT", C_STORE_RQ), VX_NORMAL_COMPLETION);
  EXPECT_EQ(check_service_command("STANDARD_CT", C_FIND_RQ), VX_INVALID_COMMAND);
  EXPECT_EQ(check_service_command("STANDARD_CT", 0), VX_INVALID_COMMAND);
  EXPECT_EQ(check_service_command("STUDY_ROOT_QR_FIND", C_CANCEL_RQ), VX_NORMAL_COMPLETION);
  EXPECT_EQ(check_service_command("NOBODY", C_STORE_RQ), VX_UNKNOWN_SERVICE);
  int valid = 0;
  for (int command = 0; command <= 0xFFFF; ++command) {
    const auto field = static_cast<uint16_t>(command);
    valid += is_valid_command(field) ? 1 : 0;
    EXPECT_EQ(is_valid_command(field), command_name(field) != nullptr);
  }
  EXPECT_EQ(valid, 23);
  EXPECT_FALSE(is_valid_command(0x8FFF));
  EXPECT_STREQ(command_name(C_CANCEL_RQ), "C_CANCEL_RQ");
  EXPECT_STREQ(command_name(0x8140), "N_CREATE_RSP");
}

class OddServicesTest : public support::LibraryTest {
 protected:
  std::string ini_lines() override { return "LOG_FILE_LINE_LENGTH = 254\n"; }
  std::string services() override {
    return "[SERVICE_TABLE]\nNUMBER_OF_SERVICES_SUPPORTED = 3\nA = 0600\nB = 0601\nC = -5\nGHOST = 0602\n"
           "[0600]\nname = " +
           std::string(60, 'N') +
           "\nUID = 1.2\nTYPE = meta\nSOP_CLASSES_INCLUDED = 2\nSOP_CLASS_9 = 601\nSOP_CLASS_1 = 700\n"
           "SOP_CLASS_2 = 701\nCOMMAND_X = n_get_rq\nCOMMAND_1 = N_FLY_RQ\n"
           "[ITEM_TABLE]\n"
           "[601]\nNAME = B\nTYPE = SQUARE\n";
  }
  std::string applications() override {
    return "[L]\nSERVICES_SUPPORTED = 1\nSERVICE_1 = B\nSYNTAX_LIST_1 = S\n[S]\nSYNTAXES_SUPPORTED = "
           "1\nsyntax_1 = RLE\n";
  }
};

TEST_F(OddServicesTest, AreTakenAsFarAsTheyMakeSense) {
  const std::string log = folder().read("test.log");
  const SopObj* service = find_service(std::string(49, 'N'));
  ASSERT_NE(service, nullptr);
  EXPECT_NE(log.find("is too big."), std::string::npos);
  EXPECT_EQ(service->kind, kMetaService);
  EXPECT_EQ(service->sop_class_count, 2) << "no more members than announced";
  EXPECT_EQ(service->sop_classes[1], 700);
  EXPECT_EQ(service->commands, 0x10000U);
  EXPECT_NE(log.find("Invalid command (N_FLY_RQ)"), std::string::npos);
  EXPECT_EQ(find_service("B")->kind, kBaseService);
  EXPECT_EQ(config().service_count, 2);
  EXPECT_EQ(config().item_count, 0);
  const std::vector<std::string> expected = {
      "[L]", "SERVICES_SUPPORTED", "1", "SERVICE_1", "B", "SYNTAX_LIST_1", "S",
      "[S]", "SYNTAXES_SUPPORTED", "1", "RLE"};
  std::vector<std::string> texts;
  for (const char* const* text = config().applications; *text != nullptr; ++text) texts.emplace_back(*text);
  EXPECT_EQ(texts, expected);
}

class SyntaxTest : public support::LibraryTest {};

TEST_F(SyntaxTest, UidsAndCodesLeadToEachOther) {
  std::set<std::string> seen;
  for (VX_TRANSFER_SYNTAX code = 99; code <= 222; ++code) {
    char uid[65] = "?";
    const VX_STATUS status = VX_Get_Transfer_Syntax_From_Enum(code, uid, sizeof uid);
    const bool without = code < 100 || (code > 140 && code < 200) || code > 221 ||
                         code == IMPLICIT_BIG_ENDIAN || code == PRIVATE_SYNTAX_1 || code == PRIVATE_SYNTAX_2;
    ASSERT_EQ(status, without ? VX_INVALID_TRANSFER_SYNTAX : VX_NORMAL_COMPLETION) << code;
    if (without) continue;
    EXPECT_TRUE(seen.insert(uid).second) << uid;
    VX_TRANSFER_SYNTAX back = 0;
    std::string padded = std::string(uid) + "  ";
    EXPECT_EQ(VX_Get_Enum_From_Transfer_Syntax(padded.data(), &back), VX_NORMAL_COMPLETION);
    EXPECT_STREQ(padded.c_str(), uid) << "blanks are cut in place";
    EXPECT_EQ(back, code);
    EXPECT_NE(*syntax_display_name(code), '\0');
  }
  EXPECT_EQ(seen.size(), 60U);
  char uid[18];
  EXPECT_EQ(VX_Get_Transfer_Syntax_From_Enum(IMPLICIT_LITTLE_ENDIAN, uid, 17), VX_BUFFER_TOO_SMALL);
  EXPECT_EQ(VX_Get_Transfer_Syntax_From_Enum(IMPLICIT_LITTLE_ENDIAN, uid, 18), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Get_Transfer_Syntax_From_Enum(IMPLICIT_LITTLE_ENDIAN, nullptr, 18), VX_NULL_POINTER_PARM);
  VX_TRANSFER_SYNTAX code = 0;
  std::string empty = "  ";
  VX_TRANSFER_SYNTAX first_without_uid = 0;
  EXPECT_EQ(VX_Get_Enum_From_Transfer_Syntax(empty.data(), &first_without_uid), VX_NORMAL_COMPLETION);
  EXPECT_EQ(first_without_uid, IMPLICIT_BIG_ENDIAN);
  for (const char* unknown : {"1.2.3", "1.2.840.10008.1.2.99"}) {
    std::string text = unknown;
    code = 0;
    EXPECT_EQ(VX_Get_Enum_From_Transfer_Syntax(text.data(), &code), VX_INVALID_TRANSFER_SYNTAX);
    EXPECT_EQ(code, IMPLICIT_LITTLE_ENDIAN);
  }
}

TEST_F(SyntaxTest, SettingsMoveUids) {
  const auto code_of = [](std::string uid) {
    VX_TRANSFER_SYNTAX code = 0;
    VX_Get_Enum_From_Transfer_Syntax(uid.data(), &code);
    return code;
  };
  set_text(VX_CFG_PRIVATE_SYNTAX_1_SYNTAX, "1.2.3.Abc");
  EXPECT_EQ(code_of("1.2.3.aBC"), PRIVATE_SYNTAX_1);
  set_text(VX_CFG_PRIVATE_SYNTAX_2_SYNTAX, "1.2.840.10008.1.2");
  EXPECT_EQ(code_of("1.2.840.10008.1.2"), IMPLICIT_LITTLE_ENDIAN) << "the first of the order wins";
  EXPECT_EQ(code_of("1.2.840.10008.1.2.4.201"), HTJ2K_LOSSLESS);
  set_text(VX_CFG_PRIVATE_SYNTAX_2_SYNTAX, "1.2.840.10008.1.2.4.201");
  EXPECT_EQ(code_of("1.2.840.10008.1.2.4.201"), PRIVATE_SYNTAX_2) << "whoever made it a private one keeps it";
  Encoding encoding{};
  EXPECT_EQ(syntax_encoding(PRIVATE_SYNTAX_1, encoding), VX_NORMAL_COMPLETION);
  EXPECT_TRUE(encoding.explicit_vr && !encoding.big_endian && !encoding.encapsulated);
  set_bool(VX_CFG_PRIVATE_SYNTAX_1_EXPLICIT_VR, false);
  set_bool(VX_CFG_PRIVATE_SYNTAX_1_LITTLE_ENDIAN, false);
  set_bool(VX_CFG_PRIVATE_SYNTAX_1_ENCAPSULATED, true);
  EXPECT_EQ(syntax_encoding(PRIVATE_SYNTAX_1, encoding), VX_NORMAL_COMPLETION);
  EXPECT_TRUE(!encoding.explicit_vr && encoding.big_endian && encoding.encapsulated);
  EXPECT_EQ(syntax_encoding(PRIVATE_SYNTAX_2, encoding), VX_NORMAL_COMPLETION);
  EXPECT_TRUE(encoding.explicit_vr && !encoding.big_endian && !encoding.encapsulated);
}

TEST_F(SyntaxTest, PropertiesAndNames) {
  Encoding encoding{};
  int explicit_vr = 0, encapsulated = 0;
  for (VX_TRANSFER_SYNTAX code = 100; code <= 140; ++code) {
    ASSERT_EQ(syntax_encoding(code, encoding), VX_NORMAL_COMPLETION);
    EXPECT_EQ(encoding.syntax, code);
    explicit_vr += encoding.explicit_vr ? 1 : 0;
    encapsulated += encoding.encapsulated ? 1 : 0;
    EXPECT_EQ(encoding.big_endian, code == EXPLICIT_BIG_ENDIAN || code == IMPLICIT_BIG_ENDIAN) << code;
  }
  EXPECT_EQ(explicit_vr, 41 - 2);
  EXPECT_EQ(encapsulated, 41 - 5 - 2);
  for (VX_TRANSFER_SYNTAX code = 200; code <= 221; ++code) {
    ASSERT_EQ(syntax_encoding(code, encoding), VX_NORMAL_COMPLETION);
    EXPECT_TRUE(encoding.explicit_vr && !encoding.big_endian && encoding.encapsulated) << code;
  }
  EXPECT_EQ(syntax_encoding(0, encoding), VX_INVALID_TRANSFER_SYNTAX);
  EXPECT_TRUE(!encoding.explicit_vr && !encoding.big_endian && !encoding.encapsulated);
  VX_TRANSFER_SYNTAX code = 7;
  EXPECT_EQ(syntax_from_name("jpeg_2000_MC", code), VX_NORMAL_COMPLETION);
  EXPECT_EQ(code, JPEG_2000_MC);
  EXPECT_EQ(syntax_from_name("jpeg_XL_recompression", code), VX_NORMAL_COMPLETION);
  EXPECT_EQ(code, JPEG_XL_RECOMPRESSION);
  EXPECT_EQ(syntax_from_name("JPEG_3000", code), VX_INVALID_TRANSFER_SYNTAX);
  EXPECT_EQ(code, 0);
  EXPECT_STREQ(syntax_display_name(JPEG_LS_LOSSY), "JPEG-LS Lossy (Near-Lossless)");
  EXPECT_STREQ(syntax_display_name(0), "");
}

}  // namespace
}  // namespace vx
