#include "frame/library.h"

#include <cstring>
#include <filesystem>

#include "config/config.h"
#include "frame/pool.h"
#include "frame/state.h"
#include "support.h"

namespace vx {
namespace {

class LibraryLifeTest : public support::LibraryTest {
 protected:
  void SetUp() override { write_configuration(); }
  VX_STATUS initialize() {
    VX_Set_VexalINI(ini().c_str());
    return VX_Library_Initialization(nullptr, nullptr, nullptr);
  }
};

TEST_F(LibraryLifeTest, CallsOutOfTurnAreRefused) {
  char version[8] = "";
  int32_t id = 7;
  EXPECT_EQ(VX_Library_Reset(), VX_LIBRARY_NOT_INITIALIZED);
  EXPECT_EQ(VX_Library_Release(), VX_LIBRARY_NOT_INITIALIZED);
  EXPECT_EQ(VX_Register_Application(&id, "A"), VX_LIBRARY_NOT_INITIALIZED);
  EXPECT_EQ(id, 7) << "nothing is written";
  EXPECT_EQ(VX_Set_Int_Config_Value(VX_CFG_LOG_FILE_SIZE, 20), VX_LIBRARY_NOT_INITIALIZED);
  EXPECT_EQ(VX_Get_Version_String(5, version), VX_BUFFER_TOO_SMALL);
  EXPECT_EQ(VX_Get_Version_String(6, nullptr), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Get_Version_String(6, version), VX_NORMAL_COMPLETION);
  EXPECT_STREQ(version, "5.3.0");
  ASSERT_EQ(initialize(), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Library_Initialization(nullptr, nullptr, nullptr), VX_LIBRARY_ALREADY_INITIALIZED);
  EXPECT_EQ(VX_Set_VexalINI("x"), VX_LIBRARY_ALREADY_INITIALIZED);
  EXPECT_EQ(VX_Library_Release(), VX_NORMAL_COMPLETION);
  EXPECT_EQ(recorded_ini_path(), nullptr);
  EXPECT_EQ(VX_Register_Application(&id, "A"), VX_LIBRARY_NOT_INITIALIZED);
  ASSERT_EQ(initialize(), VX_NORMAL_COMPLETION) << "it may start again";
}

TEST_F(LibraryLifeTest, ResetVoidsHandlesAndSettings) {
  ASSERT_EQ(initialize(), VX_NORMAL_COMPLETION);
  int32_t id = -1;
  ASSERT_EQ(VX_Register_Application(&id, "A"), VX_NORMAL_COMPLETION);
  set_int(VX_CFG_ARTIM_TIMEOUT, 77);
  set_text(VX_CFG_IMPLEMENTATION_VERSION, "CHANGED");
  ASSERT_EQ(VX_Library_Reset(), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Release_Application(&id), VX_INVALID_APPLICATION_ID);
  EXPECT_EQ(get_int(VX_CFG_ARTIM_TIMEOUT), 30);
  EXPECT_EQ(get_text(VX_CFG_IMPLEMENTATION_VERSION), "");
  EXPECT_EQ(VX_Register_Application(&id, "A"), VX_NORMAL_COMPLETION);
  EXPECT_EQ(id, 1001) << "counters start over";
}

TEST_F(LibraryLifeTest, AFailedStartLeavesRoomForAnother) {
  VX_Set_VexalINI(folder().path("nowhere.ini").c_str());
  EXPECT_EQ(VX_Library_Initialization(nullptr, nullptr, nullptr), VX_NO_VEXAL_INI);
  EXPECT_EQ(VX_Library_Release(), VX_LIBRARY_NOT_INITIALIZED);
  // The second one fails later, after settings have been stored.
  std::filesystem::remove(folder().path("test.srv"));
  EXPECT_EQ(initialize(), VX_CONFIG_INFO_ERROR);
  EXPECT_EQ(VX_Library_Release(), VX_LIBRARY_NOT_INITIALIZED);
  folder().write("test.srv", services());
  ASSERT_EQ(initialize(), VX_NORMAL_COMPLETION);
}

TEST_F(LibraryLifeTest, NoServiceMeansNoConfigurationButAnInitialisedLibrary) {
  folder().write("test.srv", "[SERVICE_TABLE]\nNUMBER_OF_SERVICES_SUPPORTED = 0\n");
  EXPECT_EQ(initialize(), VX_CONFIG_INFO_ERROR);
  EXPECT_EQ(VX_Library_Initialization(nullptr, nullptr, nullptr), VX_LIBRARY_ALREADY_INITIALIZED);
  EXPECT_EQ(VX_Library_Release(), VX_NORMAL_COMPLETION);
}

TEST_F(LibraryLifeTest, ResetWithABrokenConfigurationFails) {
  ASSERT_EQ(initialize(), VX_NORMAL_COMPLETION);
  std::filesystem::remove(folder().path("vexal.ini"));
  EXPECT_EQ(VX_Library_Reset(), VX_CONFIG_INFO_ERROR);
  char buffer[8];
  EXPECT_EQ(VX_Get_String_Config_Value(VX_CFG_LARGE_DATA_STORE, 8, buffer), VX_NORMAL_COMPLETION)
      << "the library answers with defaults";
  EXPECT_EQ(VX_Library_Release(), VX_NORMAL_COMPLETION);
}

TEST_F(LibraryLifeTest, BannerAndNamedLocks) {
  const std::string before = std::filesystem::current_path();
  std::filesystem::current_path(folder().path());
  folder().write("vexal.ini", folder().read("vexal.ini") + "INFO_MESSAGE = FILE\n");
  ::setenv("SAVE_SEMAPHORES", "1", 1);
  EXPECT_EQ(initialize(), VX_NORMAL_COMPLETION);
  ::unsetenv("SAVE_SEMAPHORES");
  std::filesystem::current_path(before);
  const std::string log = folder().read("test.log");
  EXPECT_NE(log.find("VexalKit, Version 5.3.0, "), std::string::npos);
  EXPECT_NE(log.find("VexalKit for "), std::string::npos);
  const std::string locks = folder().read("semaphores");
  for (const char* name :
       {"malloc", "diction", "log", "sesObj", "appObj", "msgObj", "entityObj", "appInfoList",
        "syntaxListHead", "serviceListHead", "serviceNameListHead", "SRRecList", "ListenPortList",
        "DirModelInit", "capture", "charParam", "b4.", "ValTagObj."}) {
    EXPECT_NE(locks.find(std::string(" S.") + name + "Semaphore\n"), std::string::npos) << name;
  }
}

// Each allocation of a start fails once; the next start must find nothing in its way.
TEST_F(LibraryLifeTest, StartsFailCleanlyWithoutMemory) {
  for (uint64_t n = 1; n < 100000; ++n) {
    fail_allocation_after(n);
    const VX_STATUS status = initialize();
    const bool reached = status == VX_NORMAL_COMPLETION;
    fail_allocation_after(0);
    EXPECT_TRUE(reached || status == VX_CONFIG_INFO_ERROR || status == VX_SYSTEM_ERROR ||
                status == VX_DDFILE_ERROR)
        << status;
    VX_Library_Release();
    if (reached) return;
  }
  FAIL() << "the library never started";
}

TEST_F(LibraryLifeTest, SettingsWithoutMemoryAreRefusedAndEmpty) {
  ASSERT_EQ(initialize(), VX_NORMAL_COMPLETION);
  set_text(VX_CFG_IMPLEMENTATION_CLASS_UID, "1.2.3");
  fail_allocation_after(1);
  EXPECT_EQ(VX_Set_String_Config_Value(VX_CFG_IMPLEMENTATION_CLASS_UID, "1.2.4"), VX_CANNOT_COMPLY);
  EXPECT_EQ(get_text(VX_CFG_IMPLEMENTATION_CLASS_UID), "");
  int32_t id = 5;
  ASSERT_EQ(VX_Register_Application(&id, "FIRST"), VX_NORMAL_COMPLETION);
  for (uint64_t n = 1; n <= 2; ++n) {
    fail_allocation_after(n);
    EXPECT_EQ(VX_Register_Application(&id, "SECOND"), VX_SYSTEM_ERROR);
    EXPECT_EQ(id, -1);
  }
  EXPECT_EQ(VX_Register_Application(&id, "SECOND"), VX_NORMAL_COMPLETION);
}

// ---- Ready-built records ----

ConfigRecord g_supplied;

ConfigRecord* supply() {
  return &g_supplied;
}

class SuppliedRecordTest : public LibraryLifeTest {
 protected:
  void SetUp() override {
    LibraryLifeTest::SetUp();
    // A copy of what the loader makes, as a tool would generate it.
    g_supplied = config();
    static const char* const names[] = {"STANDARD_CT"};
    static const char* const uids[] = {"1.2.840.10008.5.1.4.1.1.2"};
    static const uint32_t commands[] = {3};
    static const int32_t numbers[] = {2};
    static const int32_t kinds[] = {30};
    static const int32_t counts[] = {1};
    static const int32_t* const members[] = {numbers};
    g_supplied.version = VX_BUILD_VERSION;
    g_supplied.service_count = 1;
    g_supplied.service_names = names;
    g_supplied.service_uids = uids;
    g_supplied.service_commands = commands;
    g_supplied.service_numbers = numbers;
    g_supplied.service_kinds = kinds;
    g_supplied.sop_class_counts = counts;
    g_supplied.sop_classes = members;
    dictionary_ = folder().path("test.dct");
    log_ = folder().path("supplied.log");
    g_supplied.string_values[VX_CFG_DICTIONARY_FILE] = dictionary_.c_str();
    g_supplied.string_values[VX_CFG_LOG_FILE] = log_.c_str();
    g_supplied.string_values[VX_CFG_ACCEPT_LIST_OF_APPLICATION_TITLES] = "ONE,TWO";
    g_supplied.string_values[VX_CFG_DECODER_TAG_FILTER] = "00100010";
    g_supplied.string_owned[VX_CFG_LOG_FILE] = 1;  // a mistake that must not make the library free it
  }

