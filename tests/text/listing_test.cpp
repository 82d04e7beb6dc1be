#include "text/listing.h"

#include "codec/streams.h"
#include "objects.h"

namespace {

using namespace streams;
using support::LibraryTest;

class Listing : public LibraryTest {
 protected:
  std::string profile_lines() override { return "LARGE_DATA_SIZE = 200\n"; }
  std::string list(int32_t id) const {
    VX_List_Message(id, folder().path("list.txt").c_str());
    return folder().read("list.txt");
  }
  // Lines of the log at level T2, without what stands before their text.
  static std::vector<std::string> list_to_log(int32_t id) {
    VX_Set_Log_Destination(VX_CFG_T2_MESSAGE, VX_LOG_TO_MEMORY);
    clear_log();
    vx::list_object(id, nullptr);
    std::vector<std::string> lines;
    for (const std::string& line : log_lines()) {
      lines.push_back(line.substr(line.find(") ") == std::string::npos ? 0 : line.find(") ") + 2));
      while (!lines.back().empty() && (lines.back().back() == ' ' || lines.back().back() == '\n')) {
        lines.back().pop_back();
      }
    }
    return lines;
  }
};

const std::string kRule(66, '=');

TEST_F(Listing, AnEmptyMessage) {
  const Object message;
  const std::string id = std::to_string(static_cast<int32_t>(message));
  EXPECT_EQ(list(message), kRule + "\nMESSAGE ID: " + id +
                               "\n     Service Supported: (Unknown Service)\n     Command Supported: (null)\n"
                               "MESSAGE has no attributes.\n===== End of MESSAGE ID: " +
                               id + " =====\n");
  EXPECT_EQ(list(99), "Invalid message/item ID: 99\n");
}

TEST_F(Listing, EveryKindOfValue) {
  const Object message;
  VX_Set_Service_Command(message, "STANDARD_CT", C_STORE_RQ);
  objects::edit(message, "00080008=ORIGINAL\\;00100010=;00204000=one\x01" + std::string(110, 'x') +
                             ";00280009=00181063\\7FE00010;0072007A=-5");
  VX_Set_Value_From_Buffer(message, 0x7FE00010, "abcd", 4);
  objects::edit(message, "00990011#U\xFF");
  VX_Add_Private_Block(message, "ACME 1.0", 0x0009);
  VX_Add_Private_Attribute(message, "ACME 1.0", 0x0009, 0x02, VX_VR_US);
  VX_Set_pValue_From_Int(message, "ACME 1.0", 0x0009, 0x02, 3);
  VX_Add_Standard_Attribute(message, 0x00100020);  // nothing to show
  const std::string all = list(message);
  const std::string name(50, ' ');
  const auto title = [&](const std::string& tag, std::string text, const std::string& rest) {
    text.resize(50, ' ');
    return tag + " " + text + " VR: " + rest + "\n";
  };
  const std::string expected =
      title("0008,0008", "Image Type", "CS  VM: 2-n") + "          (0000008) |ORIGINAL\\<null>|\n" +
      title("0009,0010", "Private creator code", "LO  VM: 1") + "          (0000008) |ACME 1.0|\n" +
      title("0009,1002", "Private Numbers", "US  VM: 1-n") + "          (0000002) |3|\n" +
      title("0010,0010", "Patient's Name", "PN  VM: 1") + "          (0000000) |<null>|\n" +
      title("0020,4000", "Image Comments", "LT  VM: 1") + "          (0000114) |one\\x01" +
      std::string(43, 'x') + "|\n                    |" + std::string(50, 'x') + "|\n                    |" +
      std::string(17, 'x') + "|\n" + title("0028,0009", "Frame Increment Pointer", "AT  VM: 1-n") +
      "          (0000008) |18,1063\\7fe0,0010|\n" + title("0072,007A", "Test Signed Shorts", "SS  VM: 1-n") +
      "          (0000002) |-5|\n" + title("0099,0011", "Private creator code", "UN  VM: 1");
  EXPECT_NE(all.find("     Service Supported: STANDARD_CT (0002)\n     Command Supported: C_STORE_RQ\n"),
            std::string::npos);
  EXPECT_NE(all.find(title("7FE0,0010", "Pixel Data", "OW  VM: 1") +
                     "          (0000004) |<OB, OW, OL, OD or OF data>|\n"),
            std::string::npos);
  EXPECT_NE(all.find("|U\\xFF|"), std::string::npos);
  EXPECT_EQ(all.find("Patient ID"), std::string::npos);
  const std::size_t start = all.find("0008,0008");
  ASSERT_NE(start, std::string::npos);
  EXPECT_EQ(all.substr(start, expected.find("0099,0011")), expected.substr(0, expected.find("0099,0011")));

  set_int(VX_CFG_LIST_VALUE_LIMIT, 1);
  set_bool(VX_CFG_LIST_UN_ATTRIBUTES, false);
  set_bool(VX_CFG_EXPORT_PRIVATE_ATTRIBUTES_TO_NETWORK, false);
  const std::string less = list(message);
  EXPECT_EQ(less.find("|" + std::string(17, 'x') + "|"), std::string::npos);
  EXPECT_NE(less.find("|" + std::string(50, 'x') + "|"), std::string::npos);
  EXPECT_EQ(less.find("0009,"), std::string::npos);
}

TEST_F(Listing, SequencesDownToTheirLimit) {
  constexpr int kDepth = 8;  // beyond what the indentation can tell
  const Object message;
  int32_t holder = message, first = -1;
  for (int depth = 1; depth <= kDepth; ++depth) {
    int32_t item = -1;
    VX_Open_Empty_Item(&item);
    VX_Set_Value_From_String(item, 0x00100020, ("depth " + std::to_string(depth)).c_str());
    VX_Set_Value_From_Int(holder, depth == 1 ? 0x00081140 : 0x0040A730, item);
    if (depth == 1) first = item;
    holder = item;
  }
  const std::string item = "Item " + std::to_string(first) + " of MESSAGE ";
  const std::string all = list(message);
  EXPECT_NE(all.find("    " + kRule + "\n    <Sequence: " + item), std::string::npos);
  EXPECT_NE(all.find("\n        0010,0020 Patient ID"), std::string::npos) << "four blanks a level";
  EXPECT_EQ(all.find(std::string(21, ' ') + "0010,0020"), std::string::npos) << "at most 20";
  EXPECT_NE(all.find("(continued)"), std::string::npos);
  for (const int limit : {1, kDepth - 1, kDepth}) {
    set_int(VX_CFG_LIST_SQ_DEPTH_LIMIT, limit);
    const std::string text = list(message);
    EXPECT_NE(text.find("<Sequence: " + item), std::string::npos);
    for (int depth = 1; depth <= kDepth; ++depth) {
      const bool listed = text.find("|depth " + std::to_string(depth) + "|") != std::string::npos;
      EXPECT_EQ(listed, depth <= limit) << limit << " " << depth;
    }
  }
}

TEST_F(Listing, LinesOfTheLog) {
  const Object message;
  VX_Set_Value_From_String(message, 0x00100020, "ID");
  VX_Set_Value_From_String(message, 0x00204000, std::string(80, 'x').c_str());
  int32_t item = -1;
  VX_Open_Empty_Item(&item);
  VX_Set_Value_From_Int(message, 0x00081140, item);
  std::string all;
  for (const std::string& line : list_to_log(message)) all += line + "\n";
  EXPECT_NE(all.find(std::string(50, '=') + "\n"), std::string::npos);
  EXPECT_EQ(all.find(std::string(51, '=')), std::string::npos);
  EXPECT_NE(all.find("0010,0020 LO |ID|             (  2)Patient ID\n"), std::string::npos) << all;
  EXPECT_NE(all.find("0020,4000 LT |" + std::string(15, 'x') + "|( 80)Image Comments\n"), std::string::npos);
  EXPECT_NE(all.find("    |" + std::string(60, 'x') + "|\n"), std::string::npos);
  EXPECT_NE(all.find("    |" + std::string(5, 'x') + "|\n"), std::string::npos);
  EXPECT_NE(all.find("0008,1140 SQ ||                (  1)Referenced Image Sequence"), std::string::npos)
      << all;
}

TEST_F(Listing, FilesShowNameAndPreamble) {
  int32_t id = -1;
  VX_Create_Empty_File(&id, "some.dcm");
  VX_Set_File_Preamble(id, std::string(128, '\x41').c_str());
  VX_List_File(id, folder().path("file.txt").c_str());
  const std::string all = folder().read("file.txt");
  std::string row;
  for (int i = 0; i < 32; ++i) row += "41";
  EXPECT_NE(all.find("     Filename: some.dcm\n     Prefix: " + row + "\n             " + row + "\n"),
            std::string::npos);
  VX_Free_File(&id);
}

TEST_F(Listing, LifeOfObjects) {
  VX_Set_Log_Destination(VX_CFG_T1_MESSAGE, VX_LOG_TO_MEMORY);
  set_bool(VX_CFG_MSG_FILE_ITEM_OBJ_TRACE, true);
  int32_t item = -1;
  VX_Open_Empty_Item(&item);
  const std::string id = "ITEM " + std::to_string(item);
  {
    const Object message;
    VX_Set_Value_From_Int(message, 0x00081140, item);
  }
  EXPECT_TRUE(has_log(id + " was created"));
  EXPECT_TRUE(has_log(id + " has 1 references"));
  EXPECT_TRUE(has_log(id + " was freed"));
}

}  // namespace
