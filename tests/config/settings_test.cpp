// Settings through the public functions.
#include <climits>

#include "config/config.h"
#include "support.h"

namespace vx {
namespace {

class SettingsTest : public support::LibraryTest {};

TEST_F(SettingsTest, IntegersAreBroughtIntoBounds) {
  constexpr int32_t kRefused = INT_MIN;
  const struct {
    VX_INT_KEY key;
    std::vector<std::pair<int32_t, int32_t>> values;  // given and stored
  } rows[] = {
      {VX_CFG_COMPRESSION_CHROM_FACTOR, {{-1, kRefused}, {256, 32}}},
      {VX_CFG_COMPRESSION_LUM_FACTOR, {{255, 255}}},
      {VX_CFG_COMPRESSION_J2K_LOSSY_QUALITY, {{-1, 1}, {11, 1}, {0, 0}}},
      {VX_CFG_COMPRESSION_J2K_LOSSY_RATIO, {{401, 10}}},
      {VX_CFG_DEFLATE_COMPRESSION_LEVEL, {{-2, -1}, {9, 9}}},
      {VX_CFG_DESIRED_LAST_PDU_SIZE, {{0, kRefused}, {7, 8}, {17, 16}}},
      {VX_CFG_LARGE_DATA_SIZE, {{0, kRefused}, {1, 1}}},
      {VX_CFG_LIST_VALUE_LIMIT, {{0, kRefused}}},
      {VX_CFG_IGNORE_JPEG_BAD_SUFFIX, {{-9, -1}}},
      {VX_CFG_NUMBER_OF_CAP_FILES, {{0, kRefused}}},
      {VX_CFG_TCPIP_RECEIVE_BUFFER_SIZE, {{-1, kRefused}}},
      {VX_CFG_TCPIP_SEND_BUFFER_SIZE, {{0, 0}}},
      {VX_CFG_WORK_BUFFER_SIZE, {{0, kRefused}, {1023, 28672}, {1025, 1024}, {INT_MAX, INT_MAX - 1}}},
      {VX_CFG_ARTIM_TIMEOUT, {{-7, -7}}},
  };
  for (const auto& [key, values] : rows) {
    for (const auto& [given, stored] : values) {
      const int32_t before = get_int(key);
      const VX_STATUS status = VX_Set_Int_Config_Value(key, given);
      const bool refused = stored == kRefused;
      EXPECT_EQ(status, refused ? VX_MUST_BE_POSITIVE : VX_NORMAL_COMPLETION) << key << " " << given;
      EXPECT_EQ(get_int(key), refused ? before : stored) << key << " " << given;
    }
  }
}

TEST_F(SettingsTest, LongsAreBroughtIntoBounds) {
  constexpr int32_t kRefused = INT_MIN;
  const struct {
    VX_LONG_KEY key;
    std::vector<std::pair<int32_t, int32_t>> values;  // given and stored
  } rows[] = {
      {VX_CFG_CALLBACK_MIN_DATA_SIZE, {{0, kRefused}}},
      {VX_CFG_CAPTURE_FILE_SIZE, {{-5, 0}, {0, 0}, {1, 32}, {33, 33}, {2097152, 2097151}}},
      {VX_CFG_PDU_MAXIMUM_LENGTH, {{0, kRefused}, {100, 4096}, {4097, 4098}, {INT_MAX, INT_MAX - 1}}},
      {VX_CFG_PIXEL_BUFFER_SIZE, {{1, 131072}, {200001, 200002}}},
  };
  const auto get_long = [](VX_LONG_KEY key) {
    int32_t value = -12345;
    EXPECT_EQ(VX_Get_Long_Config_Value(key, &value), VX_NORMAL_COMPLETION);
    return value;
  };
  for (const auto& [key, values] : rows) {
    for (const auto& [given, stored] : values) {
      const int32_t before = get_long(key);
      const bool refused = stored == kRefused;
      EXPECT_EQ(VX_Set_Long_Config_Value(key, given), refused ? VX_MUST_BE_POSITIVE : VX_NORMAL_COMPLETION);
      EXPECT_EQ(get_long(key), refused ? before : stored) << key << " " << given;
    }
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
  for (const int32_t given : {-7, 0}) {
    int32_t value = 5;
    VX_Set_Bool_Config_Value(VX_CFG_LIST_UN_ATTRIBUTES, given);
    VX_Get_Bool_Config_Value(VX_CFG_LIST_UN_ATTRIBUTES, &value);
    EXPECT_EQ(value, given != 0 ? 1 : 0);
  }
  for (const auto& [key, stored] : {std::pair{VX_CFG_ERROR_MESSAGE, 3U}, {VX_CFG_INFO_MESSAGE, 2U}}) {
    uint32_t bits = 0;
    VX_Set_Log_Destination(key, 2);
    VX_Get_Log_Destination(key, &bits);
    EXPECT_EQ(bits, stored);
  }
}

TEST_F(SettingsTest, Texts) {
  const struct {
    VX_STRING_KEY key;
    std::vector<std::pair<const char*, std::string>> values;  // given and stored
  } rows[] = {
      {VX_CFG_IMPLEMENTATION_CLASS_UID, {{"1.2.3", "1.2.3"}, {"NONE", ""}, {"n/A", ""}, {"<None>", ""}}},
      {VX_CFG_IMPLEMENTATION_VERSION, {{"12345678901234567", "1234567890123456"}}},
      {VX_CFG_COMPRESSION_RGB_TRANSFORM_FORMAT, {{"YBR_FULL", "YBR_FULL"}, {"YBR", "YBR_FULL_422"}}},
      {VX_CFG_DICTIONARY_ACCESS, {{"file", "FILE"}, {"", "MEM"}}},
      {VX_CFG_LARGE_DATA_STORE, {{"File", "FILE"}, {"?", "MEM"}}},
      {VX_CFG_IP_TYPE, {{"IPV4", "IPV4"}, {"ipv4", "AVAILABLE"}}},
      {VX_CFG_NULL_TYPE3_VALIDATION, {{"information", "INFO"}, {"none", "ERR"}}},
      {VX_CFG_UNKNOWN_VR_CODE, {{"OB", "OB"}, {"OX", "UN"}}},
      {VX_CFG_ACCEPT_LIST_OF_APPLICATION_TITLES, {{"A/B", "A/B"}}},
  };
  for (const auto& [key, values] : rows) {
    for (const auto& [given, stored] : values) {
      EXPECT_EQ(VX_Set_String_Config_Value(key, given), VX_NORMAL_COMPLETION) << given;
      EXPECT_EQ(get_text(key), stored) << given;
      EXPECT_EQ(config_first_char(key), stored[0]);
    }
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
  struct Match {
    uint32_t tag, types;
    bool matches;
  };
  const struct {
    const char* filter;
    std::vector<Match> tags;
  } rows[] = {
      {"", {{0x00100010, kFirst, false}}},
      {"00100010", {{0x00100010, kFirst, true}, {0x00100010, kSecond, false}, {0x00100011, kFirst, false}}},
      {"0x00100010-0x00100020", {{0x00100020, kFirst, true}, {0x00100021, kFirst, false}}},
      {"PRIVATE", {{0x00110001, kFirst, true}, {0x00100001, kFirst, false}}},
      {"G0010", {{0x0010FFFF, kFirst, true}}},
      {"G0010-G0018", {{0x00180000, kFirst, true}}},
      {"G0010-0018", {{0x00190000, kFirst, false}}},
      {"DUP00100010", {{0x00100010, kSecond, true}, {0x00100010, kFirst, false}}},
      {"DUP00100010-DUP00100020", {{0x00100015, kSecond, true}}},
      {"DUPG0010", {{0x00100099, kSecond, true}}},
      {"DUPG0010-DUPG0020", {{0x00150000, kSecond, true}}},
      {"00080005, G0010\t7FE00010", {{0x7FE00010, kFirst, true}}},
      {"ACME 1.0[00090001,00090002],G0020", {{0x00200000, kFirst, true}, {0x00090002, kFirst, true}}},
      {"ACME[00090001],OTHER[00110001]", {{0x00110001, kFirst, true}}},
  };
  for (const auto& [filter, tags] : rows) {
    set_text(VX_CFG_DECODER_TAG_FILTER, filter);
    for (const auto& [tag, types, matches] : tags) {
      EXPECT_EQ(filter_matches(tag, types), matches) << filter << " " << tag;
    }
  }
  const std::string long_creator = std::string(65, 'c') + "[00090001]";
  for (const char* filter : {"A[00100010", "A[00100010] B[00100010]", "00000000000000100010-00100020",
                             "nonsense", "G", long_creator.c_str()}) {
    EXPECT_EQ(VX_Set_String_Config_Value(VX_CFG_DECODER_TAG_FILTER, filter), VX_CANNOT_COMPLY) << filter;
  }
}

}  // namespace
}  // namespace vx
