// The data dictionary: lookups, private codes, overrides, keywords of real names, faulty files, ready-made
// tables.
#include "model/dictionary.h"

#include <array>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "frame/seams.h"
#include "model/dictionary_table.h"
#include "support.h"

namespace {

constexpr VX_STATUS kOk = VX_NORMAL_COMPLETION;

class Dictionary : public support::LibraryTest {
 protected:
  static std::string name(uint32_t tag, int32_t size = 128) {
    char buffer[128];
    const VX_STATUS status = VX_Get_Tag_Info(tag, buffer, size);
    return status == kOk ? buffer : "#" + std::to_string(status);
  }
  // Loads other contents in place of the dictionary.
  VX_STATUS load(const std::string& bytes) {
    set_text(VX_CFG_DICTIONARY_FILE, folder().write("other.dct", bytes));
    clear_log();
    return vx::dictionary_load_file();
  }
  static VX_VR vr_of(uint32_t tag, const char* creator = "") {
    vx::DictInfo info{};
    return vx::dictionary_lookup(tag, creator, info) == kOk ? info.vr : -1;
  }
};

const std::string kUnknown = "#" + std::to_string(VX_INVALID_TAG);

// Private attributes go by their creator; the group lengths of private groups are made up.
TEST_F(Dictionary, TellsNameVrAndBounds) {
  char buffer[64] = "z";
  VX_VR vr = -1;
  uint16_t low = 0, high = 0;
  EXPECT_EQ(VX_Get_Tags_Dict_Info(0x00200032, buffer, 64, &vr, &low, &high), kOk);
  EXPECT_STREQ(buffer, "Image Position (Patient)");
  EXPECT_TRUE(vr == VX_VR_DS && low == 3 && high == 3) << vr << " " << low << " " << high;
  vr = -1;
  EXPECT_EQ(VX_Get_Tags_Dict_Info(0x00080008, buffer, 6, &vr, &low, &high), VX_BUFFER_TOO_SMALL);
  EXPECT_STREQ(buffer, "Image");
  EXPECT_TRUE(vr == VX_VR_CS && high == 255) << vr << " " << high;
  EXPECT_EQ(VX_Get_Tags_Dict_Info(0, buffer, 64, &vr, &low, &high), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Get_Tags_Dict_Info(0x00080008, buffer, 0, &vr, &low, &high), VX_BUFFER_TOO_SMALL);
  EXPECT_EQ(VX_Get_Tags_Dict_Info(0x00080009, buffer, 64, &vr, &low, &high), VX_INVALID_TAG);
  EXPECT_EQ(VX_Get_Tag_Info(0x00080008, nullptr, 64), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Get_pTags_Dict_Info("ACME 1.0   ", 0x0009, 2, buffer, 64, &vr, &low, &high), kOk);
  EXPECT_STREQ(buffer, "Private Numbers");
  EXPECT_EQ(vr, VX_VR_US);
  EXPECT_EQ(VX_Get_pTag_Info("ACME 1.1", 0x0009, 2, buffer, 64), VX_INVALID_TAG);
  EXPECT_EQ(VX_Get_pTag_Info("", 0x0009, 2, buffer, 64), VX_INVALID_TAG);
  EXPECT_EQ(VX_Get_pTag_Info("ACME 1.0", 0x0008, 5, buffer, 64), VX_INVALID_TAG);
  EXPECT_EQ(vr_of(0x0009AB03, "ACME 1.0"), VX_VR_SQ);
  EXPECT_EQ(name(0x00090000), "Group 0009 Length");
  EXPECT_EQ(name(0x00090000, 18), "Group 0009 Length");
  EXPECT_EQ(VX_Get_Tag_Info(0x00090000, buffer, 17), VX_BUFFER_TOO_SMALL);
  EXPECT_STREQ(buffer, "Private Numbers") << "nothing is copied";
  EXPECT_EQ(vr_of(0x00FB0000), VX_VR_UL);
  EXPECT_EQ(vr_of(0x00080000), -1);
}

TEST_F(Dictionary, SettingsOverrideFourVrs) {
  constexpr struct {
    uint32_t tag;
    VX_BOOL_KEY key;
    VX_VR vr;
  } kRows[] = {{0x00081190, VX_CFG_ATT_00081190_USE_UT_VR, VX_VR_UT},
               {0x00287FE0, VX_CFG_ATT_00287FE0_USE_UT_VR, VX_VR_UT},
               {0x0040E010, VX_CFG_ATT_0040E010_USE_UT_VR, VX_VR_UT},
               {0x0074100A, VX_CFG_ATT_0074100A_USE_ST_VR, VX_VR_ST}};
  ASSERT_EQ(begin_with_full_data(), kOk);
  for (const auto& row : kRows) {
    EXPECT_EQ(vr_of(row.tag), VX_VR_UR);
    set_bool(row.key, true);
    EXPECT_EQ(vr_of(row.tag), row.vr);
  }
}

TEST_F(Dictionary, RepeatingGroupsShareTheirBase) {
  support::DictionaryFile file;
  file.add(0x50000010, VX_VR_US, 1, 1, "Number of Points");
  file.add(0x60000010, VX_VR_US, 1, 1, "Overlay Rows");
  ASSERT_EQ(load(file.bytes()), kOk);
  EXPECT_EQ(name(0x60100010), "Overlay Rows");
  EXPECT_EQ(name(0x50FE0010), "Number of Points");
  EXPECT_EQ(name(0x60110010), kUnknown);  // a private group
  EXPECT_EQ(name(0x70100010), kUnknown);
}

TEST_F(Dictionary, WithoutAFileThereIsNoDictionary) {
  set_text(VX_CFG_DICTIONARY_FILE, "");
  char buffer[32];
  EXPECT_EQ(VX_Get_Tag_Info(0x00080008, buffer, 32), VX_MISSING_CONFIG_PARM);
  EXPECT_EQ(VX_Get_Tag_Keyword(0x00090001, nullptr, 0), VX_MISSING_CONFIG_PARM);
  EXPECT_EQ(vx::dictionary_load_file(), VX_MISSING_CONFIG_PARM);
}

// The keywords that the standard prints, but for two that were others when their names came.
TEST_F(Dictionary, KeywordsOfRealNames) {
  ASSERT_EQ(begin_with_full_data(), kOk);
  std::ifstream table(VEXAL_SOURCE_DIR "/data/dictionary.tsv");
  std::string line;
  int right = 0;
  std::vector<std::string> wrong;
  while (std::getline(table, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream cells(line);
    std::string tag_text, vr, vm, keyword;
    for (std::string* cell : {&tag_text, &vr, &vm, &keyword}) std::getline(cells, *cell, '\t');
    if (keyword == "-") continue;
    for (char& letter : tag_text) letter = letter == 'x' ? '0' : letter;
    const auto tag =
        static_cast<uint32_t>(std::stoul(tag_text.substr(0, 4) + tag_text.substr(5), nullptr, 16));
    char buffer[128];
    ASSERT_EQ(VX_Get_Tag_Keyword(tag, buffer, sizeof buffer), kOk) << tag_text;
    if (keyword == buffer) {
      ++right;
    } else {
      wrong.push_back(tag_text + " " + keyword);
    }
  }
  EXPECT_GT(right, 5000);
  const std::vector<std::string> older = {"0052,0038 NumberOfPaddedALines",
                                          "4010,1029 ThreatDetectionAlgorithmAndVersion"};
  EXPECT_EQ(wrong, older);
}

TEST_F(Dictionary, KeywordsOfSpecialCases) {
  struct Row {
    uint32_t tag;
    const char* name;
    const char* keyword;
  };
  constexpr Row kRows[] = {
      {0x00000800, "Any Name At All", "CommandDataSetType"},
      {0x00100010, "Patient's Name", "PatientName"},
      {0x00100020, "Operators' Name", "OperatorsName"},
      {0x00100030, "3D Render Mode", "ThreeDRenderMode"},
      {0x00100031, "2D Model", "TwoDModel"},
      {0x00100032, "k-space Filtering", "KSpaceFiltering"},
      {0x00100033, "Query/Retrieve Level (Old)", "QueryRetrieveLevelOld"},
      {0x00100034, "De-identification Method", "DeidentificationMethod"},
      {0x00100035, "Pre-Medication", "PreMedication"},
      {0x00100036, "ASL Bolus Cut-off Flag", "ASLBolusCutoffFlag"},
      {0x00100037, "Cut-off Flag", "CutOffFlag"},
      {0x00100040, "Exposure in uAs", "ExposureInuAs"},
      {0x00100041, "Tube Current in uA", "TubeCurrentInuA"},
      {0x00100042, "Sensitivity uS", "SensitivityuS"},
      {0x00100043, "Dose in mGy", "DoseInmGy"},
      {0x00100044, "Current in mAs", "CurrentInmAs"},
      {0x00100045, "Time in ms", "TimeInms"},
      {0x00100046, "Shift in ppm", "ShiftInppm"},
      {0x00100047, "Time in ms Later", "TimeInMsLater"},
      {0x00240068, "Stop the test", "Stopthetest"},
      // A tag that has a keyword of its own, under another name.
      {0x00281055, "Window Center & Width", "WindowCenter&Width"},
      {0x00520038, "Number of Padded A-lines", "NumberOfPaddedAlines"},
  };
  support::DictionaryFile file;
  for (const Row& row : kRows) file.add(row.tag, VX_VR_LO, 1, 1, row.name);
  ASSERT_EQ(load(file.bytes()), kOk);
  for (const Row& row : kRows) {
    char buffer[64];
    EXPECT_EQ(VX_Get_Tag_Keyword(row.tag, buffer, 64), kOk);
    EXPECT_STREQ(buffer, row.keyword);
  }
  char buffer[12] = "z";
  EXPECT_EQ(VX_Get_Tag_Keyword(0x00100010, buffer, 11), VX_BUFFER_TOO_SMALL);
  EXPECT_STREQ(buffer, "z");
  EXPECT_EQ(VX_Get_Tag_Keyword(0x00100010, buffer, 12), kOk);
  EXPECT_EQ(VX_Get_Tag_Keyword(0x00091001, buffer, 12), VX_INVALID_TAG);
  EXPECT_EQ(VX_Get_Tag_Keyword(0x00100010, nullptr, 0), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Get_Tag_Keyword(0x00100010, buffer, 0), VX_BUFFER_TOO_SMALL);
}

TEST_F(Dictionary, FilesOutOfOrderAreRefused) {
  const std::string signature = support::DictionaryFile().bytes();
  struct Record {
    uint32_t tag;
    const char* creator;
  };
  const struct {
    std::vector<Record> records;
    std::string log;  // empty: accepted
  } rows[] = {
      {{{0x00080008, ""}, {0x00080005, ""}}, "Dictionary sequence: 00080005 follows 00080008"},
      {{{0x00080008, ""}, {0x00080008, ""}}, "Dictionary sequence: 00080008 follows 00080008"},
      {{{0x00090001, "A"}, {0x00090001, "B"}, {0x00090001, "A"}}, ""},
      {{{0x00090001, "A"}, {0x00090001, "A"}}, "Private dictionary sequence: 00090001,A follows 00090001,A"},
      {{{0x00090002, "A"}, {0x00090001, "A"}}, "Private dictionary sequence: 00090001,A follows 00090002,A"},
      {{{0x00090002, "A"}, {0x00080008, ""}}, "Dictionary sequence: 00080008 follows 00090002"},
  };
  for (const auto& row : rows) {
    support::DictionaryFile file;
    for (const Record& record : row.records) file.add(record.tag, VX_VR_LO, 1, 1, "Name", record.creator);
    EXPECT_EQ(load(file.bytes()), row.log.empty() ? kOk : VX_DDFILE_ERROR);
    EXPECT_TRUE(row.log.empty() || has_log(row.log)) << row.log;
  }
  // The last of two entries counts.
  support::DictionaryFile file;
  file.add(0x00090001, VX_VR_LO, 1, 1, "Old", "A");
  file.add(0x00090001, VX_VR_LO, 1, 1, "Other", "B");
  file.add(0x00090001, VX_VR_SH, 1, 1, "New", "A  ");
  ASSERT_EQ(load(file.bytes()), kOk);
  char buffer[16];
  EXPECT_EQ(VX_Get_pTag_Info("A", 9, 1, buffer, 16), kOk);
  EXPECT_STREQ(buffer, "New");
}

TEST_F(Dictionary, TheSignatureNamesTheForm) {
  std::string fixed("\xF0\x05\xF0\x05\0\0\0\0", 8);
  fixed += std::string("Signature").append(55, '\0');
  fixed += std::string("\x00\x10\x00\x20\x00\x07\x01\x02", 8);
  fixed += std::string("Fixed Name").append(54, 'x');  // no terminator: the last byte makes room for it
  ASSERT_EQ(load(fixed), kOk);
  EXPECT_EQ(name(0x00100020), "Fixed Name" + std::string(53, 'x'));
  EXPECT_EQ(load(std::string("\xF0\x04\xF0\x04\0\0\0\0x", 10)), VX_DDFILE_ERROR);
  EXPECT_TRUE(has_log("A data dictionary generated by release 2.3.3 or later must be used"));
  EXPECT_EQ(load(""), kOk);
  EXPECT_EQ(load(support::DictionaryFile().bytes()), kOk);
  EXPECT_EQ(name(0x00100020), kUnknown);
  support::DictionaryFile file;
  file.add(0x00100020, VX_VR_LO, 1, 1, std::string(300, 'n'));
  ASSERT_EQ(load(file.bytes()), kOk);
  EXPECT_EQ(name(0x00100020, 128), std::string(99, 'n'));
  set_text(VX_CFG_DICTIONARY_FILE, folder().path("absent.dct"));
  EXPECT_EQ(vx::dictionary_load_file(), VX_DDFILE_ERROR);
  EXPECT_TRUE(has_log("Can't open "));
  set_text(VX_CFG_DICTIONARY_FILE, folder().path());
  EXPECT_EQ(vx::dictionary_load_file(), VX_DDFILE_ERROR);  // a folder opens, but does not read
}

TEST_F(Dictionary, ATruncationAnywhereIsSeen) {
  support::DictionaryFile file;
  std::vector<std::size_t> boundaries = {0, file.bytes().size()};
  file.add(0x00080005, VX_VR_CS, 1, 255, "Specific Character Set");
  boundaries.push_back(file.bytes().size());
  file.add(0x00090001, VX_VR_LO, 1, 1, "Private Text", "ACME");
  boundaries.push_back(file.bytes().size());
  std::size_t loaded = 0;
  for (std::size_t size = 0; size <= file.bytes().size(); ++size) {
    vx::DictionaryFile result;
    const bool whole = std::find(boundaries.begin(), boundaries.end(), size) != boundaries.end();
    const std::string cut = file.bytes().substr(0, size);
    clear_log();
    ASSERT_EQ(vx::read_dictionary_bytes(cut.data(), cut.size(), result), whole ? kOk : VX_DDFILE_ERROR)
        << size;
    ASSERT_EQ(has_log("from the data dictionary file: "), !whole) << size;
    loaded += result.entries.size();
  }
  EXPECT_GT(loaded, 500U);  // what came before the fault is there
  ASSERT_EQ(load(file.bytes().substr(0, file.bytes().size() - 1)), VX_DDFILE_ERROR);
  EXPECT_TRUE(has_log("Error reading " + folder().path("other.dct")));
  EXPECT_EQ(name(0x00080005), "Specific Character Set");
}

// A file larger than the window that it is read through comes out as its bytes in memory do.
TEST_F(Dictionary, TheWindowHidesNothing) {
  support::DictionaryFile file;
  for (uint32_t i = 0; i < 5000; ++i) {
    const bool is_private = i % 3 == 0;
    const uint32_t tag = is_private ? 0x00090000U + i % 256 : 0x00100000U + i;
    if (!is_private) file.add(tag, VX_VR_LO, 1, 1, "Name " + std::string(i % 90, 'x'));
  }
  for (uint32_t i = 0; i < 700; ++i) {
    file.add(0x00110000U + i / 4, VX_VR_LO, 1, 1, "Private", "CREATOR " + std::to_string(i));
  }
  vx::DictionaryFile from_file;
  vx::DictionaryFile from_memory;
  ASSERT_EQ(vx::read_dictionary_file(folder().write("big.dct", file.bytes()).c_str(), from_file), kOk);
  ASSERT_EQ(vx::read_dictionary_bytes(file.bytes().data(), file.bytes().size(), from_memory), kOk);
  ASSERT_EQ(from_file.entries.size(), from_memory.entries.size());
  for (std::size_t i = 0; i < from_file.entries.size(); ++i) {
    ASSERT_EQ(from_file.entries[i].Tag, from_memory.entries[i].Tag);
    ASSERT_STREQ(from_file.entries[i].Name, from_memory.entries[i].Name);
    ASSERT_STREQ(from_file.entries[i].PrivateCode, from_memory.entries[i].PrivateCode);
  }
}

// The chains are part of the interface of ready-made dictionaries; lookups by hash must give what they give.
TEST_F(Dictionary, AReadyMadeTableServesAsItStands) {
  static const DictEntry shadowed{nullptr, 0x00100020, VX_VR_SH, 1, 1, "Shadowed", nullptr};
  static const DictEntry first{&shadowed, 0x00100020, VX_VR_LO, 1, 1, "Ready Made", nullptr};
  static const DictEntry nameless{nullptr, 0x00100021, VX_VR_LO, 1, 1, nullptr, nullptr};
  static const DictEntry with_code{nullptr, 0x00090001, VX_VR_US, 1, 2, "Ready Private", "ACME"};
  static std::array<const DictEntry*, VX_DICTIONARY_CHAINS> chains{};
  chains[0x00100020 % VX_DICTIONARY_CHAINS] = &first;
  chains[0x00100021 % VX_DICTIONARY_CHAINS] = &nameless;
  chains[0x00090001 % VX_DICTIONARY_CHAINS] = &with_code;
  static DictionaryRecord record{VX_BUILD_VERSION, chains.data()};
  EXPECT_EQ(vx::dictionary_take_record(&record), kOk);
  char buffer[16];
  // The first lookups walk the chains, later ones go by the hash.
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(name(0x00100020), "Ready Made") << i;
    ASSERT_EQ(name(0x00100021), "");
    ASSERT_EQ(name(0x00100022), kUnknown);
    ASSERT_EQ(VX_Get_pTag_Info("ACME ", 9, 1, buffer, 16), kOk);
    ASSERT_EQ(VX_Get_pTag_Info("ACM", 9, 1, buffer, 16), VX_INVALID_TAG);
  }
  set_text(VX_CFG_DICTIONARY_FILE, "");
  EXPECT_EQ(name(0x00100020), "Ready Made");
  record.version = "Another Version";
  EXPECT_EQ(vx::dictionary_take_record(&record), VX_INVALID_VERSION);
  record.version = nullptr;
  EXPECT_EQ(vx::dictionary_take_record(&record), kOk);
  EXPECT_EQ(vx::dictionary_take_record(nullptr), VX_DDFILE_ERROR);
}

}  // namespace
