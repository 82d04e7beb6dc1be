// What the archive keeps of its objects, and what it finds by it (PS3.4 section C.2.2.2).
#include "holdings/catalog.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <sstream>
#include <thread>

#include "archive/identifier.h"
#include "archive/worklist.h"
#include "base/embedded.h"
#include "base/names.h"
#include "base/tag_path.h"
#include "base/values.h"
#include "holdings/key_match.h"
#include "objects.h"
#include "postgres_server.h"

namespace vexal::test {
namespace {

// "PatientID=P1 Modality" and the like: keywords with values, in which `~` is a blank.
void fill(int32_t object, const std::string& text) {
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    std::replace(word.begin(), word.end(), '~', ' ');
    const std::size_t equals = std::min(word.find('='), word.size());
    uint32_t tag = 0;
    EXPECT_TRUE(parse_tag(word.substr(0, equals), tag)) << word;
    set_all_text(object, tag, word.substr(std::min(equals + 1, word.size())));
  }
}

// A file of this instance; each of the items goes into a sequence.
void write_object(const std::string& path, const std::string& instance, const std::string& text,
                  uint32_t sequence = 0, const std::vector<std::string>& items = {}) {
  int32_t id = -1;
  FileSink sink;
  ASSERT_EQ(VX_Create_Empty_File(&id, path.c_str()), VX_NORMAL_COMPLETION);
  fill(id, "00020002=1.2.840.10008.5.1.4.1.1.2 00080016=1.2.840.10008.5.1.4.1.1.2 00020003=" + instance +
               " 00080018=" + instance + " " + text);
  for (const std::string& item : items) fill(objects::add_item(id, sequence), item);
  ASSERT_EQ(VX_Set_Message_Transfer_Syntax(id, EXPLICIT_LITTLE_ENDIAN), VX_NORMAL_COMPLETION);
  ASSERT_EQ(sink.open(path), "");
  ASSERT_EQ(VX_Write_File(id, 0, &sink, FileSink::file_output), VX_NORMAL_COMPLETION);
  ASSERT_EQ(sink.commit(), "");
  VX_Free_File(&id);
}

TEST(KeyMatch, EachKindOfMatching) {
  const struct {
    VX_VR vr;
    const char* key;
    const char* matching;  // values, a bar between two
    const char* others;
  } rows[] = {
      {VX_VR_LO, "ABC", "ABC|X\\ABC", "abc|AB|ABCD|"},
      {VX_VR_LO, "", "ABC|", "-"},
      {VX_VR_LO, "*", "ABC|", "-"},
      {VX_VR_LO, "A*C", "AC|ABBC|ACC", "ABCD|ac|C|"},
      {VX_VR_LO, "A?C",
       "ABC|A\u00e9C|A\xE9"
       "C",
       "AC|ABBC"},
      {VX_VR_LO, "ab*b", "abb|ab b", "ab|abba"},
      {VX_VR_LO, "*t?r*e", "one tar three", "one to tee"},
      {VX_VR_LO, "a*X?", "aXbXc|aXb", "aXbXcd|aX"},
      {VX_VR_LO, "A-C", "A-C", "B"},
      {VX_VR_CS, "US\\C?", "MR\\CT|US", "MR|PT\\MR"},
      {VX_VR_UI, "1.1\\1.2.3", "1.2.3|1.1", "1.2|1.1.1"},
      {VX_VR_UI, "1.2*", "1.2*", "1.2|1.2.3"},
      {VX_VR_DA, "20240101", "20240101", "20240102|"},
      {VX_VR_DA, "20240101-20240131", "20240101|20240115|20240131", "20231231|20240201|"},
      {VX_VR_DA, "-20240131", "20231231|20240131", "20240201|"},
      {VX_VR_DA, "20240131-", "20240131|20240201", "20240130|"},
      {VX_VR_TM, "10-1015", "10|101530.5", "0959|1016"},
      {VX_VR_DT, "20240101-20240131", "20240105120000", "20240201|2023"},
      {VX_VR_DT, "20240105120000-0500", "20240105120000-0500", "20240105120000|20240106"},
      {VX_VR_DT, "20240101-0500-20240131-0500", "20240105120000", "20240205120000"},
      {VX_VR_DT, "20240104-2025", "20240105|2025", "20240103|2026"},  // no offset from UTC is that large
      {VX_VR_IS, "007", "7|+7|1\\7", "70|x"},
      {VX_VR_DS, "1.5", "1.50|15e-1", "1.51"},
      {VX_VR_IS, "1*", "17", "7"},
      {VX_VR_PN, "doe^JOHN", "Doe^John|Doe^John^^|Roe\\DOE^JOHN=", "Doe|Doe^Johnny"},
      {VX_VR_PN, "*\u5C71*", "Yama=\u5C71^\u592A|\u5C71", "Yama|"},
  };
  for (const auto& row : rows) {
    for (const bool matches : {true, false}) {
      const std::string values = matches ? row.matching : row.others;
      if (values == "-") continue;  // there are none
      for (const std::string& value : objects::split(values, '|'))
        EXPECT_EQ(matches_key(row.vr, value, row.key), matches) << value << " by " << row.key;
    }
  }
}

class CatalogTest : public support::LibraryTest, public testing::WithParamInterface<const char*> {
 protected:
  // Two patients, the first with two studies and names in different sets; and one object without identity.
  void SetUp() override {
    server_ = std::string(GetParam()) == "postgres";
    if (server_ && !PostgresServer::get().runs())
      GTEST_SKIP() << "there is no PostgreSQL that can be started";
    address_ = server_ ? PostgresServer::get().fresh() : folder().path("index.sqlite");
    ASSERT_EQ(begin_with_full_data(), VX_NORMAL_COMPLETION);
    write("a", "1.1",
          "00080005=ISO_IR~144 Modality=CT PatientName=\xBB\xEE\xDA^X PatientID=P1 StudyInstanceUID=9.1 "
          "SeriesInstanceUID=9.1.1 StudyDate=20240101 InstanceNumber=01");
    write("b", "1.2",
          "Modality=CT PatientID=P1 StudyInstanceUID=9.2 SeriesInstanceUID=9.2.1 StudyDate=20240201");
    write("c", "1.3",
          "Modality=SR PatientID=P1 StudyInstanceUID=9.2 SeriesInstanceUID=9.2.2 StudyDate=20240201");
    write("d", "1.4",
          "Modality=MR PatientID=P2 StudyInstanceUID=9.3 SeriesInstanceUID=9.3.1 StudyDescription=" +
              std::string(2000, 'x'));
    write("e", "1.5", "Modality=OT");
  }
  void write(const std::string& name, const std::string& instance, const std::string& text) {
    write_object(folder().path(name + ".dcm"), instance, text);
  }
  std::string open(Catalog& catalog) const {
    const std::string error = catalog.open({server_ ? address_ : "", folder().path(), true, false, 0640});
    catalog.settle();
    return error;
  }
  // The keys as an identifier of the study or patient root brings them.
  static std::vector<CatalogKey> keys_of(const std::string& level, const std::string& text, Level& read) {
    int32_t id = -1;
    std::vector<CatalogKey> keys;
    EXPECT_EQ(VX_Open_Empty_Message(&id), VX_NORMAL_COMPLETION);
    fill(id, "SpecificCharacterSet=ISO_IR~192 QueryRetrieveLevel=" + level + " " + text);
    EXPECT_TRUE(read_identifier(id, true, read, keys)) << text;
    VX_Free_Message(&id);
    return keys;
  }
  // The values found, a bar between entities and a comma between keys; or what went wrong.
  static std::string found(Catalog& catalog, const std::string& level, const std::string& text) {
    std::string all;
    Level read = Level::Study;
    const std::vector<CatalogKey> keys = keys_of(level, text, read);
    const std::string error = catalog.find(
        read, keys, nullptr, [&](const std::vector<std::string>& values, const std::string& charset) {
          all += all.empty() ? "" : "|";
          for (std::size_t i = 0; i < values.size(); ++i) all += (i == 0 ? "" : ",") + values[i];
          all += charset.empty() ? "" : " in " + charset;
          return true;
        });
    return error.empty() ? all : error;
  }
  std::string files(Catalog& catalog, const std::string& text) const {
    Level none{};
    std::vector<ObjectFile> files;
    std::string all = catalog.files(keys_of("STUDY", text, none), nullptr, files);
    for (const ObjectFile& file : files) {
      all += std::filesystem::path(file.path).stem().string();
      EXPECT_EQ(file.size, std::filesystem::file_size(folder().path(file.path)));
      EXPECT_TRUE(file.whole);
    }
    return all;
  }
  // Statements on the index, behind the catalog's back.
  void run(const std::string& sql) const {
    std::unique_ptr<Database> index;
    ASSERT_EQ(Database::open(address_, {}, index).problem, "");
    EXPECT_EQ(index->script(sql).problem, "");
  }

