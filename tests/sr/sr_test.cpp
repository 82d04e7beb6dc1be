// Report trees and their nodes.
#include <functional>
#include <set>

#include "codec/streams.h"

namespace {

using namespace streams;
using support::LibraryTest;
namespace fs = std::filesystem;

constexpr VX_STATUS kOk = VX_NORMAL_COMPLETION;
constexpr uint32_t kContent = 0x0040A730;

class Report : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    ASSERT_EQ(begin_with_full_data(), kOk);
    ASSERT_EQ(VX_SRH_Create_SR("STANDARD_COMPREHENSIVE_SR", "1500", SRH_SEPARATE, "126000", "DCM",
                               "Imaging Measurement Report", &root_),
              kOk);
  }
  int32_t text(int32_t parent, const char* value = "text") {
    int32_t id = 0;
    EXPECT_EQ(VX_SRH_Add_TEXT_Child(parent, SRH_CONTAINS, "121071", "DCM", "Finding", value, &id), kOk);
    return id;
  }
  static std::string location(int32_t id, uint32_t size = 81) {
    char buffer[100] = "unset";
    EXPECT_EQ(VX_SR_Get_Location(id, size, buffer), kOk);
    return buffer;
  }
  static int32_t items(int32_t id) {
    int32_t count = 0;
    return VX_Get_Value_Count(id, kContent, &count) == kOk ? count : 0;
  }
  static std::vector<int32_t> children(int32_t id) {
    std::vector<int32_t> ids;
    int32_t child = 0, last = 0;
    for (VX_STATUS status = VX_SR_Get_First_Child(id, &child, &last); status == kOk && child != 0;
         status = VX_SR_Get_Next_Child(id, &child, &last)) {
      ids.push_back(child);
      if (last != 0) break;
    }
    return ids;
  }
  int32_t root_ = 0;
};

TEST_F(Report, PlacesFollowTheTree) {
  const int32_t a = text(root_);
  const int32_t b = text(root_);
  const int32_t c = text(root_);
  const int32_t below = text(b);
  EXPECT_EQ(location(root_) + location(a) + location(b) + location(c) + location(below), "11.11.21.31.2.1");
  EXPECT_EQ(location(below, 5), "1.2.");
  EXPECT_EQ(children(root_), (std::vector<int32_t>{a, b, c}));
  EXPECT_EQ(VX_SR_Add_Child(root_, a), VX_INVALID_ITEM_ID);
  int32_t id = 1, last = 0;
  EXPECT_EQ(VX_SR_Get_Next_Child(root_, &id, &last), kOk);
  EXPECT_EQ(id, 0);
  EXPECT_EQ(last, 1);
  EXPECT_EQ(VX_SR_Get_Root(below, &id), kOk);
  EXPECT_EQ(id, root_);
  EXPECT_EQ(VX_SR_Get_First_Child(a, &id, &last), kOk);
  EXPECT_EQ(id + last, 1);
  // What goes out stays whole, is the caller's, and can come back in.
  EXPECT_EQ(VX_SR_Delete_Child(root_), VX_INVALID_MESSAGE_ID);
  ASSERT_EQ(VX_SR_Delete_Child(b), kOk);
  EXPECT_EQ(VX_SR_Delete_Child(b), VX_INVALID_SR_ID);
  EXPECT_EQ(location(c), "1.2");
  EXPECT_EQ(items(root_), 2);
  EXPECT_EQ(items(b), 1);
  EXPECT_EQ(VX_SR_Get_Child_Count(below, &id), VX_UNABLE_TO_GET_SR_ID);
  ASSERT_EQ(VX_SR_Add_Child(root_, b), kOk);
  EXPECT_EQ(location(b), "1.3");
  ASSERT_EQ(VX_SR_Delete_Child(a), kOk);
  ASSERT_EQ(VX_SR_Delete_Child(b), kOk);
  EXPECT_EQ(children(root_), std::vector<int32_t>{c});
  ASSERT_EQ(VX_SR_Delete_Child(c), kOk);
  EXPECT_EQ(items(root_), 0);
  for (int32_t free : {a, b, c}) EXPECT_EQ(VX_Free_Item(&free), kOk);
  id = root_;
  EXPECT_EQ(VX_Free_Message(&id), VX_INVALID_MESSAGE_ID) << "part of a tree";
  EXPECT_EQ(VX_SRH_Free_SR(root_), kOk);
  EXPECT_EQ(VX_SRH_Free_SR(root_), VX_INVALID_SR_ID);
}

