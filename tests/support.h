// What tests of the library share: a small configuration in a folder of its own, and the lines of the log.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vexalkit.h"

namespace support {

// A folder that goes away with the object.
class TempFolder {
 public:
  TempFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "vexaltest.XXXXXX").string();
    path_ = ::mkdtemp(name.data()) != nullptr ? name : std::string(".");
  }
  ~TempFolder() {
    std::error_code ignored;
    if (path_ != ".") std::filesystem::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  std::string path(std::string_view name = {}) const {
    return name.empty() ? path_ : path_ + "/" + std::string(name);
  }
  std::string write(std::string_view name, std::string_view content) const {
    std::ofstream(path(name), std::ios::binary) << content;
    return path(name);
  }
  std::string read(std::string_view name) const {
    std::ifstream file(path(name), std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
  }

 private:
  std::string path_;
};

// A binary dictionary, record by record.
class DictionaryFile {
 public:
  DictionaryFile() { add(0xF006F006, 0, 0, 0, "Test dictionary"); }
  // vm_high 255 is no limit; the creator belongs to private tags. Tags rise.
  void add(uint32_t tag, VX_VR vr, int vm_low, int vm_high, std::string_view name,
           std::string_view creator = {}) {
    for (int shift = 24; shift >= 0; shift -= 8) bytes_ += static_cast<char>(tag >> shift);
    bytes_ += '\0';
    bytes_ += static_cast<char>(vr);
    bytes_ += static_cast<char>(vm_low);
    bytes_ += static_cast<char>(vm_high);
    bytes_ += name;
    bytes_ += '\0';
    if (creator.empty()) return;
    std::string code(creator);
    code.resize(513, '\0');
    bytes_ += code;
  }
  const std::string& bytes() const { return bytes_; }

 private:
  std::string bytes_;
};

inline std::string small_dictionary() {
  struct Row {
    uint32_t tag;
    VX_VR vr;
    int low, high;
    const char* name;
    const char* creator;
  };
  constexpr int kMany = 255;
  static constexpr Row kRows[] = {
      {0x00000000, VX_VR_UL, 1, 1, "Command Group Length", ""},
      {0x00000002, VX_VR_UI, 1, 1, "Affected SOP Class UID", ""},
      {0x00000100, VX_VR_US, 1, 1, "Command Field", ""},
      {0x00000110, VX_VR_US, 1, 1, "Message ID", ""},
      {0x00000800, VX_VR_US, 1, 1, "Command Data Set Type", ""},
      {0x00020000, VX_VR_UL, 1, 1, "File Meta Information Group Length", ""},
      {0x00020001, VX_VR_OB, 1, 1, "File Meta Information Version", ""},
      {0x00020002, VX_VR_UI, 1, 1, "Media Storage SOP Class UID", ""},
      {0x00020003, VX_VR_UI, 1, 1, "Media Storage SOP Instance UID", ""},
      {0x00020010, VX_VR_UI, 1, 1, "Transfer Syntax UID", ""},
      {0x00020012, VX_VR_UI, 1, 1, "Implementation Class UID", ""},
      {0x00020013, VX_VR_SH, 1, 1, "Implementation Version Name", ""},
      {0x00020016, VX_VR_AE, 1, 1, "Source Application Entity Title", ""},
      {0x00020100, VX_VR_UI, 1, 1, "Private Information Creator UID", ""},
      {0x00020102, VX_VR_OB, 1, 1, "Private Information", ""},
      {0x00080005, VX_VR_CS, 1, kMany, "Specific Character Set", ""},
      {0x00080008, VX_VR_CS, 2, kMany, "Image Type", ""},
      {0x00080016, VX_VR_UI, 1, 1, "SOP Class UID", ""},
      {0x00080018, VX_VR_UI, 1, 1, "SOP Instance UID", ""},
      {0x00080020, VX_VR_DA, 1, 1, "Study Date", ""},
      {0x0008002A, VX_VR_DT, 1, 1, "Acquisition DateTime", ""},
      {0x00080030, VX_VR_TM, 1, 1, "Study Time", ""},
      {0x00080050, VX_VR_SH, 1, 1, "Accession Number", ""},
      {0x00080060, VX_VR_CS, 1, 1, "Modality", ""},
      {0x00080090, VX_VR_PN, 1, 1, "Referring Physician's Name", ""},
      {0x00080119, VX_VR_UC, 1, 1, "Long Code Value", ""},
      {0x00080120, VX_VR_UR, 1, 1, "URN Code Value", ""},
      {0x00081030, VX_VR_LO, 1, 1, "Study Description", ""},
      {0x00081140, VX_VR_SQ, 1, 1, "Referenced Image Sequence", ""},
      {0x00081150, VX_VR_UI, 1, 1, "Referenced SOP Class UID", ""},
      {0x00081155, VX_VR_UI, 1, 1, "Referenced SOP Instance UID", ""},
      {0x00090001, VX_VR_LO, 1, 1, "Private Text", "ACME 1.0"},
      {0x00090002, VX_VR_US, 1, kMany, "Private Numbers", "ACME 1.0"},
      {0x00090003, VX_VR_SQ, 1, 1, "Private Sequence", "ACME 1.0"},
      {0x00100010, VX_VR_PN, 1, 1, "Patient's Name", ""},
      {0x00100020, VX_VR_LO, 1, 1, "Patient ID", ""},
      {0x00100030, VX_VR_DA, 1, 1, "Patient's Birth Date", ""},
      {0x00100040, VX_VR_CS, 1, 1, "Patient's Sex", ""},
      {0x00101010, VX_VR_AS, 1, 1, "Patient's Age", ""},
      {0x00101030, VX_VR_DS, 1, 1, "Patient's Weight", ""},
      {0x001021B0, VX_VR_LT, 1, 1, "Additional Patient History", ""},
      {0x00189306, VX_VR_FD, 1, 1, "Single Collimation Width", ""},
      {0x0020000D, VX_VR_UI, 1, 1, "Study Instance UID", ""},
      {0x0020000E, VX_VR_UI, 1, 1, "Series Instance UID", ""},
      {0x00200013, VX_VR_IS, 1, 1, "Instance Number", ""},
      {0x00200032, VX_VR_DS, 3, 3, "Image Position (Patient)", ""},
      {0x00204000, VX_VR_LT, 1, 1, "Image Comments", ""},
      {0x00280002, VX_VR_US, 1, 1, "Samples per Pixel", ""},
      {0x00280004, VX_VR_CS, 1, 1, "Photometric Interpretation", ""},
      {0x00280008, VX_VR_IS, 1, 1, "Number of Frames", ""},
      {0x00280009, VX_VR_AT, 1, kMany, "Frame Increment Pointer", ""},
      {0x00280010, VX_VR_US, 1, 1, "Rows", ""},
      {0x00280011, VX_VR_US, 1, 1, "Columns", ""},
      {0x00280030, VX_VR_DS, 2, 2, "Pixel Spacing", ""},
      {0x00280100, VX_VR_US, 1, 1, "Bits Allocated", ""},
      {0x00280101, VX_VR_US, 1, 1, "Bits Stored", ""},
      {0x00280102, VX_VR_US, 1, 1, "High Bit", ""},
      {0x00280103, VX_VR_US, 1, 1, "Pixel Representation", ""},
      {0x00281201, VX_VR_OW, 1, 1, "Red Palette Color Lookup Table Data", ""},
      {0x0040A160, VX_VR_UT, 1, 1, "Text Value", ""},
      {0x0040A730, VX_VR_SQ, 1, 1, "Content Sequence", ""},
      {0x00420011, VX_VR_OB, 1, 1, "Encapsulated Document", ""},
      {0x00660016, VX_VR_OF, 1, 1, "Point Coordinates Data", ""},
      {0x00660040, VX_VR_OL, 1, 1, "Long Primitive Point Index List", ""},
      {0x00720063, VX_VR_ST, 1, 1, "Test Short Text", ""},
      {0x00720073, VX_VR_OD, 1, 1, "Test Doubles", ""},
      {0x00720074, VX_VR_FL, 1, kMany, "Test Floats", ""},
      {0x00720078, VX_VR_SL, 1, kMany, "Test Signed Longs", ""},
      {0x0072007A, VX_VR_SS, 1, kMany, "Test Signed Shorts", ""},
      {0x0072007C, VX_VR_UL, 1, kMany, "Test Unsigned Longs", ""},
      {0x7FE00010, VX_VR_OW, 1, 1, "Pixel Data", ""},
      {0xFFFCFFFC, VX_VR_OB, 1, 1, "Data Set Trailing Padding", ""},
  };
  DictionaryFile file;
  for (const Row& row : kRows) file.add(row.tag, row.vr, row.low, row.high, row.name, row.creator);
  return file.bytes();
}

inline constexpr char kServices[] = R"([SERVICE_TABLE]
NUMBER_OF_SERVICES_SUPPORTED = 6
STANDARD_ECHO = 0001
STANDARD_CT = 0002
STANDARD_MR = 0003
STUDY_ROOT_QR_FIND = 0004
BASIC_GRAYSCALE_PRINT_MANAGEMENT = 0006
DICOMDIR = 0008
[ITEM_TABLE]
NUMBER_OF_ITEMS_SUPPORTED = 2
REF_IMAGE = 0501
PATIENT = 0502
[0001]
NAME = STANDARD_ECHO
UID = 1.2.840.10008.1.1
TYPE = BASE
COMMAND_1 = C_ECHO_RQ
COMMAND_2 = C_ECHO_RSP
[0002]
NAME = STANDARD_CT
UID = 1.2.840.10008.5.1.4.1.1.2
TYPE = BASE
COMMAND_1 = C_STORE_RQ
COMMAND_2 = C_STORE_RSP
[0003]
NAME = STANDARD_MR
UID = 1.2.840.10008.5.1.4.1.1.4
TYPE = BASE
COMMAND_1 = C_STORE_RQ
COMMAND_2 = C_STORE_RSP
[0004]
NAME = STUDY_ROOT_QR_FIND
UID = 1.2.840.10008.5.1.4.1.2.2.1
TYPE = BASE
COMMAND_1 = C_FIND_RQ
COMMAND_2 = C_FIND_RSP
COMMAND_3 = C_CANCEL_FIND_RQ
[0005]
NAME = BASIC_FILM_SESSION
UID = 1.2.840.10008.5.1.1.1
TYPE = BASE
COMMAND_1 = N_CREATE_RQ
COMMAND_2 = N_CREATE_RSP
[0006]
NAME = BASIC_GRAYSCALE_PRINT_MANAGEMENT
UID = 1.2.840.10008.5.1.1.9
TYPE = META
SOP_CLASSES_INCLUDED = 1
SOP_CLASS_1 = 0005
[0007]
NAME = NOT_IN_THE_TABLE
UID = 1.2.3.4.5.6.7
TYPE = BASE
[0008]
NAME = DICOMDIR
UID = 1.2.840.10008.1.3.10
TYPE = BASE
COMMAND_1 = C_STORE_RQ
)";