  bool server_ = false;
  std::string address_;
};

// Here in an index that is made anew, as a damaged one was there.
TEST_P(CatalogTest, FindsByWhatItKeeps) {
  if (!server_) folder().write("index.sqlite", std::string(8192, '?'));
  testing::internal::CaptureStderr();
  Catalog catalog;
  ASSERT_EQ(open(catalog), "");
  const std::string told = testing::internal::GetCapturedStderr();
  EXPECT_EQ(told.find("is damaged and made anew") != std::string::npos, !server_) << told;
  const struct {
    const char* level;
    const char* keys;
    const char* found;
  } rows[] = {
      {"PATIENT", "PatientID NumberOfPatientRelatedStudies NumberOfPatientRelatedInstances",
       "P1,2,3 in ISO_IR 192|P2,1,1"},
      {"STUDY", "StudyInstanceUID NumberOfStudyRelatedSeries NumberOfStudyRelatedInstances",
       "9.1,1,1 in ISO_IR 192|9.2,2,2|9.3,1,1"},
      {"STUDY", "StudyDate=20240102- StudyInstanceUID", "20240201,9.2"},
      {"STUDY", "StudyInstanceUID=9.3\\9.1\\9.4", "9.1 in ISO_IR 192|9.3"},
      {"STUDY", "ModalitiesInStudy=SR StudyInstanceUID", "CT\\SR,9.2"},
      {"STUDY", "ModalitiesInStudy=US StudyInstanceUID", ""},
      {"STUDY", "StudyDescription StudyInstanceUID=9.3", ",9.3"},   // longer than what is kept
      {"STUDY", "PatientComments=x StudyInstanceUID=9.3", ",9.3"},  // not kept
      {"STUDY", "PatientName=\u043b\u044e* StudyInstanceUID", ""},  // case of ASCII alone
      {"SERIES", "PatientName=\u041b\u044e?^x SeriesInstanceUID", "\u041b\u044e\u043a^X,9.1.1 in ISO_IR 192"},
      {"STUDY", "PatientName=\u041b\u044e* StudyInstanceUID", "\u041b\u044e\u043a^X,9.1 in ISO_IR 192"},
      {"STUDY", "Modality=SR StudyInstanceUID", "SR,9.2"},  // a key of a lower level
      {"STUDY", "SOPInstanceUID=1.2\\1.3 StudyInstanceUID SOPClassesInStudy",
       "1.2,1.2.840.10008.5.1.4.1.1.2,9.2"},
      {"SERIES", "PatientID=P1 StudyDate=-20240131 SeriesInstanceUID", "20240101,P1,9.1.1 in ISO_IR 192"},
      {"IMAGE", "SOPInstanceUID StudyInstanceUID Modality=OT", "1.5,OT,"},
      {"IMAGE", "SOPInstanceUID InstanceNumber=1", "1.1,01 in ISO_IR 192"},
      {"IMAGE", "SOPInstanceUID PatientID=*2", "1.4,P2"},
      {"IMAGE", "SOPInstanceUID Modality=OT", "1.5,OT"},
  };
  for (const auto& row : rows) EXPECT_EQ(found(catalog, row.level, row.keys), row.found) << row.keys;
  EXPECT_EQ(files(catalog, "PatientID=P1"), "abc");
  EXPECT_EQ(files(catalog, "SOPInstanceUID=1.4\\1.2"), "bd");
}

TEST_P(CatalogTest, AnAnswerEndsWhereItIsTold) {
  Catalog catalog;
  ASSERT_EQ(open(catalog), "");
  run("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 600) INSERT INTO study "
      "(StudyInstanceUID, charset, odd) SELECT '8.' || i, '', 0 FROM n");
  const auto count = [&](std::size_t most, bool gone) {
    std::size_t answers = 0;
    const std::string error = catalog.find(
        Level::Study, {{0x00100040, VX_VR_CS, "?*\\*"}}, [gone] { return gone; },
        [&](const auto&, const std::string&) { return ++answers < most; });
    EXPECT_EQ(error.empty(), !gone) << error;
    return answers;
  };
  EXPECT_EQ(count(10000, false), 603U);  // several pages
  EXPECT_EQ(count(300, false), 300U);
  EXPECT_EQ(count(10000, true), 0U);     // the peer has gone
  EXPECT_EQ(count(10000, false), 603U);  // which does not touch the next
}

// Of one instance there is one row, and the files have the last word at each start.
TEST_P(CatalogTest, FollowsItsFiles) {
  write("z", "1.1", "PatientID=P3 StudyInstanceUID=9.9");
  folder().write("text.dcm", "text");
  testing::internal::CaptureStderr();
  {
    Catalog catalog;
    ASSERT_EQ(open(catalog), "");
    EXPECT_EQ(files(catalog, "SOPInstanceUID=1.1"), "a");
  }
  const std::string told = testing::internal::GetCapturedStderr();
  EXPECT_NE(told.find("z.dcm: has the SOP Instance UID of " + folder().path("a.dcm")), std::string::npos)
      << told;
  EXPECT_NE(told.find("text.dcm: "), std::string::npos) << told;
  std::filesystem::remove(folder().path("a.dcm"));
  std::filesystem::remove(folder().path("text.dcm"));
  write("b", "1.2", "PatientID=P44 StudyInstanceUID=9.7");
  Catalog catalog;
  ASSERT_EQ(open(catalog), "");
  EXPECT_EQ(files(catalog, "SOPInstanceUID=1.1"), "z");
  EXPECT_EQ(found(catalog, "IMAGE", "SOPInstanceUID=1.2 PatientID"), "1.2,P44");

  // One that arrives takes the place of the row that is there, in whatever study it was.
  write("new", "1.1", "PatientID=P5 StudyInstanceUID=9.5");
  HeadScan scan;
  StoredObject stored;
  stored.instance = "1.1";
  stored.key = "new.dcm";
  stored.size = std::filesystem::file_size(folder().path("new.dcm"));
  ASSERT_EQ(scan_file(folder().path(stored.key), catalog.wanted(), scan), "");
  using Entered = ObjectIndex::Entered;
  std::string error;
  EXPECT_EQ(catalog.enter(stored, scan, "", error), Entered::Conflict);
  EXPECT_EQ(catalog.enter(stored, scan, "z.dcm", error), Entered::Done) << error;
  EXPECT_EQ(files(catalog, "SOPInstanceUID=1.1"), "new");
  EXPECT_EQ(found(catalog, "STUDY", "StudyInstanceUID=9.9"), "");

  // What the index refuses is told, and taken neither for stored nor for empty.
  run("DROP TABLE instance");
  std::string key;
  EXPECT_EQ(catalog.enter(stored, scan, "new.dcm", error), Entered::Failed);
  for (const std::string& text : {error, found(catalog, "IMAGE", "PatientID"), files(catalog, "PatientID=P1"),
                                  catalog.key_of("1.1", key)})
    EXPECT_NE(text.find("instance"), std::string::npos);
}

// Processes that take the same objects at once: of each there is one row, and all hear whose it is.
TEST_P(CatalogTest, OneOfManyEntersAnObject) {
  constexpr int kInstances = 40;
  std::array<Catalog, 2> catalogs;
  for (Catalog& catalog : catalogs) ASSERT_EQ(open(catalog), "");
  HeadScan scan;
  ASSERT_EQ(scan_file(folder().path("a.dcm"), catalogs[0].wanted(), scan), "");
  std::array<std::atomic<int>, kInstances> done{};
  std::vector<std::jthread> threads;
  for (int t = 0; t < 6; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kInstances; ++i) {
        write_object(
            folder().path("t" + std::to_string(t)), "7." + std::to_string(i),
            "PatientID=P7 StudyInstanceUID=7.7." + std::to_string(i % 3) + " SeriesInstanceUID=7.7.7");
        HeadScan own;
        StoredObject stored;
        stored.instance = "7." + std::to_string(i);
        stored.key = std::to_string(t) + "-" + std::to_string(i);
        std::string error;
        EXPECT_EQ(scan_file(folder().path("t" + std::to_string(t)), catalogs[0].wanted(), own), "");
        const auto entered = catalogs[static_cast<std::size_t>(t % 2)].enter(stored, own, "", error);
        if (entered == ObjectIndex::Entered::Done) ++done[static_cast<std::size_t>(i)];
        EXPECT_EQ(error, "");
        // What was acknowledged is seen by all, and is dropped once.
        std::string key;
        EXPECT_EQ(catalogs[static_cast<std::size_t>((t + 1) % 2)].key_of(stored.instance, key), "");
        EXPECT_EQ(key == stored.key, entered == ObjectIndex::Entered::Done) << key;
      }
    });
  }
  threads.clear();
  for (const std::atomic<int>& count : done) EXPECT_EQ(count, 1);
  EXPECT_EQ(found(catalogs[0], "STUDY", "PatientID=P7 NumberOfStudyRelatedInstances StudyInstanceUID"),
            "P7,7.7.0,14|P7,7.7.1,13|P7,7.7.2,13");
  std::string key;
  for (int i = 0; i < kInstances; ++i) {
    ASSERT_EQ(catalogs[0].key_of("7." + std::to_string(i), key), "");
    EXPECT_EQ(catalogs[1].drop("7." + std::to_string(i), "other"), "");
    EXPECT_EQ(catalogs[1].drop("7." + std::to_string(i), key), "");
  }
  EXPECT_EQ(found(catalogs[0], "PATIENT", "PatientID=P7"), "");
}