// Every level of the tree is an item in an item; neither walks nor the end of it may cost a stack.
TEST_F(Report, ManyLevels) {
  std::vector<int32_t> ids;
  int32_t parent = root_;
  for (int i = 0; i < 1000; ++i) ids.push_back(parent = text(parent));
  EXPECT_EQ(location(ids[38]).size(), 79U);
  EXPECT_EQ(location(ids[39]), "") << "81 characters";
  EXPECT_EQ(location(ids[998]), "");
  EXPECT_EQ(count_log("is greater than 80 characters.  Setting to NULL"), 1);
  int32_t id = 0;
  EXPECT_EQ(VX_SR_Get_Root(ids[999], &id), kOk);
  EXPECT_EQ(id, root_);
  // A reference goes as deep as the tree.
  ASSERT_EQ(VX_SRH_Add_Reference(root_, SRH_CONTAINS, ids[999]), kOk);
  ASSERT_EQ(VX_SR_To_Message(ids[998]), kOk);
  ASSERT_EQ(VX_Message_To_SR(root_), kOk);
  int32_t count = 0;
  EXPECT_EQ(VX_SR_Get_Child_Count(ids[998], &count), kOk);
  EXPECT_EQ(count, 1);
  const std::vector<int32_t> top = children(root_);
  ASSERT_EQ(top.size(), 2U);
  EXPECT_EQ(VX_Get_Value_Count(top[1], 0x0040DB73, &count), kOk);
  EXPECT_EQ(count, 1001);
  EXPECT_EQ(VX_SRH_Get_Reference(top[1], &id), kOk);
  EXPECT_EQ(id, ids[999]);
  // Half of it goes out, is the caller's, comes back in elsewhere, and goes by itself.
  ASSERT_EQ(VX_SR_Delete_Child(ids[500]), kOk);
  EXPECT_EQ(VX_SR_Get_Child_Count(ids[999], &count), VX_UNABLE_TO_GET_SR_ID);
  ASSERT_EQ(VX_SR_Add_Child(root_, ids[500]), kOk);
  EXPECT_EQ(location(ids[500]), "1.3");
  ASSERT_EQ(VX_SR_Delete_Child(ids[500]), kOk);
  id = ids[500];
  EXPECT_EQ(VX_Free_Item(&id), kOk);
  EXPECT_EQ(VX_Get_Value_Count(ids[999], kContent, &count), VX_INVALID_MESSAGE_ID);
  EXPECT_EQ(VX_SRH_Free_SR(root_), kOk);
  EXPECT_EQ(VX_Get_Value_Count(ids[499], kContent, &count), VX_INVALID_MESSAGE_ID);
}

TEST_F(Report, AnObjectThatIsFreedLeavesTheTree) {
  const int32_t a = text(root_);
  const int32_t b = text(a);
  set_bool(VX_CFG_RELEASE_SQ_ITEMS, true);
  ASSERT_EQ(VX_Set_Value_To_Empty(root_, kContent), kOk);
  int32_t count = -1;
  EXPECT_EQ(VX_Get_Value_Count(b, kContent, &count), VX_INVALID_MESSAGE_ID);
  EXPECT_EQ(VX_SR_Get_Child_Count(root_, &count), kOk);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(location(text(root_)), "1.1");
}

TEST_F(Report, MessagesAndTreesAreTheSameData) {
  const int32_t a = text(root_);
  text(a);
  ASSERT_EQ(VX_SR_To_Message(root_), kOk);
  const std::string before = encode(root_, EXPLICIT_LITTLE_ENDIAN);
  const Object copy(before);
  ASSERT_EQ(VX_Message_To_SR(copy), kOk);
  EXPECT_EQ(VX_Message_To_SR(copy), VX_INVALID_MESSAGE_ID);
  ASSERT_EQ(children(copy).size(), 1U);
  EXPECT_EQ(children(children(copy)[0]).size(), 1U);
  ASSERT_EQ(VX_SR_To_Message(copy), kOk);
  EXPECT_TRUE(encode(copy, EXPLICIT_LITTLE_ENDIAN) == before);
  // A message without content is a root alone.
  int32_t empty = -1, child = 1, last = 0;
  ASSERT_EQ(VX_Open_Empty_Message(&empty), kOk);
  ASSERT_EQ(VX_Message_To_SR(empty), kOk);
  EXPECT_EQ(VX_SR_Get_First_Child(empty, &child, &last), kOk);
  EXPECT_EQ(child, 0);
  EXPECT_EQ(VX_SRH_Free_SR(empty), kOk);
}

