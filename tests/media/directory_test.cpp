// Directories in memory: built, written, read again, changed and sorted; and directories that lie.
#include <functional>
#include <map>

#include "codec/saved_data.h"
#include "media/media.h"

namespace {

using namespace media;

class Directory : public MediaTest {
 protected:
  void SetUp() override {
    MediaTest::SetUp();
    dir_ = new_directory();
    VX_Set_Value_From_String(dir_, 0x00020010, "1.2.840.10008.1.2.1");
  }
  struct Added {
    int32_t entity = 0, record = 0;
  };
  Added add_entity(int32_t parent, const char* name, VX_STATUS expected = VX_NORMAL_COMPLETION) const {
    Added added;
    EXPECT_EQ(VX_Dir_Add_Entity(dir_, parent, name, &added.entity, &added.record), expected);
    return added;
  }
  int32_t add(int32_t entity, const char* name, VX_STATUS expected = VX_NORMAL_COMPLETION) const {
    int32_t record = 0;
    EXPECT_EQ(VX_Dir_Add_Record(dir_, entity, name, &record), expected);
    return record;
  }
  // PATIENT > STUDY > SERIES > three images, and a patient alone.
  void build() {
    patients_ = add_entity(0, "DIR_REC_PATIENT");
    studies_ = add_entity(patients_.record, "DIR_REC_STUDY");
    series_ = add_entity(studies_.record, "DIR_REC_SERIES");
    images_ = add_entity(series_.record, "DIR_REC_IMAGE");
    image_2_ = add(images_.entity, "DIR_REC_IMAGE");
    image_3_ = add(images_.entity, "DIR_REC_IMAGE");
    patient_2_ = add(patients_.entity, "DIR_REC_PATIENT");
    VX_Set_Value_From_String(patients_.record, 0x00100010, "Zeta");
    VX_Set_Value_From_String(patient_2_, 0x00100010, "Alpha");
    VX_Set_Value_From_String(images_.record, 0x00200013, "10");
    VX_Set_Value_From_String(image_2_, 0x00200013, "2");
  }
  static std::string tree(int32_t id) { return whole_tree(id); }
  static int32_t reference(int32_t id, uint32_t tag) {
    int32_t value = -1;
    VX_Get_Value_To_Int(id, tag, &value);
    return value;
  }
  static int32_t records(int32_t id) {
    int32_t count = -1;
    VX_Get_Attribute_Info(id, 0x00041220, nullptr, &count);
    return count;
  }
  static int32_t total(int32_t id) {
    int32_t count = -1;
    VX_Dir_Root_Count(id, &count);
    return count;
  }
  int32_t dir_ = -1;
  Added patients_, studies_, series_, images_;
  int32_t image_2_ = 0, image_3_ = 0, patient_2_ = 0;
};

constexpr char kTree[] = "PATIENT Zeta(STUDY(SERIES(IMAGE 10,IMAGE 2,IMAGE))),PATIENT Alpha";

TEST_F(Directory, ANewOneHasNoRoot) {
  int32_t count = 0;
  EXPECT_EQ(VX_Dir_Root_Count(dir_, &count), VX_UNABLE_TO_GET_ITEM_ID);
  EXPECT_EQ(tree(dir_), "no root");
  EXPECT_EQ(VX_Dir_Sort(dir_), VX_UNABLE_TO_GET_ITEM_ID);
  const Object file(new_file);
  EXPECT_EQ(VX_Dir_Root_Count(file, &count), VX_INVALID_DICOMDIR_ID);
}

TEST_F(Directory, WrittenAndReadInEveryForm) {
  build();
  EXPECT_EQ(tree(dir_), kTree);
  int32_t mrdr = 0;
  ASSERT_EQ(VX_Dir_Open_MRDR(dir_, image_2_, "DIR_REC_MRDR", &mrdr), VX_NORMAL_COMPLETION);
  ASSERT_EQ(VX_Dir_Reference_MRDR(dir_, image_3_, mrdr), VX_NORMAL_COMPLETION);
  for (const char* syntax : {"1.2.840.10008.1.2.1", "1.2.840.10008.1.2", "1.2.840.10008.1.2.2"}) {
    for (const bool undefined : {false, true}) {
      for (const bool packed : {false, true}) {
        SCOPED_TRACE(testing::Message() << syntax << undefined << packed);
        set_bool(VX_CFG_EXPORT_UNDEFINED_LENGTH_SQ_IN_DICOMDIR, undefined);
        set_bool(VX_CFG_DICOMDIR_STREAM_STORAGE, packed);
        VX_Set_Value_From_String(dir_, 0x00020010, syntax);
        const std::string bytes = write_file(dir_);
        const Object again(read(bytes));
        EXPECT_EQ(total(again), 7);
        EXPECT_EQ(records(again), 8);
        const bool same_syntax = std::string_view(syntax) == "1.2.840.10008.1.2.1";
        EXPECT_TRUE(!packed || !same_syntax || write_file(again) == bytes) << "with the records still packed";
        EXPECT_EQ(tree(again), kTree);
        EXPECT_TRUE(packed || write_file(again) == bytes);
      }
    }
  }
}

TEST_F(Directory, RecordsPackedByHandAreTheSame) {
  build();
  const std::string bytes = write_file(dir_);
  for (const int32_t record : {patients_.record, patients_.record, image_2_}) {
    EXPECT_EQ(VX_Dir_Stream_Directory_Record(dir_, record), VX_NORMAL_COMPLETION);
  }
  EXPECT_EQ(write_file(dir_), bytes);
  EXPECT_EQ(tree(dir_), kTree);
  EXPECT_EQ(write_file(dir_), bytes);
}

TEST_F(Directory, WhatMayLieWhere) {
  EXPECT_EQ(VX_Dir_Add_Entity(dir_, 77777, "DIR_REC_STUDY", &patients_.entity, &patients_.record),
            VX_INVALID_ITEM_ID);
  build();
  const Added exists = add_entity(patients_.record, "DIR_REC_STUDY", VX_ENTITY_ALREADY_EXISTS);
  EXPECT_EQ(exists.entity, 0);
  EXPECT_EQ(exists.record, studies_.record);
  const Added wrong = add_entity(patient_2_, "DIR_REC_IMAGE", VX_INVALID_LOWER_DIR_RECORD);
  EXPECT_EQ(total(dir_), 8) << "it is there all the same";
  add_entity(wrong.record, "DIR_REC_PRIVATE");
  add(patients_.entity, "DIR_REC_STUDY", VX_INVALID_LOWER_DIR_RECORD);
  VX_Set_Value_From_String(image_3_, 0x00041430, "STRANGE ");
  add_entity(image_3_, "DIR_REC_PRIVATE", VX_INVALID_DIR_RECORD_TYPE);
  EXPECT_TRUE(has_log("DIR_REC_IMAGE is NOT a valid lower-level record type for PATIENT"));
  int32_t count = 0;
  EXPECT_EQ(VX_Dir_Item_Count(dir_, patients_.record, &count), VX_NORMAL_COMPLETION);
  EXPECT_EQ(count, 7);
  EXPECT_EQ(VX_Dir_Entity_Count(dir_, images_.entity, &count), VX_NORMAL_COMPLETION);
  EXPECT_EQ(count, 3);
  EXPECT_EQ(VX_Dir_Entity_Count(dir_, -5, &count), VX_INVALID_ENTITY_ID);
}

TEST_F(Directory, Deleting) {
  build();
  // The middle, the last, the first and the only one.
  EXPECT_EQ(VX_Dir_Delete_Record(dir_, image_2_), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Dir_Delete_Record(dir_, image_2_), VX_INVALID_ITEM_ID);
  EXPECT_EQ(tree(dir_), "PATIENT Zeta(STUDY(SERIES(IMAGE 10,IMAGE))),PATIENT Alpha");
  EXPECT_EQ(VX_Dir_Delete_Record(dir_, image_3_), VX_NORMAL_COMPLETION);
  image_3_ = add(images_.entity, "DIR_REC_IMAGE");
  EXPECT_EQ(VX_Dir_Delete_Record(dir_, images_.record), VX_NORMAL_COMPLETION);
  EXPECT_EQ(reference(series_.record, 0x00041420), image_3_);
  EXPECT_EQ(VX_Dir_Delete_Record(dir_, image_3_), VX_NORMAL_COMPLETION);
  EXPECT_EQ(reference(series_.record, 0x00041420), 0);
  int32_t count = 0;
  EXPECT_EQ(VX_Dir_Entity_Count(dir_, images_.entity, &count), VX_INVALID_ENTITY_ID);
  EXPECT_EQ(records(dir_), 4);
  add_entity(series_.record, "DIR_REC_IMAGE");
  EXPECT_EQ(VX_Dir_Delete_Referenced_Entity(dir_, patients_.record), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Dir_Delete_Referenced_Entity(dir_, patients_.record), VX_NORMAL_COMPLETION);
  EXPECT_EQ(tree(dir_), "PATIENT Zeta,PATIENT Alpha");
  EXPECT_EQ(total(dir_), 2);
  // The root keeps its entity.
  EXPECT_EQ(VX_Dir_Delete_Record(dir_, patients_.record), VX_NORMAL_COMPLETION);
  EXPECT_EQ(reference(dir_, 0x00041200), patient_2_);
  EXPECT_EQ(VX_Dir_Delete_Record(dir_, patient_2_), VX_NORMAL_COMPLETION);
  EXPECT_EQ(reference(dir_, 0x00041200), 0);
  EXPECT_EQ(reference(dir_, 0x00041202), 0);
  EXPECT_EQ(tree(dir_), "");
  EXPECT_EQ(total(dir_), 0);
  const std::string empty = write_file(dir_);
  EXPECT_EQ(tree(read(empty)), "");
  add(patients_.entity, "DIR_REC_TOPIC");
  EXPECT_EQ(tree(dir_), "TOPIC");
  EXPECT_EQ(add_entity(0, "DIR_REC_TOPIC", VX_ENTITY_ALREADY_EXISTS).entity, 0);
}

TEST_F(Directory, DeletingUnderTheIterator) {
  build();
  int32_t record = 0, last = 0;
  const char* name = nullptr;
  VX_Dir_First_Record(dir_, images_.entity, &record, &name, &last);
  VX_Dir_Next_Record(dir_, images_.entity, &record, &name, &last);
  EXPECT_EQ(record, image_2_);
  VX_Dir_Delete_Record(dir_, image_2_);
  EXPECT_EQ(VX_Dir_Next_Record(dir_, images_.entity, &record, &name, &last), VX_NORMAL_COMPLETION);
  EXPECT_EQ(record, image_3_);
  EXPECT_EQ(last, 1);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(VX_Dir_Next_Record(dir_, images_.entity, &record, &name, &last), VX_NORMAL_COMPLETION);
    EXPECT_EQ(record, 0);
    EXPECT_EQ(name, nullptr);
  }
}

