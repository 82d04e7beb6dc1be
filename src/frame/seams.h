// The calls that go from this layer up. Each is declared here and defined in the layer named. A weak one
// belongs to a layer that a build may lack: it is null there and the call is left out.
#pragma once

#include "frame/app.h"
#include "frame/status.h"

namespace vx {

// config: fills the Configuration Record from the files, or takes over a ready-built one (record may be
// null).
VX_STATUS config_load_files();                       // VX_NO_VEXAL_INI, VX_CONFIG_INFO_ERROR
VX_STATUS config_take_record(ConfigRecord* record);  // VX_INVALID_VERSION
void config_drop();                                  // before the pools go
VX_STATUS config_build_service_list();               // VX_CONFIG_INFO_ERROR
void config_write_listing();                         // level T6
void config_force_memory_dictionary();               // DICTIONARY_ACCESS becomes "MEM"

// model: the Data Dictionary.
VX_STATUS dictionary_load_file();                                  // as VX_Library_Initialization
VX_STATUS dictionary_take_record(const DictionaryRecord* record);  // VX_INVALID_VERSION
void dictionary_drop();
// model: what an application owns of value callbacks.
void release_application_callbacks(AppObj& app);
// model: templates and whatever else hangs off the pools.
void model_drop();

// net: associations, transport, capture, exception filter. network_drop() closes what is open still, and
// forgets all lists.
[[gnu::weak]] void network_drop();
[[gnu::weak]] void transport_shut_down();
[[gnu::weak]] void release_application_sessions(AppObj& app);
[[gnu::weak]] void capture_start();
[[gnu::weak]] void capture_stop();
[[gnu::weak]] VX_STATUS prepare_exception_filter();
[[gnu::weak]] VX_STATUS remove_exception_filter();

// media: closes the files of directories.
[[gnu::weak]] void media_drop();

}  // namespace vx
