// Number and switch keys as the ini file and the system profile have them.
#include <algorithm>
#include <climits>
#include <string>

#include "config/keys.h"
#include "config/loader.h"
#include "frame/log.h"
#include "frame/text.h"

namespace vx {
namespace {

// Bounds of a profile's value. The message has a place for the number that is used instead.
struct ReadRule {
  VX_INT_KEY key;
  int32_t low;
  int32_t high;
  int32_t instead;
  const char* tail;  // behind "Invalid KEY value: VALUE"
  const char* message;
};

constexpr int32_t kDefault = INT_MIN;  // the key's default is used instead

constexpr const char* kNonNegative = "|  Must be non-negative: Defaulting to %d.";
constexpr const char* kPositive = "|  Must be positive: Defaulting to %d.";

constexpr ReadRule kReadRules[] = {
    {VX_CFG_COMPRESSION_CHROM_FACTOR, 0, INT_MAX, kDefault, ".", kNonNegative},
    {VX_CFG_COMPRESSION_LUM_FACTOR, 0, INT_MAX, kDefault, ".", kNonNegative},
    {VX_CFG_LIST_SQ_DEPTH_LIMIT, 0, INT_MAX, kDefault, ".", kNonNegative},
    {VX_CFG_LIST_VALUE_LIMIT, 0, INT_MAX, kDefault, ".", kNonNegative},
    {VX_CFG_TCPIP_RECEIVE_BUFFER_SIZE, 0, INT_MAX, kDefault, ".", kNonNegative},
    {VX_CFG_TCPIP_SEND_BUFFER_SIZE, 0, INT_MAX, kDefault, ".", kNonNegative},
    {VX_CFG_COMPRESSION_J2K_LOSSY_QUALITY, 0, 10, kDefault, "", "Must be  >= 0 and <= 10: Defaulting to %d."},
    {VX_CFG_COMPRESSION_J2K_LOSSY_RATIO, 0, 400, kDefault, "",
     "|  Must be >= 0 and <= 400: Defaulting to %d."},
    {VX_CFG_COMPRESSION_QUALITY, 1, 100, kDefault, "", "|  Must be >= 1 and <= 100: Defaulting to %d."},
    {VX_CFG_COMPRESSION_THREADS, 0, 256, kDefault, "", "|  Must be >= 0 and <= 256: Defaulting to %d."},
    {VX_CFG_DEFLATE_COMPRESSION_LEVEL, -1, 9, kDefault, "",
     "|  Must be -1 or 0 -> 9. Setting to default (%d)."},
    {VX_CFG_DESIRED_LAST_PDU_SIZE, 0, INT_MAX, kDefault, ".", kNonNegative},
    {VX_CFG_DESIRED_LAST_PDU_SIZE, 0, 16, 16, "", "|  Must be <= 16: Setting to %d."},
    {VX_CFG_FLATE_GROW_OUTPUT_BUF_SIZE, 1, INT_MAX, kDefault, ".", kPositive},
    {VX_CFG_IGNORE_JPEG_BAD_SUFFIX, -1, INT_MAX, kDefault, ".",
     "|  Must be -1, 0, or >0. Setting to default (%d)."},
    {VX_CFG_LARGE_DATA_SIZE, 1, INT_MAX, kDefault, ".", kPositive},
    {VX_CFG_MAX_PENDING_CONNECTIONS, 1, INT_MAX, kDefault, ".", kPositive},
    {VX_CFG_NUMBER_OF_CAP_FILES, 1, INT_MAX, kDefault, ".", kPositive},
    {VX_CFG_TCPIP_LISTEN_PORT, 1, INT_MAX, kDefault, ".", kPositive},
    {VX_CFG_OBOW_BUFFER_SIZE, 1, INT_MAX, kDefault, "", kPositive},
    {VX_CFG_WORK_BUFFER_SIZE, 1025, INT_MAX, kDefault, ".",
     "|  Must be greater than 1024: Defaulting to %d."},
    {VX_CFG_LOG_FILE_SIZE, 10, INT_MAX, 10, "", "Must be at least 10: Defaulting to %d"},
    {VX_CFG_LOG_MEMORY_SIZE, 1, INT_MAX, 1, "", "Must be positive: Defaulting to %d"},
    {VX_CFG_NUM_HISTORICAL_LOG_FILES, 1, INT_MAX, 1, "", "Must be positive: Defaulting to %d"},
    {VX_CFG_LOG_FILE_LINE_LENGTH, 16, 254, 78, "", "Must be between 16-254: Defaulting to %d"},
};

struct EvenRule {
  VX_INT_KEY key;
  const char* tail;
  const char* message;
};

constexpr EvenRule kEvenRules[] = {
    {VX_CFG_DESIRED_LAST_PDU_SIZE, ".", "|  Must be even: Changing to %d."},
    {VX_CFG_FLATE_GROW_OUTPUT_BUF_SIZE, ".", "|  Must be even: Changing to %d."},
    {VX_CFG_OBOW_BUFFER_SIZE, "", "|  Must be even: Changing to %d"},
    {VX_CFG_WORK_BUFFER_SIZE, ".", "|  Must be even: Changing to %d."},
};

void warn(const IntKey& row, const std::string& value, const char* tail, const char* message, int32_t used) {
  VX_LOG_WARN("VXI_ReadConfig", "Invalid %s value: %s%s", row.name, value.c_str(), tail);
  VX_LOG_WARN("VXI_ReadConfig", message, used);
}

int32_t bounded(VX_INT_KEY key, int32_t number, const std::string& value) {
  const IntKey& row = int_keys()[static_cast<std::size_t>(key)];
  for (const ReadRule& rule : kReadRules) {
    if (rule.key != key || (number >= rule.low && number <= rule.high)) continue;
    number = rule.instead == kDefault ? row.initial : rule.instead;
    warn(row, value, rule.tail, rule.message, number);
  }
  for (const EvenRule& rule : kEvenRules) {
    if (rule.key != key || number % 2 == 0) continue;
    number += number == INT_MAX ? -1 : 1;
    warn(row, value, rule.tail, rule.message, number);
  }
  return number;
}

bool all_digits(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool parse_int(std::string_view text, int32_t& number) {
  std::string_view digits = text;
  if (!digits.empty() && digits[0] == '-') digits.remove_prefix(1);
  if (digits.empty() || !all_digits(digits)) return false;
  number = parse_int32(text);
  return number != 0 || text.size() == 1;
}

bool parse_bool(std::string_view text, uint32_t& value) {
  constexpr struct {
    const char* word;
    uint32_t value;
  } kWords[] = {{"TRUE", 1}, {"ON", 1}, {"YES", 1}, {"1", 1}, {"FALSE", 0}, {"OFF", 0}, {"NO", 0}, {"0", 0}};
  for (const auto& row : kWords) {
    if (!equals_ignoring_case(text, row.word)) continue;
    value = row.value;
    return true;
  }
  return false;
}

template <typename Row, std::size_t N>
int32_t find_key(std::span<const Row, N> rows, std::string_view key, bool any_section, uint8_t section) {
  for (std::size_t i = 0; i < N; ++i) {
    if ((any_section || static_cast<uint8_t>(rows[i].section) == section) &&
        equals_ignoring_case(rows[i].name, key)) {
      return static_cast<int32_t>(i);
    }
  }
  return -1;
}

}  // namespace

void warn_invalid_value(std::string_view key, const std::string& value) {
  VX_LOG_WARN("VXI_ReadConfig", "Invalid: \"%s = %s\" - Using Default", std::string(key).c_str(),
              value.c_str());
}

bool read_int_key(std::string_view key, const std::string& value, bool any_section, uint8_t section) {
  const int32_t index = find_key(int_keys(), key, any_section, section);
  if (index < 0) return false;
  int32_t number = 0;
  if (parse_int(value, number)) {
    config().int_values[index] = bounded(index, number, value);
  } else {
    warn_invalid_value(key, value);
  }
  return true;
}

bool read_long_key(std::string_view key, const std::string& value, uint8_t section) {
  const int32_t index = find_key(long_keys(), key, false, section);
  if (index < 0) return false;
  if (all_digits(value)) {
    config().long_values[index] = parse_int32(value);
  } else {
    warn_invalid_value(key, value);
  }
  return true;
}

bool read_bool_key(std::string_view key, const std::string& value, bool any_section, uint8_t section) {
  const int32_t index = find_key(bool_keys(), key, any_section, section);
  if (index < 0) return false;
  if (!parse_bool(value, config().bool_values[index])) warn_invalid_value(key, value);
  return true;
}

}  // namespace vx