TEST_F(Directory, RecordsThatOthersReferTo) {
  build();
  int32_t mrdr = 0, other = 0;
  ASSERT_EQ(VX_Dir_Open_MRDR(dir_, image_2_, "DIR_REC_MRDR", &mrdr), VX_NORMAL_COMPLETION);
  ASSERT_EQ(VX_Dir_Reference_MRDR(dir_, image_3_, mrdr), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Dir_Reference_MRDR(dir_, image_3_, patient_2_), VX_INVALID_MRDR_ID);
  EXPECT_EQ(VX_Dir_Reference_MRDR(dir_, mrdr, mrdr), VX_INVALID_ITEM_ID);
  EXPECT_EQ(reference(mrdr, 0x00041600), 2);
  EXPECT_NE(VX_Dir_Add_Entity(dir_, mrdr, "DIR_REC_PRIVATE", &patients_.entity, &other),
            VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Dir_Reference_MRDR(dir_, image_3_, mrdr), VX_NORMAL_COMPLETION);
  EXPECT_EQ(reference(mrdr, 0x00041600), 2) << "the same again";
  // Another one takes over the only reference of the first.
  ASSERT_EQ(VX_Dir_Remove_Ref_MRDR(dir_, image_2_), VX_NORMAL_COMPLETION);
  EXPECT_EQ(records(dir_), 8);
  ASSERT_EQ(VX_Dir_Open_MRDR(dir_, image_3_, "DIR_REC_MRDR", &other), VX_NORMAL_COMPLETION);
  EXPECT_EQ(records(dir_), 8);
  EXPECT_EQ(reference(mrdr, 0x00041600), -1) << "gone";
  EXPECT_EQ(total(dir_), 7);
  EXPECT_EQ(VX_Dir_Sort(dir_), VX_NORMAL_COMPLETION);
  EXPECT_EQ(records(dir_), 8);
  // It goes with the record deep below that is deleted from above.
  EXPECT_EQ(VX_Dir_Delete_Record(dir_, patients_.record), VX_NORMAL_COMPLETION);
  EXPECT_EQ(records(dir_), 1);
}