TEST_F(Report, EveryTypeOfNodeGivesBackWhatItTook) {
  int32_t id = 0, n = -1, count = 0;
  char a[80], b[80], c[80];
  ASSERT_EQ(VX_SRH_Add_CODE_Child(root_, SRH_HAS_CONCEPT_MOD, "121058", "DCM", "Procedure", "P5-09051", "SRT",
                                  "CT", &id),
            kOk);
  EXPECT_EQ(VX_SRH_Get_CODE_Data(id, a, 80, b, 80, c, 80), kOk);
  EXPECT_EQ(std::string(a) + b + c, "P5-09051SRTCT");
  EXPECT_EQ(VX_SRH_Set_Concept_Name(id, "121059", "DCM", "Other"), kOk);
  EXPECT_EQ(VX_SRH_Get_Concept_Name(id, a, 80, b, 80, c, 80), kOk);
  EXPECT_EQ(std::string(a) + b + c, "121059DCMOther");

  ASSERT_EQ(
      VX_SRH_Add_NUM_Child(root_, SRH_CONTAINS, "G-D7FE", "SRT", "Length", "12.5", "mm", "UCUM", "mm", &id),
      kOk);
  EXPECT_EQ(VX_SRH_Set_NUM_Qualifier(id, "114000", "DCM", "Not a number"), kOk);
  char value[20];
  EXPECT_EQ(VX_SRH_Get_NUM_Data(id, value, 20, &count, a, 80, b, 80, c, 80), kOk);
  EXPECT_EQ(std::string(value) + a + b + c + std::to_string(count), "12.5mmUCUMmm1");
  EXPECT_EQ(VX_SRH_Get_NUM_Next_Data(id, value, 20), VX_NO_MORE_VALUES);
  EXPECT_EQ(VX_SRH_Get_NUM_Qualifier(id, a, 80, b, 80, c, 80), kOk);
  EXPECT_STREQ(a, "114000");
  EXPECT_EQ(VX_SRH_Add_NUM_Child(root_, SRH_CONTAINS, "A", "B", "C", "1", "mm", nullptr, "mm", &id),
            VX_NULL_POINTER_PARM);
  ASSERT_EQ(VX_SRH_Create_NUM_Node("A", "B", "C", nullptr, nullptr, nullptr, nullptr, &id), kOk);
  EXPECT_EQ(VX_SRH_Get_NUM_Data(id, value, 20, &count, a, 80, b, 80, c, 80), kOk);
  EXPECT_EQ(std::string(value) + a, "");
  EXPECT_EQ(VX_SRH_Get_NUM_Data(root_, value, 20, &count, a, 80, b, 80, c, 80), VX_EMPTY_VALUE);

  ASSERT_EQ(VX_SRH_Add_SCOORD_Child(root_, SRH_CONTAINS, 1, 2, SRH_SPATIAL_POLYLINE, &id), kOk);
  EXPECT_EQ(VX_SRH_Set_SCOORD_Next_Data(id, 3.5F, 4), kOk);
  EXPECT_EQ(VX_SRH_Set_SCOORD3D_Next_Data(id, {1, 2, 3}), VX_INVALID_DATA_TYPE);
  float x = 0, y = 0;
  EXPECT_EQ(VX_SRH_Get_SCOORD_First_Data(id, &x, &y, &count, &n), kOk);
  EXPECT_TRUE(x == 1 && y == 2 && count == 2 && n == SRH_SPATIAL_POLYLINE);
  EXPECT_EQ(VX_SRH_Get_SCOORD_Next_Data(id, &x, &y), kOk);
  EXPECT_TRUE(x == 3.5F && y == 4);
  EXPECT_EQ(VX_SRH_Get_SCOORD_Next_Data(id, &x, &y), VX_NO_MORE_VALUES);
  EXPECT_EQ(VX_SRH_Create_SCOORD_Node(1, 2, 7, &id), VX_VALUE_NOT_ALLOWED);

  ASSERT_EQ(VX_SRH_Add_SCOORD3D_Child(root_, SRH_CONTAINS, "1.2.3", {1, 2, 3}, SRH_SPATIAL_POINT, &id), kOk);
  EXPECT_EQ(VX_SRH_Set_SCOORD_Next_Data(id, 1, 2), VX_INVALID_DATA_TYPE);
  EXPECT_EQ(VX_SRH_Set_SCOORD3D_Next_Data(id, {4, 5, 6}), kOk);
  char* frame = nullptr;
  SRH_XYZ point{};
  EXPECT_EQ(VX_SRH_Get_SCOORD3D_First_Data(id, &frame, &point, &count, &n), kOk);
  ASSERT_NE(frame, nullptr);
  EXPECT_STREQ(frame, "1.2.3");
  EXPECT_TRUE(point.Z == 3 && count == 2 && n == SRH_SPATIAL_POINT);
  EXPECT_EQ(VX_SRH_Get_SCOORD3D_Next_Data(id, &point), kOk);
  EXPECT_TRUE(point.X == 4 && point.Y == 5 && point.Z == 6);

  uint32_t position = 0;
  ASSERT_EQ(VX_SRH_Add_TCOORD_R_Child(root_, SRH_CONTAINS, 7, SRH_TEMPORAL_SEGMENT, &id), kOk);
  EXPECT_EQ(VX_SRH_Set_TCOORD_R_Next_Data(id, 9), kOk);
  EXPECT_EQ(VX_SRH_Set_TCOORD_O_Next_Data(id, "9"), VX_INVALID_DATA_TYPE);
  EXPECT_EQ(VX_SRH_Get_TCOORD_R_First_Data(id, &position, &count, &n), kOk);
  EXPECT_TRUE(position == 7 && count == 2 && n == SRH_TEMPORAL_SEGMENT);
  EXPECT_EQ(VX_SRH_Get_TCOORD_R_Next_Data(id, &position), kOk);
  EXPECT_EQ(position, 9U);
  ASSERT_EQ(VX_SRH_Add_TCOORD_O_Child(root_, SRH_CONTAINS, "0.5", SRH_TEMPORAL_POINT, &id), kOk);
  EXPECT_EQ(VX_SRH_Get_TCOORD_O_First_Data(id, a, 80, &count, &n), kOk);
  EXPECT_STREQ(a, "0.5");
  ASSERT_EQ(VX_SRH_Add_TCOORD_D_Child(root_, SRH_CONTAINS, "20200101", SRH_TEMPORAL_END, &id), kOk);
  EXPECT_EQ(VX_SRH_Get_NodeType(id, &n), kOk);
  EXPECT_EQ(n, SRH_TCOORD_D);
  ASSERT_EQ(VX_Set_Value_To_Empty(id, 0x0040A13A), kOk);
  EXPECT_EQ(VX_SRH_Get_NodeType(id, &n), VX_INCOMPATIBLE_VALUE);

  ASSERT_EQ(VX_SRH_Add_IMAGE_Child(root_, SRH_CONTAINS, "1.2.840.10008.5.1.4.1.1.2", "1.2.3", &id), kOk);
  const int32_t frames[] = {1, 5};
  int32_t out[2] = {};
  EXPECT_EQ(VX_SRH_Set_IMAGE_Frames(id, frames, 0), VX_VALUE_NOT_ALLOWED);
  EXPECT_EQ(VX_SRH_Set_IMAGE_Frames(id, frames, 2), kOk);
  EXPECT_EQ(VX_SRH_Get_IMAGE_Data(id, a, 80, b, 80, &count), kOk);
  EXPECT_EQ(std::string(b) + std::to_string(count), "1.2.32");
  EXPECT_EQ(VX_SRH_Get_IMAGE_Frames(id, out, 1), VX_BUFFER_TOO_SMALL);
  EXPECT_EQ(VX_SRH_Get_IMAGE_Frames(id, out, 2), kOk);
  EXPECT_EQ(out[1], 5);
  ASSERT_EQ(VX_SRH_Add_WAVEFORM_Child(root_, SRH_CONTAINS, "1.2", "1.2.4", &id), kOk);
  const uint16_t channels[] = {1, 2};
  uint16_t heard[2] = {};
  EXPECT_EQ(VX_SRH_Set_WAVEFORM_Channels(id, channels, 2), kOk);
  EXPECT_EQ(VX_SRH_Get_WAVEFORM_Channels(id, heard, 2), kOk);
  EXPECT_EQ(heard[1], 2);
  ASSERT_EQ(VX_SRH_Create_IMAGE_Node(nullptr, nullptr, &id), kOk);
  EXPECT_EQ(VX_Get_Value_Count(id, 0x00081199, &count), VX_INVALID_TAG);
  EXPECT_EQ(VX_SRH_Create_COMPOSITE_Node("1.2", nullptr, &id), VX_NULL_POINTER_PARM);

  EXPECT_EQ(VX_SRH_Get_CONTAINER_Data(root_, &n, a, 80), kOk);
  EXPECT_EQ(std::string(a) + std::to_string(n), "15000");
  EXPECT_EQ(VX_SRH_Add_CONTAINER_Child(root_, 7, SRH_SEPARATE, nullptr, &id), VX_VALUE_NOT_ALLOWED);
  ASSERT_EQ(VX_SRH_Create_CONTAINER_Node(SRH_CONTINUOUS, nullptr, &id), kOk);
  EXPECT_EQ(VX_SRH_Add_Child(root_, SRH_CONTAINS, &id), kOk);
  EXPECT_EQ(VX_SRH_Get_CONTAINER_Data(id, &n, a, 80), kOk);
  EXPECT_EQ(std::string(a) + std::to_string(n), "1");

  struct Simple {
    VX_STATUS (*create)(const char*, const char*, const char*, const char*, int32_t*);
    VX_STATUS (*get)(int32_t, char*, int32_t);
    const char* value;
    int32_t type;
  };
  const Simple simple[] = {
      {VX_SRH_Create_TEXT_Node, VX_SRH_Get_TEXT_Data, "words", SRH_TEXT},
      {VX_SRH_Create_DATETIME_Node, VX_SRH_Get_DATETIME_Data, "20200101120000", SRH_DATETIME},
      {VX_SRH_Create_DATE_Node, VX_SRH_Get_DATE_Data, "20200101", SRH_DATE},
      {VX_SRH_Create_TIME_Node, VX_SRH_Get_TIME_Data, "1200", SRH_TIME},
      {VX_SRH_Create_UIDREF_Node, VX_SRH_Get_UIDREF_Data, "1.2.3", SRH_UIDREF},
      {VX_SRH_Create_PNAME_Node, VX_SRH_Get_PNAME_Data, "Doe^Jane", SRH_PNAME},
  };
  for (const Simple& row : simple) {
    ASSERT_EQ(row.create(nullptr, nullptr, nullptr, row.value, &id), kOk);
    EXPECT_EQ(row.get(id, a, 80), kOk);
    EXPECT_STREQ(a, row.value);
    EXPECT_EQ(VX_SRH_Get_NodeType(id, &n), kOk);
    EXPECT_EQ(n, row.type);
    EXPECT_EQ(VX_SRH_Get_Concept_Name(id, a, 80, b, 80, c, 80), VX_INVALID_TAG);
  }
  EXPECT_EQ(VX_Set_Value_From_String(id, 0x0040A040, "TABLE"), kOk);
  EXPECT_EQ(VX_SRH_Get_NodeType(id, &n), VX_INCOMPATIBLE_VALUE);
}

