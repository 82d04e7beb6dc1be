// Settings that a program changes while the library runs.
#include <climits>
#include <string>

#include "config/keys.h"
#include "config/record.h"
#include "config/seams.h"
#include "frame/lock.h"
#include "frame/log.h"
#include "frame/seams.h"
#include "frame/state.h"

namespace vx {
namespace {

constexpr std::size_t kMostVersionName = 16;

// What happens to a value on its way in, from left to right. Odd values move by `odd`.
struct SetRule {
  int32_t key;
  int32_t least;  // below it: VX_MUST_BE_POSITIVE
  int32_t low;    // below it: below_low
  int32_t below_low;
  int32_t high;  // above it: above_high
  int32_t above_high;
  int32_t odd;
};

constexpr int32_t kAny = INT_MIN;

constexpr SetRule positive(int32_t key) {
  return {key, 1, kAny, 0, INT_MAX, 0, 0};
}

constexpr SetRule kIntRules[] = {
    {VX_CFG_COMPRESSION_CHROM_FACTOR, 0, kAny, 0, 255, 32, 0},
    {VX_CFG_COMPRESSION_LUM_FACTOR, 0, kAny, 0, 255, 32, 0},
    {VX_CFG_COMPRESSION_J2K_LOSSY_QUALITY, kAny, 0, 1, 10, 1, 0},
    {VX_CFG_COMPRESSION_J2K_LOSSY_RATIO, kAny, 0, 10, 400, 10, 0},
    {VX_CFG_COMPRESSION_QUALITY, kAny, 1, 90, 100, 90, 0},
    {VX_CFG_COMPRESSION_THREADS, 0, kAny, 0, 256, 256, 0},
    {VX_CFG_DEFLATE_COMPRESSION_LEVEL, kAny, -1, -1, 9, -1, 0},
    {VX_CFG_DESIRED_LAST_PDU_SIZE, 1, kAny, 0, 16, 16, 1},
    positive(VX_CFG_FLATE_GROW_OUTPUT_BUF_SIZE),
    positive(VX_CFG_LARGE_DATA_SIZE),
    positive(VX_CFG_LIST_SQ_DEPTH_LIMIT),
    positive(VX_CFG_LIST_VALUE_LIMIT),
    positive(VX_CFG_LOG_FILE_SIZE),
    positive(VX_CFG_LOG_MEMORY_SIZE),
    positive(VX_CFG_MAX_PENDING_CONNECTIONS),
    positive(VX_CFG_NUM_HISTORICAL_LOG_FILES),
    positive(VX_CFG_NUMBER_OF_CAP_FILES),
    positive(VX_CFG_OBOW_BUFFER_SIZE),
    positive(VX_CFG_TCPIP_LISTEN_PORT),
    {VX_CFG_IGNORE_JPEG_BAD_SUFFIX, kAny, -1, -1, INT_MAX, 0, 0},
    {VX_CFG_LOG_FILE_LINE_LENGTH, kAny, 16, 16, 254, 254, 0},
    {VX_CFG_TCPIP_RECEIVE_BUFFER_SIZE, 0, kAny, 0, INT_MAX, 0, 0},
    {VX_CFG_TCPIP_SEND_BUFFER_SIZE, 0, kAny, 0, INT_MAX, 0, 0},
    {VX_CFG_WORK_BUFFER_SIZE, 1, 1024, 28672, INT_MAX, 0, -1},
};

constexpr int32_t kMostCaptureKilobytes = INT_MAX / 1024;
constexpr int32_t kLeastCaptureKilobytes = 32;

constexpr SetRule kLongRules[] = {
    positive(VX_CFG_CALLBACK_MIN_DATA_SIZE),
    {VX_CFG_CAPTURE_FILE_SIZE, kAny, 1, 0, kMostCaptureKilobytes, kMostCaptureKilobytes, 0},
    {VX_CFG_PDU_MAXIMUM_LENGTH, 1, 4096, 4096, INT_MAX - 1, INT_MAX - 1, 1},
    {VX_CFG_PIXEL_BUFFER_SIZE, 1, 131072, 131072, INT_MAX - 1, INT_MAX - 1, 1},
};

template <std::size_t N>
VX_STATUS apply_rule(const SetRule (&rules)[N], int32_t key, int32_t& value) {
  for (const SetRule& rule : rules) {
    if (rule.key != key) continue;
    if (value < rule.least) return VX_MUST_BE_POSITIVE;
    if (value < rule.low) {
      value = rule.below_low;
    } else if (value > rule.high) {
      value = rule.above_high;
    } else if (value % 2 != 0) {
      value += rule.odd;
    }
    break;
  }
  return kOk;
}

void tell_capture(int32_t file_size, int32_t files, bool rewrite) {
  if (capture_settings_changed == nullptr) return;
  capture_settings_changed(file_size, config_text(VX_CFG_CAPTURE_FILE).c_str(), files, rewrite);
}

void store_int(VX_INT_KEY key, int32_t value) {
  std::atomic_ref<int32_t>(config().int_values[key]).store(value, std::memory_order_relaxed);
}

VX_STATUS set_word(const WordRule& rule, const char* name, const char* value) {
  const char* word = pick_word(rule, value, false);
  if (word == nullptr) {
    word = rule.words[0];
    if (rule.setter_tail != nullptr) {
      VX_LOG_WARN("VX_Set_String_Config_Value", "Invalid %s value: %s%s", name, value, rule.setter_tail);
      VX_LOG_WARN("VX_Set_String_Config_Value", "%s", rule.setter_default);
    }
  }
  store_constant(rule.key, word);
  return kOk;
}

}  // namespace

VX_STATUS config_set_int(VX_INT_KEY key, int32_t value) {
  if (key < 0 || key >= VX_INT_KEY_COUNT) return VX_INVALID_PARAMETER_NAME;
  if (const VX_STATUS status = apply_rule(kIntRules, key, value); status != kOk) return status;
  if (key == VX_CFG_LOG_FILE_LINE_LENGTH && log_file_started()) {
    VX_LOG_WARN("VX_Set_Int_Config_Value", "Log file already created, cannot set %s.",
                int_keys()[VX_CFG_LOG_FILE_LINE_LENGTH].name);
    return kOk;
  }
  if (key == VX_CFG_NUMBER_OF_CAP_FILES && value != config_int(key)) {
    tell_capture(config_long(VX_CFG_CAPTURE_FILE_SIZE), value, config_bool(VX_CFG_REWRITE_CAPTURE_FILES));
  }
  store_int(key, value);
  push_settings();
  return kOk;
}

VX_STATUS config_set_long(VX_LONG_KEY key, int32_t value) {
  if (key < 0 || key >= VX_LONG_KEY_COUNT) return VX_INVALID_PARAMETER_NAME;
  const bool changed = value != config_long(key);
  if (const VX_STATUS status = apply_rule(kLongRules, key, value); status != kOk) return status;
  if (key == VX_CFG_CAPTURE_FILE_SIZE && value > 0 && value < kLeastCaptureKilobytes)
    value = kLeastCaptureKilobytes;
  std::atomic_ref<int32_t>(config().long_values[key]).store(value, std::memory_order_relaxed);
  if (key == VX_CFG_CAPTURE_FILE_SIZE && changed) {
    tell_capture(value, config_int(VX_CFG_NUMBER_OF_CAP_FILES), config_bool(VX_CFG_REWRITE_CAPTURE_FILES));
  }
  push_settings();
  return kOk;
}

VX_STATUS config_set_bool(VX_BOOL_KEY key, bool value) {
  if (key < 0 || key >= VX_BOOL_KEY_COUNT) return VX_INVALID_PARAMETER_NAME;
  const bool changed = value != config_bool(key);
  std::atomic_ref<uint32_t>(config().bool_values[key]).store(value ? 1 : 0, std::memory_order_relaxed);
  if (changed && key == VX_CFG_NETWORK_CAPTURE) {
    if (value && capture_start != nullptr) capture_start();
    if (!value && capture_stop != nullptr) capture_stop();
  }
  if (changed && key == VX_CFG_REWRITE_CAPTURE_FILES) {
    tell_capture(config_long(VX_CFG_CAPTURE_FILE_SIZE), config_int(VX_CFG_NUMBER_OF_CAP_FILES), value);
  }
  push_settings();
  return kOk;
}

VX_STATUS config_set_text(VX_STRING_KEY key, const char* value) {
  if (key < 0 || key >= VX_STRING_KEY_COUNT) return VX_INVALID_PARAMETER_NAME;
  const char* name = string_keys()[static_cast<std::size_t>(key)].name;
  const Guard guard(state().charParamSemaphore);
  std::string text = value;
  if (const WordRule* rule = find_word_rule(key); rule != nullptr) return set_word(*rule, name, value);
  const char* parsed = is_empty_word(text) ? "" : value;
  if (key == VX_CFG_ACCEPT_LIST_OF_APPLICATION_TITLES && !parse_titles(parsed)) return VX_CANNOT_COMPLY;
  if (key == VX_CFG_DECODER_TAG_FILTER && !parse_filter(parsed)) return VX_CANNOT_COMPLY;
  if (key == VX_CFG_IMPLEMENTATION_VERSION && text.size() > kMostVersionName) {
    text.resize(kMostVersionName);
    VX_LOG_WARN("VX_Set_String_Config_Value", "%s too long. Truncated to %s.", name, text.c_str());
  }
  if (!store_text(key, text)) return VX_CANNOT_COMPLY;
  if (key == VX_CFG_LOG_FILE) log_set_file(config().string_values[key]);
  return kOk;
}

VX_STATUS config_set_destination(VX_LOG_KEY key, uint32_t destination) {
  if (key < 0 || key >= VX_LOG_KEY_COUNT) return VX_INVALID_PARAMETER_NAME;
  if (key == VX_CFG_ERROR_MESSAGE) destination |= VX_LOG_TO_FILE;
  std::atomic_ref<uint32_t>(config().log_destinations[key]).store(destination, std::memory_order_relaxed);
  push_settings();
  return kOk;
}

}  // namespace vx