class Sorting : public Directory, public testing::WithParamInterface<bool> {};
INSTANTIATE_TEST_SUITE_P(PackedOrNot, Sorting, testing::Bool());

TEST_P(Sorting, ByTypeAndValues) {
  build();
  add(images_.entity, "DIR_REC_PRIVATE");
  const int32_t dose = add(images_.entity, "DIR_REC_RT_DOSE");
  VX_Set_Value_From_String(dose, 0x00200013, "1");
  // By modality, whatever its case, then by number; what lacks a value goes behind.
  const char* series[][2] = {{"MR", "1"}, {"CT", "10"}, {"ct", "2"}, {nullptr, "0"}, {"CT", nullptr}};
  std::vector<int32_t> others;
  for (const auto& [modality, number] : series) {
    const int32_t record = add(series_.entity, "DIR_REC_SERIES");
    if (modality != nullptr) VX_Set_Value_From_String(record, 0x00080060, modality);
    if (number != nullptr) VX_Set_Value_From_String(record, 0x00200011, number);
    others.push_back(record);
    if (GetParam()) VX_Dir_Stream_Directory_Record(dir_, record);
  }
  const vx::MsgObj& packed = *vx::find_object(images_.record);
  for (const int32_t record : {patients_.record, patient_2_, images_.record, image_2_, image_3_, dose}) {
    if (GetParam()) VX_Dir_Stream_Directory_Record(dir_, record);
  }
  EXPECT_EQ(VX_Dir_Sort(dir_), VX_NORMAL_COMPLETION);
  EXPECT_EQ(vx::saved_data(packed) != nullptr, GetParam()) << "sorting unpacks nothing";
  const char* sorted =
      "PATIENT Alpha,PATIENT Zeta(STUDY(SERIES,SERIES,SERIES,SERIES,SERIES,"
      "SERIES(IMAGE 2,IMAGE 10,IMAGE,RT_DOSE 1,PRIVATE)))";
  EXPECT_EQ(tree(dir_), sorted);
  EXPECT_EQ(reference(dir_, 0x00041200), patient_2_);
  EXPECT_EQ(reference(dir_, 0x00041202), patients_.record);
  // The sequence has the order of a walk.
  int32_t id = 0;
  const int32_t expected[] = {patient_2_, patients_.record, studies_.record, others[2],      others[1],
                              others[4],  others[0],        others[3],       series_.record, image_2_};
  for (std::size_t i = 0; i < std::size(expected); ++i) {
    i == 0 ? VX_Get_Value_To_Int(dir_, 0x00041220, &id) : VX_Get_Next_Value_To_Int(dir_, 0x00041220, &id);
    EXPECT_EQ(id, expected[i]) << i;
  }
  add(images_.entity, "DIR_REC_IMAGE");
  EXPECT_EQ(tree(read(write_file(dir_))),
            std::string(sorted).insert(std::string(sorted).size() - 3, ",IMAGE"));
}

