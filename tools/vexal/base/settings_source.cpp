#include "settings_source.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>

#include "profile.h"

namespace vexal {
namespace {

std::string upper(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::toupper(c); });
  return out;
}

// A path of the ini file: its own folder may be named, or a variable of the environment.
std::string expanded(const std::string& value, const std::string& ini) {
  const std::size_t end = value.find(')');
  if (!value.starts_with("$(") || end == std::string::npos) return value;
  const std::string name = value.substr(2, end - 2);
  std::string rest = value.substr(end + 1);
  if (name == "VX3INIDIR") {
    if (rest.starts_with('/')) rest.erase(0, 1);
    return (std::filesystem::path(ini).parent_path() / rest).string();
  }
  const char* set = std::getenv(name.c_str());
  return (set != nullptr ? set : "") + rest;
}

bool is_key_character(char c) {
  return std::isupper(static_cast<unsigned char>(c)) != 0 ||
         std::isdigit(static_cast<unsigned char>(c)) != 0 || c == '_';
}

}  // namespace

std::string find_ini(const std::string& named) {
  if (!named.empty()) return named;
  if (const char* variable = std::getenv("VEXAL_INI"); variable != nullptr) return variable;
  const char* path = std::getenv("PATH");
  std::string_view folders = path != nullptr ? path : "";
  while (!folders.empty()) {
    const std::size_t end = std::min(folders.find(':'), folders.size());
    const std::string file = std::string(folders.substr(0, end)) + "/vexal.ini";
    if (end != 0 && ::access(file.c_str(), F_OK) == 0) return file;
    folders.remove_prefix(std::min(end + 1, folders.size()));
  }
  return ::access("/etc/vexal.ini", F_OK) == 0 ? "/etc/vexal.ini" : "";
}

void SettingPlaces::read_file(const std::string& path) {
  for (const vxdata::ProfileEntry& entry : vxdata::read_profile(path)) {
    places_[upper(entry.key)] = path + ":" + std::to_string(entry.line);
  }
}

void SettingPlaces::read(const std::string& ini) {
  if (::access(ini.c_str(), R_OK) != 0) return;
  std::string profile;
  for (const vxdata::ProfileEntry& entry : vxdata::read_profile(ini)) {
    const std::string key = upper(entry.key);
    places_[key] = ini + ":" + std::to_string(entry.line);
    if (key == "VEXALKIT_3_PROFILE") profile = expanded(entry.value, ini);
  }
  if (!profile.empty() && ::access(profile.c_str(), R_OK) == 0) read_file(profile);
}

std::string SettingPlaces::find(std::string_view key) const {
  const auto found = places_.find(key);
  return found != places_.end() ? found->second : "";
}

std::string SettingPlaces::of_message(const std::string& message, const std::string& otherwise) const {
  for (std::size_t at = 0; at < message.size();) {
    std::size_t end = at;
    while (end < message.size() && is_key_character(message[end])) ++end;
    if (const std::string place = find(std::string_view(message).substr(at, end - at)); !place.empty())
      return place;
    at = end + 1;
  }
  return otherwise;
}

}  // namespace vexal
