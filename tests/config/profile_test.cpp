// The line format, paths with variables, and what the readers make of good and bad values.
#include <cstdlib>
#include <filesystem>

#include "config/config.h"
#include "config/line.h"
#include "support.h"

namespace vx {
namespace {

// The entries as "section|key|value", with a star for the first one of a section.
std::vector<std::string> entries_of(std::string_view content, std::size_t limit = 260) {
  ProfileReader reader(content, limit);
  ProfileReader::Entry entry;
  std::vector<std::string> entries;
  ProfileReader::Result result;
  while ((result = reader.next(entry)) == ProfileReader::Result::Entry) {
    entries.push_back(entry.section + (entry.new_section ? "*" : "") + "|" + entry.key + "|" + entry.value);
  }
  if (result == ProfileReader::Result::Failed) entries.emplace_back("failed");
  return entries;
}

using Entries = std::vector<std::string>;

TEST(ProfileLines, OneFormatForAllFiles) {
  const struct {
    const char* content;
    Entries entries;
  } rows[] = {
      {"", {}},
      {"[A]\nKEY = value\nKEY,value\nKEY value\nKEY value with blanks  \n",
       {"A*|KEY|value", "A|KEY|value", "A|KEY|value", "A|KEY|value with blanks"}},
      {"early = 1\n[A]\n[B]\nk = 1", {"|early|1", "B*|k|1"}},
      {"[A]\r\nk\t = va\tlue # comment\r\n# only\r\n   \r\n k2 == ,, x=y", {"A*|k|value", "A|k2|x=y"}},
      {"[Open\nk\n[x] \n k =", {"Ope*|k|", "x*|k|"}},
      {"[\nk=v", {"*|k|v"}},
      {"[A]\nk = caf\xC3\xA9\x7F\x01", {"A*|k|caf\xC3\xA9"}},
      {"=lonely", {"||lonely"}},
  };
  for (const auto& row : rows) EXPECT_EQ(entries_of(row.content), row.entries) << row.content;
}

TEST(ProfileLines, LongLinesContinueAsLinesOfTheirOwn) {
  const std::string key(79, 'k');
  EXPECT_EQ(entries_of(key + " " + std::string(218, 'v') + "\nnext 1"),
            (Entries{"|" + key + "|" + std::string(218, 'v'), "|next|1"}));
  EXPECT_EQ(entries_of(key + " " + std::string(218, 'v') + "x\nnext 1"),
            (Entries{"|" + key + "|" + std::string(218, 'v'), "|x|", "|next|1"}));
  EXPECT_EQ(entries_of(std::string(100, 'k') + " v"), Entries{"|" + key + "|v"}) << "keys are cut";
}

TEST(ProfileLines, ValuesHaveALimit) {
  EXPECT_EQ(entries_of("k " + std::string(79, 'v'), 80), Entries{"|k|" + std::string(79, 'v')});
  EXPECT_EQ(entries_of("a 1\nk " + std::string(80, 'v') + "\nb 2", 80), (Entries{"|a|1", "failed"}));
}

class ProfileTest : public support::LibraryTest {
 protected:
  void SetUp() override { ::setenv("VEXALTEST_FOLDER", "/some/where", 1); }
  std::string ini_lines() override { return "LOG_FILE_LINE_LENGTH = 254\n" + ini_text_; }
  std::string profile_lines() override { return "[ASSOC_PARMS]\n" + profile_text_; }
  std::string services() override { return services_text_; }
  std::string applications() override { return applications_text_; }

  VX_STATUS load() {
    VX_Library_Release();
    return begin();
  }
  static uint32_t destination(VX_LOG_KEY key) {
    uint32_t bits = 99;
    EXPECT_EQ(VX_Get_Log_Destination(key, &bits), VX_NORMAL_COMPLETION);
    return bits;
  }
  // The lines of the log file: the only place where the loader's own complaints go.
  std::string log() const { return folder().read("test.log"); }

