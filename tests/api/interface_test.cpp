// The one table of the interface, against the library: every function of it is exported, refuses to work
// before the start, and answers null pointers and dead handles with a status instead of a crash.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "vexalkit.h"

namespace {

struct Row {
  std::string name, family, handles, ownership, threads, needs_library;
};

std::vector<Row> read_table() {
  std::ifstream in(std::string(VEXAL_SOURCE_DIR) + "/include/vexalkit.map.tsv");
  std::vector<Row> rows;
  std::string line;
  bool header = true;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    if (header) {
      header = false;
      continue;
    }
    std::istringstream cells(line);
    Row row;
    for (std::string* cell :
         {&row.name, &row.family, &row.handles, &row.ownership, &row.threads, &row.needs_library}) {
      std::getline(cells, *cell, '\t');
    }
    rows.push_back(row);
  }
  return rows;
}

// Every argument of the interface is an integer, a pointer or a floating number; the first fourteen machine
// words cover the integers and pointers of the longest function, and a function ignores what it does not
// take.
using Generic = VX_STATUS (*)(intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t,
                              intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t);

VX_STATUS call(const Row& row, intptr_t first, intptr_t second, intptr_t rest) {
  void* symbol = dlsym(RTLD_DEFAULT, row.name.c_str());
  EXPECT_NE(symbol, nullptr) << row.name << " is not exported";
  if (symbol == nullptr) return VX_SYSTEM_ERROR;
  const auto function = reinterpret_cast<Generic>(symbol);
  return function(first, second, rest, rest, rest, rest, rest, rest, rest, rest, rest, rest, rest, rest);
}

TEST(Interface, EveryNameIsExported) {
  const auto rows = read_table();
  ASSERT_GT(rows.size(), 150U);
  for (const Row& row : rows) EXPECT_NE(dlsym(RTLD_DEFAULT, row.name.c_str()), nullptr) << row.name;
}

TEST(Interface, NothingWorksBeforeTheStart) {
  for (const Row& row : read_table()) {
    if (row.needs_library != "yes") continue;
    EXPECT_EQ(call(row, 0, 0, 0), VX_LIBRARY_NOT_INITIALIZED) << row.name;
  }
  EXPECT_STREQ(VX_Error_Message(VX_LIBRARY_NOT_INITIALIZED), "VX_Library_Initialization not called yet");
}

class RunningInterface : public testing::Test {
 protected:
  void SetUp() override {
    VX_Set_VexalINI((std::string(VEXAL_BINARY_DIR) + "/share/vexalkit/vexal.ini").c_str());
    ASSERT_EQ(VX_Library_Initialization(nullptr, nullptr, nullptr), VX_NORMAL_COMPLETION);
    VX_Set_String_Config_Value(VX_CFG_LOG_FILE, "/dev/null");
  }
  void TearDown() override { VX_Library_Release(); }
};

// The statuses that a call with only null pointers and unknown handles may give.
const std::set<VX_STATUS> kRefusals = {
    VX_NULL_POINTER_PARM,    VX_INVALID_APPLICATION_ID, VX_INVALID_MESSAGE_ID, VX_INVALID_ITEM_ID,
    VX_INVALID_FILE_ID,      VX_INVALID_PARAMETER_NAME, VX_INVALID_TAG,        VX_INVALID_TRANSFER_SYNTAX,
    VX_INVALID_VALUE_NUMBER, VX_BUFFER_TOO_SMALL,       VX_INVALID_PAD,        VX_INVALID_PRIVATE_CODE,
    VX_INVALID_GROUP,        VX_INVALID_ASSOCIATION_ID, VX_SYSTEM_ERROR,       VX_INVALID_PORT_NUMBER,
    VX_INVALID_DICOMDIR_ID,  VX_INVALID_RECORD_ID,      VX_INVALID_SR_ID,      VX_UNABLE_TO_GET_SR_ID,
};
// Calls that are right with these arguments.
const std::set<std::string> kFine = {
    "VX_Cleanup_Memory",       "VX_Library_Reset",           "VX_Library_Release",
    "VX_Set_Int_Config_Value", "VX_Set_Long_Config_Value",   "VX_Set_Bool_Config_Value",
    "VX_Set_Log_Destination",  "VX_Thread_Release",          "VX_Register_Network_Capture_Callbacks",
    "VX_Keep_Stream_Form",     "VX_Accept_Unknown_Contexts", "VX_Limit_Decoder"};

