#include "frame/library.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "frame/log.h"
#include "frame/named_locks.h"
#include "frame/pool.h"
#include "frame/seams.h"
#include "frame/state.h"

namespace vx {
namespace {

constexpr int32_t kFirstApplicationId = 1000;
constexpr int32_t kFirstSessionId = 10000;

// What outlives a reset, and for the path a failed initialisation.
VX_CONFIG_FUNCTION g_config_function = nullptr;
VX_DICTIONARY_FUNCTION g_dictionary_function = nullptr;
VX_MESSAGE_INFO_FUNCTION g_message_info_function = nullptr;
char* g_ini_path = nullptr;

void save_lock_addresses() {
  std::FILE* file = std::fopen("semaphores", "wb");
  if (file == nullptr) return;
  const auto line = [file](const Lock& lock, const char* name) {
    std::fprintf(file, "%p %s\n", static_cast<const void*>(&lock), name);
  };
  const StateBlock& block = state();
  line(direct_buffer_lock(), "S.mallocSemaphore");
  line(block.dictionSemaphore, "S.dictionSemaphore");
  line(log_lock(), "S.logSemaphore");
  line(block.sessions.semaphore, "S.sesObjSemaphore");
  line(block.applications.semaphore, "S.appObjSemaphore");
  line(block.messages.semaphore, "S.msgObjSemaphore");
  line(block.charParamSemaphore, "S.charParamSemaphore");
  // Entities lie in the objects of their directories.
  line(block.messages.semaphore, "S.entityObjSemaphore");
  line(block.messages.semaphore, "S.DirModelInitSemaphore");
  for (const NamedLock* named = NamedLock::first; named != nullptr; named = named->next) {
    line(named->lock, named->name);
  }
  for (std::size_t i = 0; i < kPoolCount; ++i) {
    line(pool_lock(i), ("S." + std::string(pool_name(i)) + ".Semaphore").c_str());
  }
  std::fclose(file);
}

// Untouched memory is zero already, and stays untouched.
bool g_state_used = false;

// Every object goes without being looked at; what lies outside the pools goes first, and with the pools go
// the registries: no later life may find a record of this one.
void take_down() {
  if (network_drop != nullptr) network_drop();
  if (media_drop != nullptr) media_drop();
  model_drop();
  dictionary_drop();
  config_drop();
  ConfigState.store(0, std::memory_order_release);
  drop_all_memory();
  LibraryLife.fetch_add(1, std::memory_order_relaxed);
  if (g_state_used) std::memset(static_cast<void*>(&state()), 0, sizeof(StateBlock));
  g_state_used = false;
  log_close();
}

void set_up_state() {
  StateBlock& block = state();
  g_state_used = true;
  block.messages.set_up();
  block.applications.set_up(kFirstApplicationId);
  block.sessions.set_up(kFirstSessionId);
  block.EchoApplicationID = -1;
  set_direct_allocation(false);
  if (std::getenv("SAVE_SEMAPHORES") != nullptr) save_lock_addresses();
}

VX_STATUS load_configuration() {
  if (g_config_function == nullptr) return config_load_files();
  const VX_STATUS status = config_take_record(g_config_function());
  if (status == kOk) ConfigState.store(kConfigMark, std::memory_order_release);
  return status;
}

VX_STATUS load_dictionary() {
  if (g_dictionary_function == nullptr) return dictionary_load_file();
  const VX_STATUS status = dictionary_take_record(g_dictionary_function());
  if (status == kOk) config_force_memory_dictionary();
  return status;
}

void end_network() {
  if (capture_stop != nullptr) capture_stop();
  if (transport_shut_down != nullptr) transport_shut_down();
}

void release_own_application() {
  int32_t id = state().EchoApplicationID;
  if (id >= 0) release_application(&id);
}

void log_versions() {
  VX_LOG_INF(nullptr, "%s, %s", library_banner(), library_build_date());
  VX_LOG_INF(nullptr, "%s", library_build_description());
}

}  // namespace

const char* recorded_ini_path() {
  return g_ini_path;
}

VX_STATUS record_ini_path(const char* path) {
  if (library_initialized()) return VX_LIBRARY_ALREADY_INITIALIZED;
  char* copy = nullptr;
  if (path != nullptr) {
    copy = ::strdup(path);
    if (copy == nullptr) {
      VX_LOG_ERR("VX_Set_VexalINI", "No memory to store vexal.ini path.");
      return VX_SYSTEM_ERROR;
    }
  }
  std::free(g_ini_path);
  g_ini_path = copy;
  return kOk;
}

namespace {

VX_STATUS start(VX_CONFIG_FUNCTION config_function, VX_DICTIONARY_FUNCTION dictionary_function,
                VX_MESSAGE_INFO_FUNCTION message_info_function) {
  // An initialisation that failed may have left a configuration and its memory.
  take_down();
  set_up_state();
  const bool direct = std::getenv("VX3_MALLOC") != nullptr;
  set_direct_allocation(direct);
  g_config_function = config_function;
  g_dictionary_function = dictionary_function;
  g_message_info_function = message_info_function;
  if (const VX_STATUS status = load_configuration(); status != kOk) return status;
  config_write_listing();
  LibraryState.store(kLibraryMark, std::memory_order_release);

  if (capture_start != nullptr) capture_start();
  if (direct) {
    VX_LOG_INF("VX_Library_Initialization",
               "Overriding internal tool kit memory management and using malloc() directly.");
  }
  log_versions();
  if (config_build_service_list() != kOk) return VX_CONFIG_INFO_ERROR;
  if (prepare_exception_filter != nullptr && prepare_exception_filter() != kOk) {
    VX_LOG_ERR("VX_Library_Initialization", "Failed to set tool kit exception handler");
  }
  return load_dictionary();
}

}  // namespace

VX_STATUS library_initialize(VX_CONFIG_FUNCTION config_function, VX_DICTIONARY_FUNCTION dictionary_function,
                             VX_MESSAGE_INFO_FUNCTION message_info_function) {
  if (library_initialized()) return VX_LIBRARY_ALREADY_INITIALIZED;
  log_starting(true);
  const VX_STATUS status = start(config_function, dictionary_function, message_info_function);
  log_starting(false);
  return status;
}

VX_STATUS library_reset() {
  if (!library_initialized()) return VX_LIBRARY_NOT_INITIALIZED;
  end_network();
  release_own_application();
  take_down();
  log_forget_receivers();
  set_up_state();
  if (const VX_STATUS status = load_configuration(); status != kOk) {
    return status == VX_INVALID_VERSION ? status : VX_CONFIG_INFO_ERROR;
  }
  if (capture_start != nullptr) capture_start();
  if (config_build_service_list() != kOk) return VX_CONFIG_INFO_ERROR;
  return load_dictionary();
}

VX_STATUS library_release() {
  if (!library_initialized()) return VX_LIBRARY_NOT_INITIALIZED;
  end_network();
  if (remove_exception_filter != nullptr && remove_exception_filter() != kOk) {
    VX_LOG_ERR("VX_Library_Release", "Failed to release tool kit exception handler");
  }
  release_own_application();
  take_down();
  log_forget_receivers();
  g_config_function = nullptr;
  g_dictionary_function = nullptr;
  g_message_info_function = nullptr;
  LibraryState.store(0, std::memory_order_release);
  std::free(g_ini_path);
  g_ini_path = nullptr;
  return kOk;
}

}  // namespace vx
