#include "config/config.h"

#include <cstring>
#include <new>

#include "config/keys.h"
#include "config/record.h"
#include "frame/lock.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/seams.h"
#include "frame/state.h"
#include "frame/text.h"

namespace vx {
namespace {

ConfigRecord* g_record = nullptr;      // null: the defaults
ConfigRecord* g_own_record = nullptr;  // the one that the loader made
ConfigRecord g_supplied_as_it_was;     // what a program handed over, to be put back
ProfileTables* g_tables = nullptr;

constexpr const char* kEmptyWords[] = {"", "<none>", "none", "na", "n/a"};

constexpr WordRule kWordRules[] = {
    {VX_CFG_COMPRESSION_RGB_TRANSFORM_FORMAT,
     WordMatch::Exact,
     {"YBR_FULL_422", "YBR_FULL", nullptr},
     ".",
     "Defaulting to color transform format of YBR_FULL_422.",
     ".",
     "|  Defaulting to color transform format of YBR_FULL_422."},
    {VX_CFG_DICTIONARY_ACCESS,
     WordMatch::FirstLetter,
     {"MEM", "FILE", nullptr},
     "",
     "Defaulting to reading Data Dictionary from MEMory.",
     ".",
     "|  Defaulting to reading Data Dictionary from MEMory."},
    {VX_CFG_LARGE_DATA_STORE,
     WordMatch::FirstLetter,
     {"MEM", "FILE", nullptr},
     "",
     "Defaulting to storing large data in MEMory",
     ".",
     "|  Defaulting to storing large data in MEMory."},
    {VX_CFG_IP_TYPE,
     WordMatch::AnyCaseInProfile,
     {"AVAILABLE", "IPV4", "IPV6"},
     ", must be AVAILABLE, IPV4, or IPV6",
     "Defaulting to value of AVAILABLE",
     ".",
     "|  Defaulting to value of AVAILABLE."},
    {VX_CFG_NULL_TYPE3_VALIDATION,
     WordMatch::FirstLetter,
     {"ERR", "INFO", "WARN"},
     nullptr,
     nullptr,
     nullptr,
     nullptr},
    {VX_CFG_UNKNOWN_VR_CODE,
     WordMatch::Exact,
     {"UN", "OB", nullptr},
     ", must be UN or OB.",
     "Defaulting to value of UN.",
     ", must be OB or UN.",
     "|  Defaulting to value of UN."},
};

bool word_matches(const WordRule& rule, std::string_view value, const char* word, bool in_profile) {
  switch (rule.match) {
    case WordMatch::FirstLetter:
      return !value.empty() && equals_ignoring_case(value.substr(0, 1), std::string_view(word, 1));
    case WordMatch::AnyCaseInProfile:
      return in_profile ? equals_ignoring_case(value, word) : value == word;
    default:
      return value == word;
  }
}

// One text in the place of another, at once: a reader without the lock sees the old constant or the new one.
void replace_text(VX_STRING_KEY key, const char* text, bool owned) {
  ConfigRecord& record = config();
  const char* old = std::atomic_ref<const char*>(record.string_values[key]).exchange(text);
  if (record.string_owned[key] == 1) release(const_cast<char*>(old));
  record.string_owned[key] = owned ? 1 : 0;
}

}  // namespace

ConfigRecord& config() {
  return g_record != nullptr ? *g_record : default_record();
}

std::size_t config_text(VX_STRING_KEY key, char* buffer, std::size_t size) {
  const Guard guard(state().charParamSemaphore);
  const std::string_view text = config().string_values[key];
  copy_text(buffer, size, text);
  return text.size();
}

std::string config_text(VX_STRING_KEY key) {
  const Guard guard(state().charParamSemaphore);
  return config().string_values[key];
}

char config_first_char(VX_STRING_KEY key) {
  if (find_word_rule(key) != nullptr) {
    return *std::atomic_ref<const char*>(config().string_values[key]).load(std::memory_order_acquire);
  }
  const Guard guard(state().charParamSemaphore);
  return *config().string_values[key];
}

bool is_empty_word(std::string_view text) {
  for (const char* word : kEmptyWords) {
    if (equals_ignoring_case(text, word)) return true;
  }
  return false;
}

const WordRule* find_word_rule(VX_STRING_KEY key) {
  for (const WordRule& rule : kWordRules) {
    if (rule.key == key) return &rule;
  }
  return nullptr;
}

const char* pick_word(const WordRule& rule, std::string_view value, bool in_profile) {
  for (const char* word : rule.words) {
    if (word != nullptr && word_matches(rule, value, word, in_profile)) return word;
  }
  return nullptr;
}

bool store_text(VX_STRING_KEY key, std::string_view text) {
  char* copy = nullptr;
  const bool empty = is_empty_word(text);
  if (!empty) copy = static_cast<char*>(allocate_raw(text.size() + 1));
  if (copy != nullptr) copy_text(copy, text.size() + 1, text);
  replace_text(key, copy != nullptr ? copy : "", copy != nullptr);
  return empty || copy != nullptr;
}

void store_constant(VX_STRING_KEY key, const char* text) {
  replace_text(key, text, false);
}

void push_settings() {
  ConfigRecord& record = config();
  LogSettings& log = log_settings();
  for (std::size_t i = 0; i < VX_LOG_KEY_COUNT; ++i) {
    log.destinations[i].store(
        std::atomic_ref<uint32_t>(record.log_destinations[i]).load(std::memory_order_relaxed),
        std::memory_order_relaxed);
  }
  log.line_length = config_int(VX_CFG_LOG_FILE_LINE_LENGTH);
  log.file_lines = config_int(VX_CFG_LOG_FILE_SIZE);
  log.memory_lines = config_int(VX_CFG_LOG_MEMORY_SIZE);
  log.history = config_int(VX_CFG_NUM_HISTORICAL_LOG_FILES);
  log.backup = config_bool(VX_CFG_LOG_FILE_BACKUP);
  log.fill = config_bool(VX_CFG_BLANK_FILL_LOG_FILE);
  {
    const Guard guard(state().charParamSemaphore);
    log_set_file(record.string_values[VX_CFG_LOG_FILE]);
  }
  constexpr std::size_t kPixelHeader = 12;
  // The pool holds several of them at a time: what is far too large for that stands alone on the heap.
  constexpr uint32_t kMostPooled = 16U << 20;
  const uint32_t pixel = pixel_buffer_size();
  set_pixel_buffer_size(pixel <= kMostPooled ? pixel + kPixelHeader : 0);
}

ConfigRecord& start_record() {
  config_drop();
  g_own_record = new ConfigRecord;
  set_defaults(*g_own_record);
  g_record = g_own_record;
  return *g_own_record;
}

void adopt_tables(ProfileTables* tables) {
  delete g_tables;
  g_tables = tables;
}

VX_STATUS config_take_record(ConfigRecord* record) {
  config_drop();
  if (record == nullptr) return VX_CONFIG_INFO_ERROR;
  if (record->version != nullptr && std::strcmp(record->version, library_banner()) != 0)
    return VX_INVALID_VERSION;
  g_supplied_as_it_was = *record;
  g_record = record;
  const Guard guard(state().charParamSemaphore);
  for (VX_STRING_KEY key = 0; key < VX_STRING_KEY_COUNT; ++key) {
    record->string_owned[key] = 0;
    const char* text = record->string_values[key];
    if (text == nullptr) record->string_values[key] = "";
    // Keys of a few words are read by their first letter.
    const WordRule* rule = find_word_rule(key);
    if (rule == nullptr || text == nullptr) continue;
    const char* word = pick_word(*rule, text, true);
    record->string_values[key] = word != nullptr ? word : rule->words[0];
  }
  push_settings();
  if (record->accepted_titles == nullptr) {
    parse_titles(record->string_values[VX_CFG_ACCEPT_LIST_OF_APPLICATION_TITLES]);
  }
  parse_filter(record->string_values[VX_CFG_DECODER_TAG_FILTER]);
  return kOk;
}

void config_drop() {
  drop_service_list();
  drop_filter();
  drop_titles();
  for (VX_STRING_KEY key = 0; key < VX_STRING_KEY_COUNT; ++key) {
    if (config().string_owned[key] == 1) replace_text(key, "", false);
  }
  if (g_record != nullptr && g_record != g_own_record) *g_record = g_supplied_as_it_was;
  g_record = nullptr;
  delete g_own_record;
  g_own_record = nullptr;
  delete g_tables;
  g_tables = nullptr;
  set_defaults(default_record());
  config_path().clear();
}

void config_force_memory_dictionary() {
  const Guard guard(state().charParamSemaphore);
  store_constant(VX_CFG_DICTIONARY_ACCESS, "MEM");
}

std::string& config_path() {
  // Never destroyed: threads may outlive the statics of the program.
  static auto* path = new std::string;
  return *path;
}

}  // namespace vx