TEST_F(RunningInterface, NullPointersAndUnknownHandlesAreRefused) {
  for (const Row& row : read_table()) {
    if (row.needs_library != "yes" || kFine.count(row.name) != 0) continue;
    EXPECT_TRUE(kRefusals.count(call(row, 0, 0, 0)) != 0) << row.name << " with null arguments";
    if (row.handles == "object" || row.handles == "item" || row.handles == "file" ||
        row.handles == "directory" || row.handles == "record") {
      if (row.ownership != "-") continue;
      for (const intptr_t handle : {-1, 99, 123456, 0x7FFFFFFF}) {
        const VX_STATUS status = call(row, handle, 0, 0);
        EXPECT_TRUE(kRefusals.count(status) != 0) << row.name << " with handle " << handle << ": " << status;
      }
    }
  }
}

TEST_F(RunningInterface, AHandleOfTheWrongKindIsRefused) {
  int32_t message = -1, item = -1, file = -1;
  ASSERT_EQ(VX_Open_Empty_Message(&message), VX_NORMAL_COMPLETION);
  ASSERT_EQ(VX_Open_Empty_Item(&item), VX_NORMAL_COMPLETION);
  ASSERT_EQ(VX_Create_Empty_File(&file, "name"), VX_NORMAL_COMPLETION);
  char buffer[256];
  uint32_t length = 0;
  EXPECT_EQ(VX_Empty_Message(item), VX_INVALID_MESSAGE_ID);
  EXPECT_EQ(VX_Empty_Item(message), VX_INVALID_ITEM_ID);
  EXPECT_EQ(VX_Empty_File(message), VX_INVALID_MESSAGE_ID);
  EXPECT_EQ(VX_Empty_File(999999), VX_INVALID_FILE_ID);
  EXPECT_EQ(VX_Get_Filename(message, buffer, sizeof buffer), VX_INVALID_FILE_ID);
  EXPECT_EQ(VX_Get_File_Length(item, &length), VX_INVALID_FILE_ID);
  EXPECT_EQ(VX_File_To_Message(message), VX_INVALID_FILE_ID);
  EXPECT_EQ(VX_Message_To_File(file, "name"), VX_INVALID_MESSAGE_ID);
  EXPECT_EQ(VX_Set_Value_From_Int(message, 0x00081140, file), VX_INVALID_VALUE_FOR_VR);
  EXPECT_EQ(VX_Set_Service_Command(item, "STANDARD_CT", C_STORE_RQ), VX_INVALID_MESSAGE_ID);
  // Freed handles are dead.
  const int32_t dead = message;
  EXPECT_EQ(VX_Free_Message(&message), VX_NORMAL_COMPLETION);
  EXPECT_EQ(message, -1);
  int32_t count = 0;
  EXPECT_EQ(VX_Get_Value_Count(dead, 0x00100010, &count), VX_INVALID_MESSAGE_ID);
  int32_t again = dead;
  EXPECT_EQ(VX_Free_Message(&again), VX_INVALID_MESSAGE_ID);
  EXPECT_EQ(VX_Free_Item(&item), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Free_File(&file), VX_NORMAL_COMPLETION);
}

TEST(Lifecycle, MayRunAgainAndAgain) {
  for (int round = 0; round < 3; ++round) {
    VX_Set_VexalINI((std::string(VEXAL_BINARY_DIR) + "/share/vexalkit/vexal.ini").c_str());
    ASSERT_EQ(VX_Library_Initialization(nullptr, nullptr, nullptr), VX_NORMAL_COMPLETION);
    EXPECT_EQ(VX_Library_Initialization(nullptr, nullptr, nullptr), VX_LIBRARY_ALREADY_INITIALIZED);
    EXPECT_EQ(VX_Set_VexalINI("x"), VX_LIBRARY_ALREADY_INITIALIZED);
    int32_t id = -1;
    ASSERT_EQ(VX_Open_Empty_Message(&id), VX_NORMAL_COMPLETION);
    EXPECT_EQ(id, 100);
    ASSERT_EQ(VX_Library_Reset(), VX_NORMAL_COMPLETION);
    EXPECT_EQ(VX_Free_Message(&id), VX_INVALID_MESSAGE_ID);
    ASSERT_EQ(VX_Library_Release(), VX_NORMAL_COMPLETION);
    EXPECT_EQ(VX_Library_Release(), VX_LIBRARY_NOT_INITIALIZED);
  }
}

}  // namespace
