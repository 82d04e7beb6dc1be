// Settings through the public functions.
#include <atomic>
#include <climits>
#include <thread>

#include "config/config.h"
#include "support.h"

namespace vx {
namespace {

class SettingsTest : public support::LibraryTest {};

TEST_F(SettingsTest, IntegersAreBroughtIntoBounds) {
  constexpr int32_t kRefused = INT_MIN;
  const struct {
    VX_INT_KEY key;
    int32_t given;
    int32_t stored;
  } rows[] = {
      {VX_CFG_COMPRESSION_CHROM_FACTOR, -1, kRefused},
      {VX_CFG_COMPRESSION_CHROM_FACTOR, 256, 32},
      {VX_CFG_COMPRESSION_LUM_FACTOR, 255, 255},
      {VX_CFG_COMPRESSION_J2K_LOSSY_QUALITY, -1, 1},
      {VX_CFG_COMPRESSION_J2K_LOSSY_QUALITY, 11, 1},
      {VX_CFG_COMPRESSION_J2K_LOSSY_QUALITY, 0, 0},
      {VX_CFG_COMPRESSION_J2K_LOSSY_RATIO, 401, 10},
      {VX_CFG_DEFLATE_COMPRESSION_LEVEL, -2, -1},
      {VX_CFG_DEFLATE_COMPRESSION_LEVEL, 9, 9},
      {VX_CFG_DESIRED_LAST_PDU_SIZE, 0, kRefused},
      {VX_CFG_DESIRED_LAST_PDU_SIZE, 7, 8},
      {VX_CFG_DESIRED_LAST_PDU_SIZE, 17, 16},
      {VX_CFG_LARGE_DATA_SIZE, 0, kRefused},
      {VX_CFG_LARGE_DATA_SIZE, 1, 1},
      {VX_CFG_LIST_VALUE_LIMIT, 0, kRefused},
      {VX_CFG_IGNORE_JPEG_BAD_SUFFIX, -9, -1},
      {VX_CFG_NUMBER_OF_CAP_FILES, 0, kRefused},
      {VX_CFG_TCPIP_RECEIVE_BUFFER_SIZE, -1, kRefused},
      {VX_CFG_TCPIP_SEND_BUFFER_SIZE, 0, 0},
      {VX_CFG_WORK_BUFFER_SIZE, 0, kRefused},
      {VX_CFG_WORK_BUFFER_SIZE, 1023, 28672},
      {VX_CFG_WORK_BUFFER_SIZE, 1025, 1024},
      {VX_CFG_WORK_BUFFER_SIZE, INT_MAX, INT_MAX - 1},
      {VX_CFG_ARTIM_TIMEOUT, -7, -7},
  };
  for (const auto& row : rows) {
    const int32_t before = get_int(row.key);
    const VX_STATUS status = VX_Set_Int_Config_Value(row.key, row.given);
    const bool refused = row.stored == kRefused;
    EXPECT_EQ(status, refused ? VX_MUST_BE_POSITIVE : VX_NORMAL_COMPLETION) << row.key << " " << row.given;
    EXPECT_EQ(get_int(row.key), refused ? before : row.stored) << row.key << " " << row.given;
  }
}

TEST_F(SettingsTest, LongsAreBroughtIntoBounds) {
  constexpr int32_t kRefused = INT_MIN;
  const struct {
    VX_LONG_KEY key;
    int32_t given;
    int32_t stored;
  } rows[] = {
      {VX_CFG_CALLBACK_MIN_DATA_SIZE, 0, kRefused},
      {VX_CFG_CAPTURE_FILE_SIZE, -5, 0},
      {VX_CFG_CAPTURE_FILE_SIZE, 0, 0},
      {VX_CFG_CAPTURE_FILE_SIZE, 1, 32},
      {VX_CFG_CAPTURE_FILE_SIZE, 33, 33},
      {VX_CFG_CAPTURE_FILE_SIZE, 2097152, 2097151},
      {VX_CFG_PDU_MAXIMUM_LENGTH, 0, kRefused},
      {VX_CFG_PDU_MAXIMUM_LENGTH, 100, 4096},
      {VX_CFG_PDU_MAXIMUM_LENGTH, 4097, 4098},
      {VX_CFG_PDU_MAXIMUM_LENGTH, INT_MAX, INT_MAX - 1},
      {VX_CFG_PIXEL_BUFFER_SIZE, 1, 131072},
      {VX_CFG_PIXEL_BUFFER_SIZE, 200001, 200002},
  };
  for (const auto& row : rows) {
    int32_t before = 0;
    VX_Get_Long_Config_Value(row.key, &before);
    const bool refused = row.stored == kRefused;
    EXPECT_EQ(VX_Set_Long_Config_Value(row.key, row.given),
              refused ? VX_MUST_BE_POSITIVE : VX_NORMAL_COMPLETION);
    int32_t after = 0;
    VX_Get_Long_Config_Value(row.key, &after);
    EXPECT_EQ(after, refused ? before : row.stored) << row.key << " " << row.given;
  }
}

TEST_F(SettingsTest, UnknownKeysAndNullPointers) {
  int32_t number = 5;
  uint32_t bits = 5;
  char text[8];
  for (const int32_t key : {-1, INT_MIN, 1000}) {
    EXPECT_EQ(VX_Set_Int_Config_Value(key, 1), VX_INVALID_PARAMETER_NAME);
    EXPECT_EQ(VX_Set_Long_Config_Value(key, 1), VX_INVALID_PARAMETER_NAME);
    EXPECT_EQ(VX_Set_Bool_Config_Value(key, 1), VX_INVALID_PARAMETER_NAME);
    EXPECT_EQ(VX_Set_String_Config_Value(key, ""), VX_INVALID_PARAMETER_NAME);
    EXPECT_EQ(VX_Set_Log_Destination(key, 1), VX_INVALID_PARAMETER_NAME);
    EXPECT_EQ(VX_Get_Int_Config_Value(key, &number), VX_INVALID_PARAMETER_NAME);
    EXPECT_EQ(number, 0);
    EXPECT_EQ(VX_Get_Long_Config_Value(key, &number), VX_INVALID_PARAMETER_NAME);
    EXPECT_EQ(VX_Get_Bool_Config_Value(key, &number), VX_INVALID_PARAMETER_NAME);
    EXPECT_EQ(VX_Get_String_Config_Value(key, 8, text), VX_INVALID_PARAMETER_NAME);
    EXPECT_EQ(VX_Get_Log_Destination(key, &bits), VX_INVALID_PARAMETER_NAME);
  }
  EXPECT_EQ(VX_Get_Int_Config_Value(0, nullptr), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Get_Long_Config_Value(0, nullptr), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Get_Bool_Config_Value(0, nullptr), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Get_String_Config_Value(0, 8, nullptr), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Set_String_Config_Value(0, nullptr), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Get_Log_Destination(0, nullptr), VX_NULL_POINTER_PARM);
}

TEST_F(SettingsTest, SwitchesAndDestinations) {
  int32_t value = 5;
  VX_Set_Bool_Config_Value(VX_CFG_LIST_UN_ATTRIBUTES, -7);
  VX_Get_Bool_Config_Value(VX_CFG_LIST_UN_ATTRIBUTES, &value);
  EXPECT_EQ(value, 1);
  VX_Set_Bool_Config_Value(VX_CFG_LIST_UN_ATTRIBUTES, 0);
  VX_Get_Bool_Config_Value(VX_CFG_LIST_UN_ATTRIBUTES, &value);
  EXPECT_EQ(value, 0);
  uint32_t bits = 0;
  VX_Set_Log_Destination(VX_CFG_ERROR_MESSAGE, 2);
  VX_Get_Log_Destination(VX_CFG_ERROR_MESSAGE, &bits);
  EXPECT_EQ(bits, 3U);
  VX_Set_Log_Destination(VX_CFG_INFO_MESSAGE, 2);
  VX_Get_Log_Destination(VX_CFG_INFO_MESSAGE, &bits);
  EXPECT_EQ(bits, 2U);
}

TEST_F(SettingsTest, Texts) {
  const struct {
    VX_STRING_KEY key;
    const char* given;
    const char* stored;
  } rows[] = {
      {VX_CFG_IMPLEMENTATION_CLASS_UID, "1.2.3", "1.2.3"},
      {VX_CFG_IMPLEMENTATION_CLASS_UID, "NONE", ""},
      {VX_CFG_IMPLEMENTATION_CLASS_UID, "n/A", ""},
      {VX_CFG_IMPLEMENTATION_CLASS_UID, "<None>", ""},
      {VX_CFG_IMPLEMENTATION_VERSION, "12345678901234567", "1234567890123456"},
      {VX_CFG_COMPRESSION_RGB_TRANSFORM_FORMAT, "YBR_FULL", "YBR_FULL"},
      {VX_CFG_COMPRESSION_RGB_TRANSFORM_FORMAT, "YBR", "YBR_FULL_422"},
      {VX_CFG_DICTIONARY_ACCESS, "file", "FILE"},
      {VX_CFG_DICTIONARY_ACCESS, "", "MEM"},
      {VX_CFG_LARGE_DATA_STORE, "File", "FILE"},
      {VX_CFG_LARGE_DATA_STORE, "?", "MEM"},
      {VX_CFG_IP_TYPE, "IPV4", "IPV4"},
      {VX_CFG_IP_TYPE, "ipv4", "AVAILABLE"},
      {VX_CFG_NULL_TYPE3_VALIDATION, "information", "INFO"},
      {VX_CFG_NULL_TYPE3_VALIDATION, "none", "ERR"},
      {VX_CFG_UNKNOWN_VR_CODE, "OB", "OB"},
      {VX_CFG_UNKNOWN_VR_CODE, "OX", "UN"},
      {VX_CFG_ACCEPT_LIST_OF_APPLICATION_TITLES, "A/B", "A/B"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(VX_Set_String_Config_Value(row.key, row.given), VX_NORMAL_COMPLETION) << row.given;
    EXPECT_EQ(get_text(row.key), row.stored) << row.given;
    EXPECT_EQ(config_first_char(row.key), row.stored[0]);
  }
  EXPECT_TRUE(has_log("IMPLEMENTATION_VERSION too long. Truncated to 1234567890123456."));
  EXPECT_TRUE(has_log("Invalid UNKNOWN_VR_CODE value: OX, must be UN or OB."));
  char buffer[6] = "12345";
  set_text(VX_CFG_IMPLEMENTATION_CLASS_UID, "1.2.3");
  EXPECT_EQ(VX_Get_String_Config_Value(VX_CFG_IMPLEMENTATION_CLASS_UID, 5, buffer), VX_BUFFER_TOO_SMALL);
  EXPECT_STREQ(buffer, "12345") << "nothing is copied";
  EXPECT_EQ(VX_Get_String_Config_Value(VX_CFG_IMPLEMENTATION_CLASS_UID, 6, buffer), VX_NORMAL_COMPLETION);
  set_text(VX_CFG_IMPLEMENTATION_CLASS_UID, "");
  EXPECT_EQ(VX_Get_String_Config_Value(VX_CFG_IMPLEMENTATION_CLASS_UID, 0, buffer), VX_BUFFER_TOO_SMALL);
  EXPECT_EQ(VX_Get_String_Config_Value(VX_CFG_IMPLEMENTATION_CLASS_UID, 1, buffer), VX_NORMAL_COMPLETION);
  EXPECT_STREQ(buffer, "");
}

TEST_F(SettingsTest, TextsThatCanNotBeKept) {
  set_text(VX_CFG_ACCEPT_LIST_OF_APPLICATION_TITLES, " ONE ;TWO\\THREE/,, FOUR # five");
  const auto titles = [] {
    std::string all;
    for (const char* const* title = config().accepted_titles; title != nullptr && *title != nullptr;
         ++title) {
      all += std::string(*title) + "|";
    }
    return all;
  };
  EXPECT_EQ(titles(), "ONE|TWO|THREE|FOUR|");
  EXPECT_EQ(VX_Set_String_Config_Value(VX_CFG_ACCEPT_LIST_OF_APPLICATION_TITLES, "X,SEVENTEEN_LETTERS,Y"),
            VX_CANNOT_COMPLY);
  EXPECT_TRUE(has_log("SetAETitles error - invalid length for [SEVENTEEN_LETTERS] title"));
  EXPECT_EQ(titles(), "ONE|TWO|THREE|FOUR|") << "a refused text leaves the old one in force";
  EXPECT_EQ(get_text(VX_CFG_ACCEPT_LIST_OF_APPLICATION_TITLES), " ONE ;TWO\\THREE/,, FOUR # five");
  set_text(VX_CFG_ACCEPT_LIST_OF_APPLICATION_TITLES, "");
  EXPECT_EQ(config().accepted_titles, nullptr);
  set_text(VX_CFG_IMPLEMENTATION_CLASS_UID, "1.2.3");
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ(VX_Set_String_Config_Value(VX_CFG_DECODER_TAG_FILTER, "X[00100010"), VX_CANNOT_COMPLY);
  }
}

TEST_F(SettingsTest, DecoderFilter) {
  constexpr uint32_t kFirst = 1 | 2 | 4 | 8 | 16;
  constexpr uint32_t kSecond = 32 | 64 | 128 | 256;
  const struct {
    const char* filter;
    uint32_t tag;
    uint32_t types;
    bool matches;
  } rows[] = {
      {"", 0x00100010, kFirst, false},
      {"00100010", 0x00100010, kFirst, true},
      {"00100010", 0x00100010, kSecond, false},
      {"00100010", 0x00100011, kFirst, false},
      {"0x00100010-0x00100020", 0x00100020, kFirst, true},
      {"0x00100010-0x00100020", 0x00100021, kFirst, false},
      {"PRIVATE", 0x00110001, kFirst, true},
      {"PRIVATE", 0x00100001, kFirst, false},
      {"G0010", 0x0010FFFF, kFirst, true},
      {"G0010-G0018", 0x00180000, kFirst, true},
      {"G0010-0018", 0x00190000, kFirst, false},
      {"DUP00100010", 0x00100010, kSecond, true},
      {"DUP00100010", 0x00100010, kFirst, false},
      {"DUP00100010-DUP00100020", 0x00100015, kSecond, true},
      {"DUPG0010", 0x00100099, kSecond, true},
      {"DUPG0010-DUPG0020", 0x00150000, kSecond, true},
      {"00080005, G0010\t7FE00010", 0x7FE00010, kFirst, true},
      {"ACME 1.0[00090001,00090002],G0020", 0x00200000, kFirst, true},
      {"ACME 1.0[00090001,00090002],G0020", 0x00090002, kFirst, true},
      {"ACME[00090001],OTHER[00110001]", 0x00110001, kFirst, true},
  };
  for (const auto& row : rows) {
    set_text(VX_CFG_DECODER_TAG_FILTER, row.filter);
    EXPECT_EQ(filter_matches(row.tag, row.types), row.matches) << row.filter << " " << row.tag;
  }
  const std::string long_creator = std::string(65, 'c') + "[00090001]";
  for (const char* filter : {"A[00100010", "A[00100010] B[00100010]", "00000000000000100010-00100020",
                             "nonsense", "G", long_creator.c_str()}) {
    EXPECT_EQ(VX_Set_String_Config_Value(VX_CFG_DECODER_TAG_FILTER, filter), VX_CANNOT_COMPLY) << filter;
  }
}

TEST_F(SettingsTest, ThreadsMaySetAndReadAtOnce) {
  std::atomic<bool> stop{false};
  std::atomic<int> torn{0};
  set_text(VX_CFG_INITIATOR_NAME, "a");  // what is read until a thread has come so far
  std::vector<std::thread> threads;
  for (const char c : {'a', 'b'}) {
    threads.emplace_back([&, c] {
      for (std::size_t i = 0; !stop; ++i) {
        VX_Set_String_Config_Value(VX_CFG_INITIATOR_NAME, std::string(1 + i % 200, c).c_str());
        VX_Set_String_Config_Value(VX_CFG_LARGE_DATA_STORE, i % 2 == 0 ? "MEM" : "FILE");
        VX_Set_Int_Config_Value(VX_CFG_ARTIM_TIMEOUT, static_cast<int32_t>(i % 10));
        VX_Set_String_Config_Value(VX_CFG_DECODER_TAG_FILTER, i % 2 == 0 ? "" : "G0009,00100010");
      }
    });
  }
  for (int i = 0; i < 2000; ++i) {
    const std::string text = config_text(VX_CFG_INITIATOR_NAME);
    if (text.find_first_not_of('a') != std::string::npos && text.find_first_not_of('b') != std::string::npos)
      ++torn;
    const char store = config_first_char(VX_CFG_LARGE_DATA_STORE);
    if (store != 'M' && store != 'F') ++torn;
    if (config_int(VX_CFG_ARTIM_TIMEOUT) > 30) ++torn;
    filter_matches(0x00100010, 8);
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(torn, 0);
}

}  // namespace
}  // namespace vx