// References stand among the items, but are no nodes until the report is read anew.
TEST_F(Report, ReferencesLeadBack) {
  const int32_t a = text(root_);
  ASSERT_EQ(VX_SRH_Add_Reference(root_, SRH_INFERRED_FROM, a), kOk);
  ASSERT_EQ(VX_SRH_Add_Reference(root_, SRH_INFERRED_FROM, a), kOk);
  const int32_t b = text(root_);
  const int32_t below = text(b);
  const int32_t c = text(root_);
  ASSERT_EQ(VX_SRH_Add_Reference(a, SRH_INFERRED_FROM, below), kOk);
  ASSERT_EQ(VX_SRH_Add_Reference(a, SRH_HAS_PROPERTIES, b), kOk);
  EXPECT_EQ(VX_SRH_Add_Reference(a, 7, below), VX_VALUE_NOT_ALLOWED);
  EXPECT_EQ(VX_SRH_Add_Reference(a, SRH_INFERRED_FROM, 1), VX_INVALID_SR_ID);
  EXPECT_EQ(location(below), "1.2.1");
  int32_t reference = 0, second = 0, target = 0;
  ASSERT_EQ(VX_Get_Value_To_Int(a, kContent, &reference), kOk);
  EXPECT_EQ(VX_SRH_Get_Reference(reference, &target), kOk);
  EXPECT_EQ(target, below);
  EXPECT_EQ(VX_SRH_Get_Reference(a, &target), VX_EMPTY_VALUE);

  ASSERT_EQ(VX_SR_To_Message(root_), kOk);
  ASSERT_EQ(VX_Message_To_SR(root_), kOk);
  int32_t relationship = -1, type = -1, last = 0;
  EXPECT_EQ(VX_SRH_Get_First_Child(a, &reference, &relationship, &type, &last), kOk);
  EXPECT_EQ(type, SRH_REFERENCE);
  EXPECT_EQ(relationship, SRH_INFERRED_FROM);
  EXPECT_EQ(last, 0);
  EXPECT_EQ(VX_SRH_Get_Next_Child(a, &second, &relationship, &type, &last), kOk);
  EXPECT_EQ(relationship, SRH_HAS_PROPERTIES);
  EXPECT_EQ(last, 1);
  EXPECT_EQ(location(below), "1.4.1");
  EXPECT_EQ(VX_SRH_Get_Reference(reference, &target), kOk);
  EXPECT_EQ(target, below);
  EXPECT_EQ(VX_SRH_Get_Reference(second, &target), kOk);
  EXPECT_EQ(target, b);
  int32_t none = 0;
  EXPECT_EQ(VX_SRH_Get_Next_Child(a, &none, &relationship, &type, &last), kOk);
  EXPECT_EQ(none, 0);
  // The numbers are places: what moves up is found in place of what went.
  ASSERT_EQ(VX_SR_Delete_Child(b), kOk);
  EXPECT_EQ(location(c), "1.4");
  EXPECT_EQ(VX_SRH_Get_Reference(second, &target), kOk);
  EXPECT_EQ(target, c);
  EXPECT_EQ(VX_SRH_Get_Reference(reference, &target), VX_VALUE_OUT_OF_RANGE);
  int32_t id = b;
  EXPECT_EQ(VX_Free_Item(&id), kOk);
}