TEST_F(Directory, MoreEntitiesThanTheCounterHas) {
  const Added root = add_entity(0, "DIR_REC_PRIVATE");
  std::map<int32_t, int> seen = {{root.entity, 1}};
  for (int i = 0; i < 32000; ++i) {
    const int32_t record = add(root.entity, "DIR_REC_PRIVATE");
    ++seen[add_entity(record, "DIR_REC_PRIVATE").entity];
  }
  EXPECT_EQ(seen.size(), 32001U);
  EXPECT_EQ(total(dir_), 64001);
}

TEST_F(Directory, AsDeepAsItIsLong) {
  constexpr int kLevels = 40000;
  int32_t parent = 0;
  for (int level = 0; level < kLevels; ++level) parent = add_entity(parent, "DIR_REC_PRIVATE").record;
  EXPECT_EQ(VX_Dir_Sort(dir_), VX_NORMAL_COMPLETION);
  int32_t again = read(write_file(dir_));
  EXPECT_EQ(total(again), kLevels);
  int32_t count = 0;
  const int32_t top = reference(again, 0x00041200);
  EXPECT_EQ(VX_Dir_Item_Count(again, top, &count), VX_NORMAL_COMPLETION);
  EXPECT_EQ(count, kLevels);
  EXPECT_EQ(VX_Dir_Delete_Record(again, top), VX_NORMAL_COMPLETION);
  EXPECT_EQ(total(again), 0);
}

// --- Directories that lie ---

