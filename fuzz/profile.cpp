// The ini file, the three profiles and the settings that have a grammar of their own, from hostile bytes. The
// first byte chooses the reader.
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "config/config.h"
#include "config/loader.h"
#include "config/record.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/seams.h"
#include "frame/state.h"

namespace {

void read_tables(std::string_view content, bool services) {
  auto tables = std::make_unique<vx::ProfileTables>();
  const vx::LoadResult result =
      services ? vx::read_services(content, *tables) : vx::read_applications(content, *tables);
  if (result != vx::LoadResult::Ok) return;
  vx::publish_tables(*tables, vx::config());
  vx::adopt_tables(tables.release());
  vx::config_build_service_list();
  vx::config_write_listing();
}

void set_lists(std::string_view content) {
  const std::string text(content);
  if (text.find('\0') != std::string::npos) return;
  vx::config_set_text(VX_CFG_DECODER_TAG_FILTER, text.c_str());
  vx::filter_matches(0x00090010, 0x1FF);
  vx::config_set_text(VX_CFG_ACCEPT_LIST_OF_APPLICATION_TITLES, text.c_str());
  std::string expanded;
  vx::expand_path(text.c_str(), expanded);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view content(reinterpret_cast<const char*>(data) + 1, size - 1);
  vx::start_record();
  // Every line is built and goes to the memory ring; the file is a sink.
  vx::store_text(VX_CFG_LOG_FILE, "/dev/null");
  vx::push_settings();
  vx::config_set_destination(VX_CFG_WARNING_MESSAGE, VX_LOG_TO_MEMORY);
  vx::config_set_destination(VX_CFG_T6_MESSAGE, VX_LOG_TO_MEMORY);
  vx::ConfigState.store(vx::kConfigMark);
  switch (data[0] % 5) {
    case 0:
      vx::read_ini(content);
      break;
    case 1:
      vx::read_profile(content);
      break;
    case 2:
    case 3:
      read_tables(content, data[0] % 5 == 2);
      break;
    default:
      set_lists(content);
      break;
  }
  vx::config_drop();
  vx::ConfigState.store(0);
  vx::drop_all_memory();
  vx::log_close();
  return 0;
}
