#include "config/loader.h"

#include <memory>
#include <new>

#include "config/line.h"
#include "frame/log.h"
#include "frame/seams.h"
#include "frame/state.h"

namespace vx {
namespace {

constexpr const char* kLoader = "VXI_LoadConfiguration";

// The content of the profile that a key of vexal.ini names.
LoadResult open_profile(VX_STRING_KEY key, const char* name, const char* kind, std::string& content) {
  const std::string path = config_text(key);
  if (path.empty()) {
    VX_LOG_ERR(kLoader, "Invalid or missing %s parm in vexal ini", name);
    return LoadResult::MissingParameter;
  }
  int error = 0;
  bool opened = false;
  if (read_file(path.c_str(), content, error, opened)) return LoadResult::Ok;
  if (opened) {
    VX_LOG_ERR(kLoader, "Error reading config files: %d", error);
  } else {
    VX_LOG_ERR(kLoader, "Error opening vexalkit %s profile: %s", kind, path.c_str());
  }
  return LoadResult::FailedRead;
}

LoadResult load_profiles(ConfigRecord& record) {
  std::string content;
  LoadResult result = open_profile(VX_CFG_VEXALKIT_3_PROFILE, "VEXALKIT_3_PROFILE", "system", content);
  if (result == LoadResult::Ok) result = read_profile(content);
  if (result != LoadResult::Ok) return result;
  push_settings();

  auto tables = std::make_unique<ProfileTables>();
  result = open_profile(VX_CFG_VEXALKIT_3_SERVICES, "VEXALKIT_3_SERVICES", "services", content);
  if (result == LoadResult::Ok) result = read_services(content, *tables);
  if (result != LoadResult::Ok) return result;
  result = open_profile(VX_CFG_VEXALKIT_3_APPLICATIONS, "VEXALKIT_3_APPLICATIONS", "application", content);
  if (result == LoadResult::Ok) result = read_applications(content, *tables);
  if (result != LoadResult::Ok) return result;
  publish_tables(*tables, record);
  adopt_tables(tables.release());
  return LoadResult::Ok;
}

LoadResult load() {
  ConfigRecord& record = start_record();
  std::string content;
  LoadResult result = find_ini(content);
  if (result == LoadResult::Ok) result = read_ini(content);
  if (result != LoadResult::Ok) return result;
  push_settings();
  // From here on the log has somewhere to go.
  ConfigState.store(kConfigMark, std::memory_order_release);
  return load_profiles(record);
}

}  // namespace

VX_STATUS config_load_files() {
  LoadResult result = LoadResult::NoMemory;
  try {
    result = load();
  } catch (const std::bad_alloc&) {
    VX_LOG_ERR(kLoader, "No memory to load the configuration");
  }
  if (result == LoadResult::Ok) return kOk;
  return result == LoadResult::NoIni ? VX_NO_VEXAL_INI : VX_CONFIG_INFO_ERROR;
}

}  // namespace vx