TEST_F(Directory, OffsetsThatLeadNowhereOrBack) {
  build();
  // In the file: patient, study, series, three images, patient.
  const std::string good = write_file(dir_);
  struct Case {
    const char* what;
    std::function<void(Forged&)> forge;
    VX_STATUS status;
    const char* tree;
  };
  const Case cases[] = {
      {"nowhere", [](Forged& f) { f.set(2, 0x00041420, 4); }, VX_INVALID_DIRECTORY_RECORD_OFFSET,
       "PATIENT Zeta(STUDY(SERIES)),PATIENT Alpha"},
      {"root nowhere", [](Forged& f) { f.set(Forged::kTop, 0x00041200, 0xFFFFFFFE); },
       VX_INVALID_DIRECTORY_RECORD_OFFSET, ""},
      {"to itself", [](Forged& f) { f.set(6, 0x00041400, f.offset(6)); }, VX_SYSTEM_ERROR, kTree},
      {"below itself", [](Forged& f) { f.set(6, 0x00041420, f.offset(6)); }, VX_SYSTEM_ERROR, kTree},
      {"up", [](Forged& f) { f.set(5, 0x00041420, f.offset(1)); }, VX_SYSTEM_ERROR, kTree},
      {"two ways to one", [](Forged& f) { f.set(6, 0x00041420, f.offset(3)); }, VX_SYSTEM_ERROR, kTree},
      {"loop of two", [](Forged& f) { f.set(6, 0x00041400, f.offset(0)); }, VX_SYSTEM_ERROR, kTree},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Forged forged(good);
    c.forge(forged);
    const Object id(read(forged.bytes(), c.status));
    EXPECT_EQ(tree(id), c.tree);
    // What was read can be changed and written.
    EXPECT_EQ(VX_Dir_Sort(id), VX_NORMAL_COMPLETION);
    EXPECT_EQ(total(read(write_file(id))), total(id));
  }
  EXPECT_TRUE(has_log("Circular reference in DICOMDIR!"));
  EXPECT_TRUE(has_log("Invalid Directory Record Offset 4"));
  // A file that ends early is linked as far as it goes.
  int32_t id = read(good.substr(0, Forged(good).offset(5) + 20), VX_INVALID_VALUE_FOR_VR);
  EXPECT_EQ(tree(id), "PATIENT Zeta(STUDY(SERIES(IMAGE 10,IMAGE 2)))");
}

TEST_F(Directory, RecordsUnderAnotherRepresentation) {
  build();
  std::string bytes = write_file(dir_);
  bytes.replace(bytes.find(std::string("\4\0\x20\x12SQ", 6)) + 4, 2, "OB");
  const Object id(new_directory());
  EXPECT_NE(read_file(app_, id, bytes), VX_NORMAL_COMPLETION);
  EXPECT_EQ(tree(id), "no root");
  Added added;
  VX_Dir_Add_Entity(id, 0, "DIR_REC_PATIENT", &added.entity, &added.record);
  VX_Dir_Sort(id);
  Sink sink;
  VX_Write_File(id, 0, &sink, &file_output);
}

TEST_F(Directory, ReferencesChangedByHandEndAWalk) {
  build();
  VX_Set_Value_From_Int(image_3_, 0x00041400, images_.record);
  EXPECT_EQ(VX_Dir_Sort(dir_), VX_UNABLE_TO_GET_ITEM_ID);
  int32_t count = 0;
  EXPECT_EQ(VX_Dir_Item_Count(dir_, patients_.record, &count), VX_UNABLE_TO_GET_ITEM_ID);
  EXPECT_EQ(VX_Dir_Delete_Record(dir_, patients_.record), VX_UNABLE_TO_GET_ITEM_ID);
  VX_Set_Value_From_Int(image_3_, 0x00041400, dir_);
  EXPECT_EQ(VX_Dir_Sort(dir_), VX_UNABLE_TO_GET_ITEM_ID);
}

TEST_F(Directory, EmptiedItStartsAgain) {
  build();
  EXPECT_EQ(VX_Empty_File(dir_), VX_NORMAL_COMPLETION);
  EXPECT_EQ(tree(dir_), "no root");
  add_entity(0, "DIR_REC_PATIENT");
  EXPECT_EQ(tree(dir_), "PATIENT");
}

TEST_F(Directory, BecomesAMessageAndADirectoryAgain) {
  build();
  ASSERT_EQ(VX_File_To_Message(dir_), VX_NORMAL_COMPLETION);
  int32_t count = 0;
  EXPECT_EQ(VX_Dir_Root_Count(dir_, &count), VX_INVALID_DICOMDIR_ID);
  ASSERT_EQ(VX_Message_To_File(dir_, "DICOMDIR"), VX_NORMAL_COMPLETION);
  ASSERT_EQ(VX_Set_Service_Command(dir_, "DICOMDIR", 1), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Dir_Root_Count(dir_, &count), VX_UNABLE_TO_GET_ITEM_ID);
}

}  // namespace