// A stream may give the content sequence, and any other, the VR of a text.
TEST_F(Report, SequencesThatAreNone) {
  const Object message(elements({{0x0040A010, "CS", "CONTAINS"},
                                 {0x0040A300, "IS", "100 "},
                                 {0x0040A730, "UT", "text"},
                                 {0x0040DB73, "UL", {"\1\0\0\0\1\0\0\0", 8}}}));
  ASSERT_EQ(VX_Message_To_SR(message), kOk);
  int32_t target = 0, count = 0;
  char text[20];
  EXPECT_EQ(VX_SRH_Get_Reference(message, &target), VX_VALUE_OUT_OF_RANGE);
  EXPECT_EQ(VX_SRH_Get_NUM_Data(message, text, 20, &count, text, 20, text, 20, text, 20), VX_INCOMPATIBLE_VR);
  EXPECT_EQ(VX_SR_To_Message(message), kOk);
}

TEST_F(Report, EverySampleIsATreeAndTheSameDataAgain) {
  const fs::path folder = support::sample_folder() / "sr";
  if (!fs::is_directory(folder)) GTEST_SKIP() << "no samples in " << folder;
  int32_t app = -1;
  ASSERT_EQ(VX_Register_Application(&app, "REPORTS"), kOk);
  std::set<int32_t> types;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() != ".dcm") continue;
    SCOPED_TRACE(entry.path());
    const Object id(new_file);
    ASSERT_EQ(read_file(app, id, support::read_file(entry.path())), kOk);
    ASSERT_EQ(VX_File_To_Message(id), kOk);
    const std::string before = encode(id, EXPLICIT_LITTLE_ENDIAN);
    ASSERT_EQ(VX_Message_To_SR(id), kOk);
    std::size_t nodes = 0;
    std::function<void(int32_t)> visit = [&](int32_t node) {
      int32_t type = -1;
      EXPECT_EQ(VX_SRH_Get_NodeType(node, &type), kOk) << location(node);
      types.insert(type);
      int32_t target = 0;
      if (type == SRH_REFERENCE) {
        EXPECT_EQ(VX_SRH_Get_Reference(node, &target), kOk) << location(node);
        EXPECT_GT(target, 0);
      }
      EXPECT_EQ(static_cast<int32_t>(children(node).size()), items(node)) << location(node);
      ++nodes;
      for (const int32_t child : children(node)) visit(child);
    };
    visit(id);
    EXPECT_GT(nodes, 1U);
    ASSERT_EQ(VX_SR_To_Message(id), kOk);
    EXPECT_TRUE(encode(id, EXPLICIT_LITTLE_ENDIAN) == before);
  }
  EXPECT_GE(types.size(), 8U);
}

}  // namespace