  std::string ini_text_, profile_text_;
  std::string services_text_ = support::kServices;
  std::string applications_text_ = support::kApplications;
};

TEST_F(ProfileTest, KeysStartAtTheirDefaults) {
  ASSERT_EQ(load(), VX_NORMAL_COMPLETION);
  EXPECT_EQ(config_int(VX_CFG_WORK_BUFFER_SIZE), 28672);
  EXPECT_TRUE(config_bool(VX_CFG_AUTO_ECHO_SUPPORT));
  EXPECT_EQ(config_long(VX_CFG_PDU_MAXIMUM_LENGTH), 64234);
  EXPECT_EQ(get_text(VX_CFG_EXPLICIT_BIG_ENDIAN_SYNTAX), "1.2.840.10008.1.2.2");
  EXPECT_EQ(get_text(VX_CFG_VEXALKIT_3_SERVICES), folder().path("test.srv"))
      << "VX3INIDIR is the ini file's folder";
  EXPECT_EQ(destination(VX_CFG_T1_MESSAGE), static_cast<uint32_t>(VX_LOG_OFF));
}

// The names of the public enumeration and the rows of the tables must be the same list.
TEST_F(ProfileTest, KeysOfAllKindsAreReadFromTheirSections) {
  profile_text_ =
      "accept_any_hostname = TRUE\n"
      "HARD_CLOSE_TCP_IP_CONNECTION = off\n"
      "PDU_MAXIMUM_LENGTH = 100000\n"
      "LOCAL_APPL_CONTEXT_NAME = 1.2.3\n"
      "[Dul_Parms]\nARTIM_TIMEOUT = -5\nWRITE_TIMEOUT = 0\n"
      "[TRANSPORT_PARMS]\nTCPIP_LISTEN_PORT = 11112\nCAPTURE_FILE = $(VEXALTEST_FOLDER)/x.cap\n"
      "[MEDIA_PARMS]\nEXPORT_UNDEFINED_LENGTH_SQ_IN_DICOMDIR = 0\n"
      "[MESSAGE_PARMS]\nTEMP_FILE_DIRECTORY = %VEXALTEST_FOLDER%\nALLOW_DUPLICATE_CREATOR_CODES = 1\n"
      "RLE_SYNTAX = 1.2.3\nNO_SUCH_KEY = 5\n";
  ASSERT_EQ(load(), VX_NORMAL_COMPLETION);
  EXPECT_TRUE(config_bool(VX_CFG_ACCEPT_ANY_HOSTNAME));
  EXPECT_FALSE(config_bool(VX_CFG_HARD_CLOSE_TCP_IP_CONNECTION));
  EXPECT_EQ(config_long(VX_CFG_PDU_MAXIMUM_LENGTH), 100000);
  EXPECT_EQ(get_text(VX_CFG_LOCAL_APPL_CONTEXT_NAME), "1.2.3");
  EXPECT_EQ(config_int(VX_CFG_ARTIM_TIMEOUT), -5);
  EXPECT_EQ(config_int(VX_CFG_WRITE_TIMEOUT), 0);
  EXPECT_EQ(config_int(VX_CFG_TCPIP_LISTEN_PORT), 11112);
  EXPECT_EQ(get_text(VX_CFG_CAPTURE_FILE), "/some/where/x.cap");
  EXPECT_FALSE(config_bool(VX_CFG_EXPORT_UNDEFINED_LENGTH_SQ_IN_DICOMDIR));
  EXPECT_EQ(get_text(VX_CFG_TEMP_FILE_DIRECTORY), "/some/where");
  EXPECT_TRUE(config_bool(VX_CFG_ALLOW_DUPLICATE_CREATOR_CODES));
  EXPECT_EQ(get_text(VX_CFG_RLE_SYNTAX), "1.2.840.10008.1.2.5") << "not a key of that section";
  EXPECT_NE(log().find("Ignoring invalid option RLE_SYNTAX in"), std::string::npos);
  EXPECT_NE(log().find("Ignoring invalid option NO_SUCH_KEY in"), std::string::npos);
}

TEST_F(ProfileTest, BadNumbersFallBack) {
  const struct {
    const char* line;
    VX_INT_KEY key;
    int32_t value;
  } rows[] = {
      {"COMPRESSION_CHROM_FACTOR = -1", VX_CFG_COMPRESSION_CHROM_FACTOR, 32},
      {"COMPRESSION_J2K_LOSSY_QUALITY = 11", VX_CFG_COMPRESSION_J2K_LOSSY_QUALITY, 1},
      {"COMPRESSION_J2K_LOSSY_RATIO = 400", VX_CFG_COMPRESSION_J2K_LOSSY_RATIO, 400},
      {"DEFLATE_COMPRESSION_LEVEL = -1", VX_CFG_DEFLATE_COMPRESSION_LEVEL, -1},
      {"DEFLATE_COMPRESSION_LEVEL = 10", VX_CFG_DEFLATE_COMPRESSION_LEVEL, -1},
      {"DESIRED_LAST_PDU_SIZE = 17", VX_CFG_DESIRED_LAST_PDU_SIZE, 16},
      {"DESIRED_LAST_PDU_SIZE = 5", VX_CFG_DESIRED_LAST_PDU_SIZE, 6},
      {"DESIRED_LAST_PDU_SIZE = -2", VX_CFG_DESIRED_LAST_PDU_SIZE, 8},
      {"FLATE_GROW_OUTPUT_BUF_SIZE = 0", VX_CFG_FLATE_GROW_OUTPUT_BUF_SIZE, 1024},
      {"FLATE_GROW_OUTPUT_BUF_SIZE = 2147483647", VX_CFG_FLATE_GROW_OUTPUT_BUF_SIZE, 2147483646},
      {"LARGE_DATA_SIZE = 99999999999", VX_CFG_LARGE_DATA_SIZE, 2147483647},
      {"LARGE_DATA_SIZE = 0", VX_CFG_LARGE_DATA_SIZE, 200},
      {"LARGE_DATA_SIZE = 12x", VX_CFG_LARGE_DATA_SIZE, 200},
      {"LARGE_DATA_SIZE = 007", VX_CFG_LARGE_DATA_SIZE, 7},
      {"LIST_VALUE_LIMIT = 00", VX_CFG_LIST_VALUE_LIMIT, 0},
      {"WORK_BUFFER_SIZE = 1024", VX_CFG_WORK_BUFFER_SIZE, 28672},
      {"WORK_BUFFER_SIZE = 1025", VX_CFG_WORK_BUFFER_SIZE, 1026},
      {"WORK_BUFFER_SIZE = ", VX_CFG_WORK_BUFFER_SIZE, 28672},
      {"WORK_BUFFER_SIZE = -", VX_CFG_WORK_BUFFER_SIZE, 28672},
  };
  for (const auto& row : rows) {
    profile_text_ = std::string("[MESSAGE_PARMS]\n") + row.line + "\n";
    ASSERT_EQ(load(), VX_NORMAL_COMPLETION);
    EXPECT_EQ(config_int(row.key), row.value) << row.line;
  }
  EXPECT_NE(log().find("Invalid: \"WORK_BUFFER_SIZE = -\" - Using"), std::string::npos);
}

TEST_F(ProfileTest, LogSettingsOfTheIniFile) {
  const struct {
    const char* line;
    VX_INT_KEY key;
    int32_t value;
  } rows[] = {{"LOG_FILE_SIZE = 9", VX_CFG_LOG_FILE_SIZE, 10},
              {"LOG_MEMORY_SIZE = 0", VX_CFG_LOG_MEMORY_SIZE, 1},
              {"LOG_FILE_LINE_LENGTH = 255", VX_CFG_LOG_FILE_LINE_LENGTH, 78},
              {"log_file_line_length = 254", VX_CFG_LOG_FILE_LINE_LENGTH, 254},
              {"NUM_HISTORICAL_LOG_FILES = -3", VX_CFG_NUM_HISTORICAL_LOG_FILES, 1},
              {"ARTIM_TIMEOUT = 3\n[Other]\nARTIM_TIMEOUT = 4", VX_CFG_ARTIM_TIMEOUT, 3}};
  for (const auto& row : rows) {
    ini_text_ = std::string(row.line) + "\n";
    ASSERT_EQ(load(), VX_NORMAL_COMPLETION);
    EXPECT_EQ(config_int(row.key), row.value) << row.line;
  }
  ini_text_ = "T1_MESSAGE = memory,File screen nonsense\nT2_MESSAGE = nonsense\nT3_MESSAGE=OFF,FILE\n";
  ASSERT_EQ(load(), VX_NORMAL_COMPLETION);
  EXPECT_EQ(destination(VX_CFG_T1_MESSAGE), 7U);
  EXPECT_EQ(destination(VX_CFG_T2_MESSAGE), 16U);
  EXPECT_EQ(destination(VX_CFG_T3_MESSAGE), 17U);
}

TEST_F(ProfileTest, StringRules) {
  const struct {
    const char* line;
    VX_STRING_KEY key;
    std::string value;
  } rows[] = {
      {"[MESSAGE_PARMS]\nCOMPRESSION_RGB_TRANSFORM_FORMAT = YBR_FULL",
       VX_CFG_COMPRESSION_RGB_TRANSFORM_FORMAT, "YBR_FULL"},
      {"[MESSAGE_PARMS]\nCOMPRESSION_RGB_TRANSFORM_FORMAT = ybr_full",
       VX_CFG_COMPRESSION_RGB_TRANSFORM_FORMAT, "YBR_FULL_422"},
      {"[MESSAGE_PARMS]\nLARGE_DATA_STORE = file system", VX_CFG_LARGE_DATA_STORE, "FILE"},
      {"[MESSAGE_PARMS]\nLARGE_DATA_STORE = x", VX_CFG_LARGE_DATA_STORE, "MEM"},
      {"[MESSAGE_PARMS]\nNULL_TYPE3_VALIDATION = warning", VX_CFG_NULL_TYPE3_VALIDATION, "WARN"},
      {"[MESSAGE_PARMS]\nNULL_TYPE3_VALIDATION = x", VX_CFG_NULL_TYPE3_VALIDATION, "ERR"},
      {"[MESSAGE_PARMS]\nUNKNOWN_VR_CODE = OB", VX_CFG_UNKNOWN_VR_CODE, "OB"},
      {"[MESSAGE_PARMS]\nUNKNOWN_VR_CODE = ob", VX_CFG_UNKNOWN_VR_CODE, "UN"},
      {"[TRANSPORT_PARMS]\nIP_TYPE = ipv6", VX_CFG_IP_TYPE, "IPV6"},
      {"[TRANSPORT_PARMS]\nIP_TYPE = ipv5", VX_CFG_IP_TYPE, "AVAILABLE"},
      {"IMPLEMENTATION_VERSION = 12345678901234567", VX_CFG_IMPLEMENTATION_VERSION, "1234567890123456"},
      {"IMPLICIT_LITTLE_ENDIAN_SYNTAX = <none>", VX_CFG_IMPLICIT_LITTLE_ENDIAN_SYNTAX, "1.2.840.10008.1.2"},
      {"EXPLICIT_BIG_ENDIAN_SYNTAX = N/A", VX_CFG_EXPLICIT_BIG_ENDIAN_SYNTAX, ""},
      {"[TRANSPORT_PARMS]\nCAPTURE_FILE = ", VX_CFG_CAPTURE_FILE, "./vexal.cap"},
      {"[TRANSPORT_PARMS]\nCAPTURE_FILE = $(VEXALTEST_UNSET)/x", VX_CFG_CAPTURE_FILE, "./vexal.cap"},
      {"[MESSAGE_PARMS]\nDECODER_TAG_FILTER = A[00100010", VX_CFG_DECODER_TAG_FILTER, ""},
  };
  for (const auto& row : rows) {
    profile_text_ = std::string(row.line) + "\n";
    ASSERT_EQ(load(), VX_NORMAL_COMPLETION) << row.line;
    EXPECT_EQ(get_text(row.key), row.value) << row.line;
  }
}

TEST_F(ProfileTest, WhatStopsTheLoad) {
  const struct {
    std::string* file;
    std::string text;
  } rows[] = {
      {&profile_text_, "ACCEPT_LIST_OF_APPLICATION_TITLES = FINE,SEVENTEEN_LETTERS\n"},
      {&profile_text_, "LOCAL_APPL_CONTEXT_NAME = " + std::string(260, '1') + "\n"},
      {&applications_text_, "[A]\nHOST_NAME = " + std::string(80, 'h') + "\n"},
      {&services_text_, "[SERVICE_TABLE]\nA = 1\n[0001]\nSOP_CLASS_1 = 2\nSOP_CLASSES_INCLUDED = 1\n"},
      {&ini_text_, "VEXALKIT_3_PROFILE = none\n"},
      {&ini_text_, "VEXALKIT_3_PROFILE = /\n"},  // opens, and can not be read
      {&ini_text_, "LOG_FILE = $(VEXALTEST_UNSET)/x\n"},
      {&ini_text_, "VEXALKIT_3_PROFILE = /no/such/file\n"},
  };
  for (const auto& row : rows) {
    const std::string good = std::exchange(*row.file, row.text);
    EXPECT_EQ(load(), VX_CONFIG_INFO_ERROR) << row.text;
    *row.file = good;
  }
  EXPECT_NE(log().find("Error opening vexalkit system profile:"), std::string::npos);
  EXPECT_EQ(load(), VX_NORMAL_COMPLETION);
}

TEST_F(ProfileTest, Expansion) {
  ASSERT_EQ(load(), VX_NORMAL_COMPLETION);
  const std::string here = folder().path() + "/";
  const struct {
    const char* value;
    std::string expanded;  // "!" for a failure
  } rows[] = {{"plain/path", "plain/path"},
              {"$(VX3INIDIR)/x.pro", here + "x.pro"},
              {"%VX3INIDIR%\\x.pro", here + "x.pro"},
              {"$(VX3INIDIR)//x.pro", here + "/x.pro"},
              {"$(VX3INIDIR)", here},
              {"$(VEXALTEST_FOLDER)/x", "/some/where/x"},
              {"%VEXALTEST_FOLDER%x", "/some/wherex"},
              {"$(VEXALTEST_FOLDER)/a$(VEXALTEST_FOLDER)", "!"},
              {"$(VEXALTEST_UNSET)/x", "!"},
              {"before$(VEXALTEST_FOLDER)", "!"},
              {"%", "!"}};
  for (const auto& row : rows) {
    std::string expanded;
    const bool done = expand_path(row.value, expanded);
    EXPECT_EQ(done ? expanded : "!", row.expanded) << row.value;
  }
  std::string expanded;
  EXPECT_FALSE(expand_path(("$(VX3INIDIR)/" + std::string(260, 'x')).c_str(), expanded));
  EXPECT_TRUE(has_log("File name length exceeds the limit"));
  VX_Library_Release();
  EXPECT_TRUE(expand_path("$(VX3INIDIR)/x", expanded));
  EXPECT_EQ(expanded, "x") << "without an ini file the path is relative";
}

TEST_F(ProfileTest, IniFileIsFoundByVariableAndAlongThePath) {
  write_configuration();
  const auto start = [] { return VX_Library_Initialization(nullptr, nullptr, nullptr); };
  const std::string path = std::getenv("PATH");
  VX_Set_VexalINI(nullptr);
  ::unsetenv("VEXAL_INI");
  ::setenv("PATH", ("/no/such/folder::" + folder().path()).c_str(), 1);
  EXPECT_EQ(start(), VX_NORMAL_COMPLETION);
  EXPECT_EQ(get_text(VX_CFG_LOG_FILE), folder().path("test.log"));
  VX_Library_Release();
  ::setenv("PATH", "/no/such/folder", 1);
  if (!std::filesystem::exists("/etc/vexal.ini")) {
    // What lies beside the library, which here is part of this program.
    EXPECT_EQ(start(), VX_NORMAL_COMPLETION);
    EXPECT_EQ(get_text(VX_CFG_MSG_INFO_FILE), VEXAL_BINARY_DIR "/share/vexalkit/vexalkit.msg");
    VX_Library_Release();
  }
  ::setenv("VEXAL_INI", ini().c_str(), 1);
  EXPECT_EQ(start(), VX_NORMAL_COMPLETION);
  VX_Library_Release();
  ::unsetenv("VEXAL_INI");
  ::setenv("PATH", path.c_str(), 1);
  ::setenv("VEXALTEST_INI", folder().path().c_str(), 1);
  VX_Set_VexalINI("$(VEXALTEST_INI)/vexal.ini");
  EXPECT_EQ(start(), VX_NORMAL_COMPLETION);
  VX_Library_Release();
  VX_Set_VexalINI("$(VEXALTEST_UNSET)/vexal.ini");
  EXPECT_EQ(start(), VX_NO_VEXAL_INI);
  // With the mark that some editors put first.
  folder().write("vexal.ini", "\xEF\xBB\xBF" + folder().read("vexal.ini"));
  VX_Set_VexalINI(ini().c_str());
  EXPECT_EQ(start(), VX_NORMAL_COMPLETION);
  VX_Library_Release();
  // A relative name: the working directory is the ini file's folder.
  const std::string before = std::filesystem::current_path();
  std::filesystem::current_path(folder().path());
  VX_Set_VexalINI("vexal.ini");
  EXPECT_EQ(start(), VX_NORMAL_COMPLETION);
  std::filesystem::current_path(before);
  EXPECT_EQ(get_text(VX_CFG_LOG_FILE), folder().path("test.log"));
}

TEST_F(ProfileTest, ListingShowsWhatWasLoaded) {
  ini_text_ = "T6_MESSAGE = FILE\nLOG_FILE_SIZE = 2000\nT1_MESSAGE = MEMORY,SCREEN\n";
  ASSERT_EQ(load(), VX_NORMAL_COMPLETION);
  const std::string text = log();
  std::size_t at = 0;
  // In this order; lines of a record end in blanks.
  for (const char* line : {"VexalKit, Version 5.3.0, ",
                           "VexalKit for ",
                           "=== VEXAL_INI === ",
                           "[VexalKit3] ",
                           "|  VEXALKIT_3_PROFILE = ",
                           "|  LOG_FILE_SIZE = 2000 ",
                           "|  LOG_FILE = ",
                           "|  LOG_FILE_BACKUP = No ",
                           "|  ERROR_MESSAGE = File ",
                           "|  T1_MESSAGE = Mem, Screen ",
                           "=== ",
                           "[ASSOC_PARMS] ",
                           "|  PDU_MAXIMUM_LENGTH = 64234 ",
                           "|  ACCEPT_DIFFERENT_VERSION = Yes ",
                           "[MEDIA_PARMS] ",
                           "[SERVICE_TABLE] ",
                           "|  NUMBER_OF_SERVICES_SUPPORTED = 7 ",
                           "|  STANDARD_ECHO = 0001 ",
                           "[0004] ",
                           "|  NAME = STUDY_ROOT_QR_FIND ",
                           "|  COMMAND_5 = C_CANCEL_RQ ",
                           "|  TYPE = META ",
                           "|  SOP_CLASSES_INCLUDED = 1 ",
                           "|  SOP_CLASS_1 = 0005 ",
                           "[ITEM_TABLE] ",
                           "|  REF_IMAGE = 0501 ",
                           "[VEXAL_SCP] ",
                           "PORT_NUMBER = 11112 ",
                           "SYNTAX_LIST_1 = Plain_Syntaxes ",
                           "SYNTAX_1 = EXPLICIT_LITTLE_ENDIAN "}) {
    const std::size_t found = text.find(std::string("T6: ") + line, at);
    ASSERT_NE(found, std::string::npos) << line;
    at = found;
  }
  EXPECT_EQ(text.find("ACCEPT_ANY_PROTOCOL_VERSION"), std::string::npos) << "not a listed key";
}

}  // namespace
}  // namespace vx