inline constexpr char kApplications[] = R"([VEXAL_SCP]
PORT_NUMBER = 11112
HOST_NAME = localhost
SERVICE_LIST = Echo_Service_List
[Echo_Service_List]
SERVICES_SUPPORTED = 1
SERVICE_1 = STANDARD_ECHO
SYNTAX_LIST_1 = Plain_Syntaxes
[Plain_Syntaxes]
SYNTAX_1 = EXPLICIT_LITTLE_ENDIAN
SYNTAX_2 = IMPLICIT_LITTLE_ENDIAN
)";

// The lines that the library logs, whole.
class LogCapture {
 public:
  static void start() { VX_Register_MemoryLog_Function(&take); }
  static void stop() { VX_Register_MemoryLog_Function(nullptr); }
  static std::vector<std::string> lines() {
    const std::lock_guard guard(mutex());
    return store();
  }
  static void clear() {
    const std::lock_guard guard(mutex());
    store().clear();
  }

 private:
  static void take(int32_t, const char* line) {
    const std::lock_guard guard(mutex());
    store().emplace_back(line);
  }
  static std::mutex& mutex() {
    static auto* const instance = new std::mutex;
    return *instance;
  }
  static std::vector<std::string>& store() {
    static auto* const instance = new std::vector<std::string>;
    return *instance;
  }
};

