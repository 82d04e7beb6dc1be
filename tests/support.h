// What tests of the library share: a small configuration in a folder of its own, and the lines of the log.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vexalkit.h"

namespace support {

inline std::string read_file(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

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
  std::string read(std::string_view name) const { return read_file(path(name)); }

 private:
  std::string path_;
};

// Real files, where the machine has them.
inline std::filesystem::path sample_folder() {
  const char* named = ::getenv("VEXAL_SAMPLES");
  return named != nullptr ? std::filesystem::path(named)
                          : std::filesystem::path(VEXAL_SOURCE_DIR) / ".." / "shared" / "samples";
}

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

// A part of the complete dictionary, and attributes of the tests' own.
inline std::string small_dictionary() {
  static constexpr uint32_t kTags[] = {
      0x00000000, 0x00000002, 0x00000100, 0x00000110, 0x00000800, 0x00020000, 0x00020001, 0x00020002,
      0x00020003, 0x00020010, 0x00020012, 0x00020013, 0x00020016, 0x00020100, 0x00020102, 0x00080005,
      0x00080008, 0x00080016, 0x00080018, 0x00080020, 0x0008002A, 0x00080030, 0x00080050, 0x00080060,
      0x00080090, 0x00080119, 0x00080120, 0x00081030, 0x00081140, 0x00081150, 0x00081155, 0x00100010,
      0x00100020, 0x00100030, 0x00100040, 0x00101010, 0x00101030, 0x001021B0, 0x00189306, 0x0020000D,
      0x0020000E, 0x00200013, 0x00200032, 0x00204000, 0x00280002, 0x00280004, 0x00280008, 0x00280009,
      0x00280010, 0x00280011, 0x00280030, 0x00280100, 0x00280101, 0x00280102, 0x00280103, 0x00281201,
      0x0040A160, 0x0040A730, 0x00420011, 0x00660016, 0x00660040, 0x7FE00010, 0xFFFCFFFC};
  constexpr int kMany = 255;
  static constexpr struct {
    uint32_t tag;
    VX_VR vr;
    int high;
    const char* name;
    const char* creator = "";
  } kOwn[] = {
      {0x00090001, VX_VR_LO, 1, "Private Text", "ACME 1.0"},
      {0x00090002, VX_VR_US, kMany, "Private Numbers", "ACME 1.0"},
      {0x00090003, VX_VR_SQ, 1, "Private Sequence", "ACME 1.0"},
      {0x00720063, VX_VR_ST, 1, "Test Short Text"},
      {0x00720073, VX_VR_OD, 1, "Test Doubles"},
      {0x00720074, VX_VR_FL, kMany, "Test Floats"},
      {0x00720078, VX_VR_SL, kMany, "Test Signed Longs"},
      {0x0072007A, VX_VR_SS, kMany, "Test Signed Shorts"},
      {0x0072007C, VX_VR_UL, kMany, "Test Unsigned Longs"},
  };
  static const std::string bytes = [] {
    std::map<uint32_t, std::string> records;
    const std::string all = read_file(VEXAL_BINARY_DIR "/share/vexalkit/vexalkit.dct");
    for (std::size_t at = 0; at < all.size();) {
      uint32_t tag = 0;
      for (std::size_t i = 0; i < 4; ++i) tag = tag << 8 | static_cast<unsigned char>(all[at + i]);
      const bool is_private = (tag >> 16) % 2 == 1 && tag >> 16 > 7 && tag >> 16 != 0xFFFF;
      const std::size_t end = all.find('\0', at + 8) + 1 + (is_private ? 513 : 0);
      if (std::find(std::begin(kTags), std::end(kTags), tag) != std::end(kTags)) {
        records[tag] = all.substr(at, end - at);
      }
      at = end;
    }
    const std::string signature = DictionaryFile().bytes();
    for (const auto& row : kOwn) {
      DictionaryFile file;
      file.add(row.tag, row.vr, 1, row.high, row.name, row.creator);
      records[row.tag] = file.bytes().substr(signature.size());
    }
    std::string made = signature;
    for (const auto& [tag, record] : records) made += record;
    return made;
  }();
  return bytes;
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

// The bytes that the library holds.
struct Memory {
  uint64_t total = 0, free = 0;
  uint64_t used() const { return total - free; }
};
inline Memory memory() {
  Memory now;
  EXPECT_EQ(VX_Report_Memory(&now.total, &now.free), VX_NORMAL_COMPLETION);
  return now;
}

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