 private:
  std::string dictionary_, log_;
};

TEST_F(SuppliedRecordTest, ServesAndIsGivenBackAsItWas) {
  const ConfigRecord before = g_supplied;
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(VX_Library_Initialization(supply, nullptr, nullptr), VX_NORMAL_COMPLETION);
    EXPECT_EQ(&config(), &g_supplied);
    char name[64];
    EXPECT_EQ(VX_Get_VexalKit_Service("1.2.840.10008.5.1.4.1.1.2", name, sizeof name), VX_NORMAL_COMPLETION);
    EXPECT_STREQ(name, "STANDARD_CT");
    ASSERT_NE(config().accepted_titles, nullptr);
    EXPECT_STREQ(config().accepted_titles[1], "TWO");
    EXPECT_TRUE(filter_matches(0x00100010, 8));
    set_int(VX_CFG_ARTIM_TIMEOUT, 99);
    set_text(VX_CFG_IMPLEMENTATION_VERSION, "SET LATER");
    set_text(VX_CFG_LOG_FILE, folder().path("another.log"));
    if (round == 0) {
      ASSERT_EQ(VX_Library_Reset(), VX_NORMAL_COMPLETION);
      EXPECT_EQ(get_int(VX_CFG_ARTIM_TIMEOUT), 30);
    }
    ASSERT_EQ(VX_Library_Release(), VX_NORMAL_COMPLETION);
    EXPECT_EQ(std::memcmp(&before, &g_supplied, sizeof before), 0);
  }
}

TEST_F(SuppliedRecordTest, AnotherVersionIsRefused) {
  g_supplied.version = "VexalKit, Version 5.2.9";
  EXPECT_EQ(VX_Library_Initialization(supply, nullptr, nullptr), VX_INVALID_VERSION);
  EXPECT_EQ(VX_Library_Release(), VX_LIBRARY_NOT_INITIALIZED);
  g_supplied.version = nullptr;
  EXPECT_EQ(VX_Library_Initialization(supply, nullptr, nullptr), VX_NORMAL_COMPLETION);
  VX_Library_Release();
  EXPECT_EQ(VX_Library_Initialization([]() -> ConfigRecord* { return nullptr; }, nullptr, nullptr),
            VX_CONFIG_INFO_ERROR);
}

TEST_F(LibraryLifeTest, DictionaryRecordOfAnotherVersionLeavesTheLibraryInitialised) {
  VX_Set_VexalINI(ini().c_str());
  static const DictEntry* const chains[VX_DICTIONARY_CHAINS] = {};
  static DictionaryRecord record = {"of another kind", chains};
  const auto supplied = [] { return static_cast<const DictionaryRecord*>(&record); };
  EXPECT_EQ(VX_Library_Initialization(nullptr, supplied, nullptr), VX_INVALID_VERSION);
  EXPECT_EQ(VX_Library_Initialization(nullptr, nullptr, nullptr), VX_LIBRARY_ALREADY_INITIALIZED);
  EXPECT_EQ(VX_Library_Release(), VX_NORMAL_COMPLETION);
  record.version = VX_BUILD_VERSION;
  VX_Set_VexalINI(ini().c_str());
  EXPECT_EQ(VX_Library_Initialization(nullptr, supplied, nullptr), VX_NORMAL_COMPLETION);
  EXPECT_EQ(get_text(VX_CFG_DICTIONARY_ACCESS), "MEM");
}

}  // namespace
}  // namespace vx
