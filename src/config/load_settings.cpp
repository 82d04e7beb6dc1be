// vexal.ini and the system profile.
#include <string>

#include "config/keys.h"
#include "config/line.h"
#include "config/loader.h"
#include "frame/log.h"
#include "frame/state.h"
#include "frame/text.h"

namespace vx {
namespace {

constexpr const char* kReader = "VXI_ReadConfig";
constexpr std::size_t kMostClassUid = 64;
constexpr std::size_t kMostVersionName = 16;

int32_t find_string_key(std::string_view key, Section section) {
  const auto keys = string_keys();
  for (std::size_t i = 0; i < keys.size(); ++i) {
    if (keys[i].section == section && equals_ignoring_case(keys[i].name, key)) return static_cast<int32_t>(i);
  }
  return -1;
}

LoadResult keep(VX_STRING_KEY key, const std::string& value) {
  return store_text(key, value) ? LoadResult::Ok : LoadResult::NoMemory;
}

// ---- vexal.ini ----

LoadResult read_ini_path(VX_STRING_KEY key, const ProfileReader::Entry& entry) {
  std::string path;
  if (!expand_path(entry.value.c_str(), path)) {
    VX_LOG_ERR(kReader, "Invalid value for %s = %s", entry.key.c_str(), entry.value.c_str());
    return LoadResult::InvalidValue;
  }
  return keep(key, path);
}

// The known words of a log destination; 0 if there are none.
uint32_t read_destinations(std::string_view value) {
  constexpr struct {
    const char* word;
    uint32_t bit;
  } kWords[] = {{"MEMORY", VX_LOG_TO_MEMORY},
                {"FILE", VX_LOG_TO_FILE},
                {"SCREEN", VX_LOG_TO_SCREEN},
                {"OFF", VX_LOG_OFF}};
  uint32_t bits = 0;
  while (!value.empty()) {
    const std::size_t end = std::min(value.find_first_of(" ,\t"), value.size());
    for (const auto& row : kWords) {
      if (equals_ignoring_case(value.substr(0, end), row.word)) bits |= row.bit;
    }
    value.remove_prefix(std::min(end + 1, value.size()));
  }
  return bits;
}

bool read_log_key(const ProfileReader::Entry& entry) {
  const auto keys = log_keys();
  for (std::size_t i = 0; i < keys.size(); ++i) {
    if (!equals_ignoring_case(keys[i], entry.key)) continue;
    const uint32_t bits = read_destinations(entry.value);
    if (bits == 0) {
      VX_LOG_WARN(kReader, "Ignoring unknown value[s]: %s = %s", entry.key.c_str(), entry.value.c_str());
    } else {
      config().log_destinations[i] = bits;
    }
    return true;
  }
  return false;
}

// ---- The system profile ----

LoadResult read_path(VX_STRING_KEY key, const ProfileReader::Entry& entry) {
  const StringKey& row = string_keys()[static_cast<std::size_t>(key)];
  if (entry.value.empty()) {
    VX_LOG_WARN(kReader, "%s parameter value missing.", row.name);
    VX_LOG_WARN(kReader, "|  Defaulting to %s.", row.initial);
    return keep(key, row.initial);
  }
  std::string path;
  if (expand_path(entry.value.c_str(), path)) return keep(key, path);
  VX_LOG_ERR(kReader, "Invalid value for %s = %s.", entry.key.c_str(), entry.value.c_str());
  warn_invalid_value(entry.key, entry.value);
  return LoadResult::Ok;
}

LoadResult read_word(const WordRule& rule, const ProfileReader::Entry& entry) {
  const char* word = pick_word(rule, entry.value, true);
  if (word == nullptr) {
    word = rule.words[0];
    if (rule.profile_tail != nullptr) {
      VX_LOG_WARN(kReader, "Invalid %s value: %s%s", entry.key.c_str(), entry.value.c_str(),
                  rule.profile_tail);
      VX_LOG_WARN(kReader, "%s", rule.profile_default);
    }
  }
  store_constant(rule.key, word);
  return LoadResult::Ok;
}

LoadResult read_cut(VX_STRING_KEY key, const ProfileReader::Entry& entry, std::size_t most) {
  std::string text = entry.value;
  if (text.size() > most) {
    text.resize(most);
    VX_LOG_WARN(kReader, "%s too long. Truncated to %s.", entry.key.c_str(), text.c_str());
  }
  return keep(key, text);
}

LoadResult read_string(VX_STRING_KEY key, const ProfileReader::Entry& entry) {
  const StringKey& row = string_keys()[static_cast<std::size_t>(key)];
  const std::string parsed = is_empty_word(entry.value) ? "" : entry.value;
  if (const WordRule* rule = find_word_rule(key); rule != nullptr) return read_word(*rule, entry);
  if (row.path && row.section != Section::VexalKit3) return read_path(key, entry);
  switch (key) {
    case VX_CFG_ACCEPT_LIST_OF_APPLICATION_TITLES:
      return parse_titles(parsed) ? keep(key, entry.value) : LoadResult::InvalidValue;
    case VX_CFG_DECODER_TAG_FILTER:
      if (parse_filter(parsed)) return keep(key, entry.value);
      warn_invalid_value(entry.key, entry.value);
      return LoadResult::Ok;
    case VX_CFG_IMPLEMENTATION_CLASS_UID:
      return read_cut(key, entry, kMostClassUid);
    case VX_CFG_IMPLEMENTATION_VERSION:
      return read_cut(key, entry, kMostVersionName);
    case VX_CFG_IMPLICIT_LITTLE_ENDIAN_SYNTAX:
      if (!parsed.empty()) return keep(key, entry.value);
      VX_LOG_WARN(kReader, "<none> invalid for %s.", row.name);
      VX_LOG_WARN(kReader, "|  Defaulting %s to %s.", row.name, row.initial);
      return keep(key, row.initial);
    default:
      return keep(key, entry.value);
  }
}

LoadResult read_profile_entry(const ProfileReader::Entry& entry) {
  const Section section = find_section(entry.section);
  if (section != Section::None) {
    const int32_t key = find_string_key(entry.key, section);
    if (key >= 0) return read_string(key, entry);
    const auto number = static_cast<uint8_t>(section);
    if (read_int_key(entry.key, entry.value, false, number) ||
        read_long_key(entry.key, entry.value, number) ||
        read_bool_key(entry.key, entry.value, false, number)) {
      return LoadResult::Ok;
    }
  }
  VX_LOG_WARN(kReader, "Ignoring invalid option %s in [%s] section of vexalkit.pro file", entry.key.c_str(),
              entry.section.c_str());
  return LoadResult::Ok;
}

}  // namespace

LoadResult read_ini(std::string_view content) {
  return for_each_entry(content, kIniValueLimit, [](const ProfileReader::Entry& entry) {
    if (find_section(entry.section) != Section::VexalKit3) return LoadResult::Ok;
    const int32_t key = find_string_key(entry.key, Section::VexalKit3);
    if (key >= 0) return read_ini_path(key, entry);
    if (!read_int_key(entry.key, entry.value, true, 0) && !read_log_key(entry)) {
      read_bool_key(entry.key, entry.value, true, 0);
    }
    return LoadResult::Ok;
  });
}

LoadResult read_profile(std::string_view content) {
  return for_each_entry(content, kIniValueLimit, read_profile_entry);
}

}  // namespace vx