INSTANTIATE_TEST_SUITE_P(Engines, CatalogTest, testing::Values("sqlite", "postgres"),
                         [](const auto& engine) { return std::string(engine.param); });

// The keys of a step match in one item of an entry, which then comes back with what else was asked for.
TEST_P(CatalogTest, WorklistEntriesMatchByTheirSteps) {
  constexpr uint32_t kSteps = 0x00400100;
  std::filesystem::create_directory(folder().path("entries"));
  write_object(folder().path("entries/one.wl"), "1.7",
               "SpecificCharacterSet=ISO_IR~144 PatientName=\xBB\xEE\xDA^X", kSteps,
               {"Modality=CT ScheduledProcedureStepStartDate=20240101",
                "Modality=MR ScheduledProcedureStepStartDate=20240202"});
  const struct {
    const char* name;
    const char* step;
    std::size_t steps;  // in the answer
  } rows[] = {
      {"PatientName", "Modality", 2},
      {"PatientName=\u041b\u044e*", "Modality=CT", 1},
      {"PatientName", "Modality=CT ScheduledProcedureStepStartDate=20240101-20240102", 1},
      {"PatientName", "Modality=CT ScheduledProcedureStepStartDate=20240202", 0},
      {"PatientName=Doe*", "Modality", 0},
  };
  for (const auto& row : rows) {
    int32_t identifier = -1;
    ASSERT_EQ(VX_Open_Empty_Message(&identifier), VX_NORMAL_COMPLETION);
    fill(identifier, std::string("SpecificCharacterSet=ISO_IR~192 ") + row.name);
    fill(objects::add_item(identifier, kSteps), row.step);
    std::size_t steps = 0;
    const auto take = [&](const std::function<void(int32_t)>& fill_in) {
      int32_t answer = -1;
      EXPECT_EQ(VX_Open_Empty_Message(&answer), VX_NORMAL_COMPLETION);
      fill_in(answer);
      EXPECT_EQ(text_of(answer, 0x00100010), "\xBB\xEE\xDA^X");
      steps = sequence_items(answer, kSteps).size();
      VX_Free_Message(&answer);
      return true;
    };
    Worklist(folder().path("entries"))
        .find(
            identifier, [] { return false; }, take);
    EXPECT_EQ(steps, row.steps) << row.name << row.step;
    VX_Free_Message(&identifier);
  }
}

// Other threads read the record while its tables are asked for again.
TEST(Embedded, TheConfigurationIsMadeOnce) {
  ConfigRecord* record = embedded_config();
  const char* const before = std::exchange(record->string_values[VX_CFG_LARGE_DATA_STORE], "FILE");
  EXPECT_EQ(embedded_config(), record);
  EXPECT_STREQ(std::exchange(record->string_values[VX_CFG_LARGE_DATA_STORE], before), "FILE");
}

}  // namespace
}  // namespace vexal::test