// A running library. A test that needs other settings overrides the texts, or calls begin() with its own.
class LibraryTest : public ::testing::Test {
 protected:
  // Lines of section VexalKit3 of vexal.ini, behind those that are always there.
  virtual std::string ini_lines() { return ""; }
  // The system profile, behind [MESSAGE_PARMS] with the paths of the data files.
  virtual std::string profile_lines() { return ""; }
  virtual std::string services() { return kServices; }
  virtual std::string applications() { return kApplications; }
  virtual std::string dictionary() { return small_dictionary(); }

  void SetUp() override { ASSERT_EQ(begin(), VX_NORMAL_COMPLETION); }
  void TearDown() override {
    VX_Library_Release();
    LogCapture::clear();
  }

  void write_configuration() {
    ini_ = folder_.write("vexal.ini",
                         "[VexalKit3]\n"
                         "VEXALKIT_3_PROFILE = $(VX3INIDIR)/test.pro\n"
                         "VEXALKIT_3_SERVICES = $(VX3INIDIR)/test.srv\n"
                         "VEXALKIT_3_APPLICATIONS = $(VX3INIDIR)/test.app\n"
                         "LOG_FILE = $(VX3INIDIR)/test.log\n"
                         "ERROR_MESSAGE = FILE\n"
                         "WARNING_MESSAGE = FILE\n" +
                             ini_lines());
    folder_.write("test.pro",
                  "[MESSAGE_PARMS]\n"
                  "DICTIONARY_FILE = $(VX3INIDIR)/test.dct\n"
                  "MSG_INFO_FILE = $(VX3INIDIR)/test.msg\n" +
                      profile_lines());
    folder_.write("test.srv", services());
    folder_.write("test.app", applications());
    folder_.write("test.dct", dictionary());
  }

