// The readers behind config_load_files().
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "config/line.h"
#include "config/record.h"
#include "config/tables.h"

namespace vx {

enum class LoadResult : uint8_t { Ok, NoIni, MissingParameter, FailedRead, InvalidValue, NoMemory };

// Values of the ini file and the system profile, with their terminator.
inline constexpr std::size_t kIniValueLimit = 260;
inline constexpr std::size_t kServiceValueLimit = 128;
inline constexpr std::size_t kApplicationValueLimit = 80;

// Hands each entry to `take`, up to the first that it does not answer with Ok.
template <typename Take>
LoadResult for_each_entry(std::string_view content, std::size_t value_limit, Take take) {
  ProfileReader reader(content, value_limit);
  ProfileReader::Entry entry;
  for (;;) {
    switch (reader.next(entry)) {
      case ProfileReader::Result::End:
        return LoadResult::Ok;
      case ProfileReader::Result::Failed:
        return LoadResult::FailedRead;
      case ProfileReader::Result::Entry:
        if (const LoadResult result = take(entry); result != LoadResult::Ok) return result;
    }
  }
}

// Finds and reads vexal.ini; sets config_path().
LoadResult find_ini(std::string& content);
LoadResult read_ini(std::string_view content);
LoadResult read_profile(std::string_view content);
LoadResult read_services(std::string_view content, ProfileTables& tables);
LoadResult read_applications(std::string_view content, ProfileTables& tables);

// A key of one of the number tables, where the record at hand is to take the value. False: no such key.
// `any_section` passes the sections over.
bool read_int_key(std::string_view key, const std::string& value, bool any_section, uint8_t section);
bool read_long_key(std::string_view key, const std::string& value, uint8_t section);
bool read_bool_key(std::string_view key, const std::string& value, bool any_section, uint8_t section);

void warn_invalid_value(std::string_view key, const std::string& value);

}  // namespace vx
