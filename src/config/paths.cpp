// Where vexal.ini lies, and paths that name environment variables.
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "config/line.h"
#include "config/loader.h"
#include "frame/limits.h"
#include "frame/log.h"
#include "frame/state.h"

namespace vx {
namespace {

constexpr const char* kIniName = "vexal.ini";
constexpr const char* kLastResort = "/etc/vexal.ini";
constexpr const char* kIniFolderVariable = "VX3INIDIR";

bool has_variable(std::string_view value) {
  return value.find("$(") != std::string_view::npos || value.find('%') != std::string_view::npos;
}

std::vector<std::string> tokens_of(std::string_view value) {
  constexpr const char* kMarks = "%$()";
  std::vector<std::string> tokens;
  while (!value.empty()) {
    const std::size_t end = std::min(value.find_first_of(kMarks), value.size());
    if (end != 0) tokens.emplace_back(value.substr(0, end));
    value.remove_prefix(std::min(end + 1, value.size()));
  }
  return tokens;
}

bool join_config_path(const std::vector<std::string>& tokens, std::string& expanded) {
  std::string rest = tokens.size() > 1 ? tokens[1] : "";
  if (!rest.empty() && (rest[0] == '/' || rest[0] == '\\')) rest.erase(0, 1);
  expanded = config_path() + rest;
  if (expanded.size() <= kMaxPath) return true;
  VX_LOG_WARN("VXI_ExpandPath", "File name length exceeds the limit");
  return false;
}

std::string search_along_path() {
  const char* path = std::getenv("PATH");
  std::string_view folders = path != nullptr ? path : "";
  while (!folders.empty()) {
    const std::size_t end = std::min(folders.find(':'), folders.size());
    if (end != 0) {
      std::string candidate(folders.substr(0, end));
      if (candidate.back() != '/') candidate += '/';
      candidate += kIniName;
      if (::access(candidate.c_str(), F_OK) == 0) return candidate;
    }
    folders.remove_prefix(std::min(end + 1, folders.size()));
  }
  return {};
}

// The one that was installed beside the library, wherever the whole was moved to: under LIBDIR/../share, with
// one level more where libraries lie in a folder of their machine. In a build folder it lies beside the
// library.
std::string installed_ini() {
  constexpr const char* kWay = "/share/vexalkit/";
  constexpr int kLevels = 3;
  Dl_info info{};
  if (::dladdr(reinterpret_cast<const void*>(&installed_ini), &info) == 0 || info.dli_fname == nullptr)
    return {};
  char real[PATH_MAX];
  if (::realpath(info.dli_fname, real) == nullptr) return {};
  std::string folder = real;
  for (int level = 0; level < kLevels; ++level) {
    const std::size_t slash = folder.rfind('/');
    if (slash == std::string::npos) break;
    folder.resize(slash);
    std::string candidate = folder + kWay + kIniName;
    if (::access(candidate.c_str(), R_OK) == 0) return candidate;
  }
  return {};
}

// False when a recorded path can not be expanded.
bool choose_ini(std::string& path) {
  if (const char* recorded = recorded_ini_path(); recorded != nullptr) {
    path = recorded;
    if (!has_variable(path)) return true;
    std::string expanded;
    if (!expand_path(recorded, expanded)) {
      VX_LOG_ERR("VXI_FindIni", "Invalid value for vexal.ini = %s", recorded);
      return false;
    }
    path = expanded;
    return true;
  }
  if (const char* named = std::getenv("VEXAL_INI"); named != nullptr) {
    path = named;
    return true;
  }
  path = search_along_path();
  if (!path.empty()) return true;
  path = kLastResort;
  if (::access(kLastResort, F_OK) != 0) {
    if (std::string installed = installed_ini(); !installed.empty()) path = std::move(installed);
  }
  return true;
}

void set_config_path(const std::string& ini) {
  const std::size_t slash = ini.rfind('/');
  std::string folder = slash == std::string::npos ? "" : ini.substr(0, slash + 1);
  if (folder.empty() || folder[0] != '/') {
    char current[PATH_MAX];
    if (::getcwd(current, sizeof current) != nullptr) {
      std::string start = current;
      if (start.back() != '/') start += '/';
      folder = start + folder;
    }
  }
  config_path() = folder;
  VX_LOG_INF("VXI_FindIni", "Config Path set: %s", folder.c_str());
}

}  // namespace

bool expand_path(const char* value, std::string& expanded) {
  expanded = value;
  if (!has_variable(value)) return true;
  const std::vector<std::string> tokens = tokens_of(value);
  const std::string name = tokens.empty() ? "" : tokens[0];
  if (name == kIniFolderVariable) return join_config_path(tokens, expanded);
  const char* setting = name.empty() ? nullptr : std::getenv(name.c_str());
  if (setting == nullptr || *setting == '\0') {
    VX_LOG_ERR("VXI_ExpandPath", "Unable to retrieve environment variable  %s\n", name.c_str());
    return false;
  }
  expanded = setting;
  if (tokens.size() > 1) expanded += tokens[1];
  if (tokens.size() > 2) {
    VX_LOG_ERR("VXI_ExpandPath", "Too many environment variables found in  %s\n", value);
    return false;
  }
  return expanded.size() < kMaxPath;
}

LoadResult find_ini(std::string& content) {
  std::string path;
  if (!choose_ini(path)) return LoadResult::NoIni;
  int error = 0;
  bool opened = false;
  if (!read_file(path.c_str(), content, error, opened)) {
    if (!opened) {
      VX_LOG_ERR("VXI_FindIni", "Unable to access Vexal Ini file: %s", path.c_str());
      return LoadResult::NoIni;
    }
    VX_LOG_ERR("VXI_FindIni", "Error reading config files: %d", error);
    return LoadResult::FailedRead;
  }
  set_config_path(path);
  return LoadResult::Ok;
}

}  // namespace vx