  // Writes the configuration and starts the library with it; log lines are captured from then on.
  VX_STATUS begin() {
    write_configuration();
    LogCapture::stop();
    VX_Set_VexalINI(ini_.c_str());
    const VX_STATUS status = VX_Library_Initialization(nullptr, nullptr, nullptr);
    LogCapture::clear();
    LogCapture::start();
    return status;
  }
  // The same with the complete data that the build made.
  VX_STATUS begin_with_full_data() {
    VX_Library_Release();
    VX_Set_VexalINI(VEXAL_BINARY_DIR "/share/vexalkit/vexal.ini");
    const VX_STATUS status = VX_Library_Initialization(nullptr, nullptr, nullptr);
    set_text(VX_CFG_LOG_FILE, folder_.path("test.log"));
    LogCapture::clear();
    LogCapture::start();
    return status;
  }

  static void set_text(VX_STRING_KEY key, const std::string& value) {
    ASSERT_EQ(VX_Set_String_Config_Value(key, value.c_str()), VX_NORMAL_COMPLETION) << value;
  }
  static void set_bool(VX_BOOL_KEY key, bool value) {
    ASSERT_EQ(VX_Set_Bool_Config_Value(key, value ? 1 : 0), VX_NORMAL_COMPLETION);
  }
  static void set_int(VX_INT_KEY key, int32_t value) {
    ASSERT_EQ(VX_Set_Int_Config_Value(key, value), VX_NORMAL_COMPLETION);
  }
  static void set_long(VX_LONG_KEY key, int32_t value) {
    ASSERT_EQ(VX_Set_Long_Config_Value(key, value), VX_NORMAL_COMPLETION);
  }
  static std::string get_text(VX_STRING_KEY key) {
    std::string text(1024, '\0');
    EXPECT_EQ(VX_Get_String_Config_Value(key, 1024, text.data()), VX_NORMAL_COMPLETION);
    return text.c_str();
  }
  static int32_t get_int(VX_INT_KEY key) {
    int32_t value = -12345;
    EXPECT_EQ(VX_Get_Int_Config_Value(key, &value), VX_NORMAL_COMPLETION);
    return value;
  }

  static std::vector<std::string> log_lines() { return LogCapture::lines(); }
  static void clear_log() { LogCapture::clear(); }
  static int count_log(std::string_view part) {
    int count = 0;
    for (const std::string& line : LogCapture::lines()) count += line.find(part) != std::string::npos ? 1 : 0;
    return count;
  }
  static bool has_log(std::string_view part) { return count_log(part) != 0; }

  const TempFolder& folder() const { return folder_; }
  const std::string& ini() const { return ini_; }

 private:
  TempFolder folder_;
  std::string ini_;
};

}  // namespace support
