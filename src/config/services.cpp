#include "config/services.h"

#include <unordered_map>

#include "config/added.h"
#include "config/config.h"
#include "config/record.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/seams.h"

namespace vx {
namespace {

// Names of one bit stand together; the first one is the name of the bit.
constexpr CommandRow kCommandRows[] = {
    {"C_STORE_RQ", 0x1, C_STORE_RQ},
    {"C_STORE_RSP", 0x2, C_STORE_RSP},
    {"C_GET_RQ", 0x4, C_GET_RQ},
    {"C_GET_RSP", 0x8, C_GET_RSP},
    {"C_CANCEL_RQ", 0x10, C_CANCEL_RQ},
    {"C_CANCEL_GET_RQ", 0x10, C_CANCEL_RQ},
    {"C_CANCEL_FIND_RQ", 0x10, C_CANCEL_RQ},
    {"C_CANCEL_MOVE_RQ", 0x10, C_CANCEL_RQ},
    {"C_FIND_RQ", 0x100, C_FIND_RQ},
    {"C_FIND_RSP", 0x200, C_FIND_RSP},
    {"C_MOVE_RQ", 0x400, C_MOVE_RQ},
    {"C_MOVE_RSP", 0x800, C_MOVE_RSP},
    {"C_ECHO_RQ", 0x1000, C_ECHO_RQ},
    {"C_ECHO_RSP", 0x2000, C_ECHO_RSP},
    {"N_EVENT_REPORT_RQ", 0x4000, N_EVENT_REPORT_RQ},
    {"N_EVENT_REPORT_RSP", 0x8000, N_EVENT_REPORT_RSP},
    {"N_GET_RQ", 0x10000, N_GET_RQ},
    {"N_GET_RSP", 0x20000, N_GET_RSP},
    {"N_SET_RQ", 0x40000, N_SET_RQ},
    {"N_SET_RSP", 0x80000, N_SET_RSP},
    {"N_ACTION_RQ", 0x100000, N_ACTION_RQ},
    {"N_ACTION_RSP", 0x200000, N_ACTION_RSP},
    {"N_CREATE_RQ", 0x400000, N_CREATE_RQ},
    {"N_CREATE_RSP", 0x800000, N_CREATE_RSP},
    {"N_DELETE_RQ", 0x1000000, N_DELETE_RQ},
    {"N_DELETE_RSP", 0x2000000, N_DELETE_RSP},
};

const CommandRow* find_command(uint16_t command) {
  for (const CommandRow& row : kCommandRows) {
    if (row.field == command) return &row;
  }
  return nullptr;
}

// Built once at start and only read from then on.
struct ServiceIndex {
  std::unordered_map<std::string_view, const SopObj*> by_name;
  std::unordered_map<std::string_view, const SopObj*> by_uid;
  std::unordered_map<int32_t, const SopObj*> by_number;
  std::unordered_map<std::string_view, int32_t> items;
};
ServiceIndex* g_index = nullptr;

template <typename Map, typename Key>
const SopObj* look_up(const Map ServiceIndex::*map, Key key) {
  if (g_index == nullptr) return nullptr;
  const auto found = (g_index->*map).find(key);
  return found != (g_index->*map).end() ? found->second : nullptr;
}

// Of two services with one name the first one counts.
bool index_service(const ConfigRecord& record, std::size_t row) {
  auto* service = new_object<SopObj>(Pool::SopObj);
  if (service == nullptr) return false;
  *service = SopObj{record.service_numbers[row], record.service_names[row],    record.service_uids[row],
                    record.service_kinds[row],   record.sop_class_counts[row], record.service_commands[row],
                    record.sop_classes[row]};
  if (service->name != nullptr) g_index->by_name.try_emplace(service->name, service);
  if (service->uid != nullptr && *service->uid != '\0') g_index->by_uid.try_emplace(service->uid, service);
  g_index->by_number.try_emplace(service->number, service);
  return true;
}

bool build_index() {
  const ConfigRecord& record = config();
  g_index = new ServiceIndex;
  for (int32_t row = 0; row < record.service_count; ++row) {
    if (!index_service(record, static_cast<std::size_t>(row))) return false;
  }
  for (int32_t row = 0; row < record.item_count; ++row) {
    g_index->items.try_emplace(record.item_names[row], record.item_numbers[row]);
  }
  return true;
}

}  // namespace

const SopObj* find_service(std::string_view name) {
  const SopObj* found = look_up(&ServiceIndex::by_name, name);
  return found != nullptr ? found : find_added_service(name);
}

const SopObj* find_service_by_uid(std::string_view uid) {
  const SopObj* found = look_up(&ServiceIndex::by_uid, uid);
  return found != nullptr ? found : find_added_service_by_uid(uid);
}

const SopObj* find_service_by_number(int32_t number) {
  const SopObj* found = look_up(&ServiceIndex::by_number, number);
  return found != nullptr ? found : find_added_service_by_number(number);
}

int32_t find_item_number(std::string_view name) {
  if (g_index == nullptr) return -1;
  const auto found = g_index->items.find(name);
  return found != g_index->items.end() ? found->second : -1;
}

VX_STATUS check_service_command(std::string_view service, uint16_t command) {
  const SopObj* found = find_service(service);
  if (found == nullptr) return VX_UNKNOWN_SERVICE;
  const CommandRow* row = find_command(command);
  return row != nullptr && (found->commands & row->bit) != 0 ? kOk : VX_INVALID_COMMAND;
}

bool is_valid_command(uint16_t command) {
  return find_command(command) != nullptr;
}

const char* command_name(uint16_t command) {
  const CommandRow* row = find_command(command);
  return row != nullptr ? row->name : nullptr;
}

std::span<const CommandRow> command_rows() {
  return kCommandRows;
}

VX_STATUS config_build_service_list() {
  if (g_index != nullptr) return kOk;
  if (config().service_count < 1) return VX_CONFIG_INFO_ERROR;
  bool built = false;
  try {
    built = build_index();
  } catch (const std::bad_alloc&) {
  }
  if (built) return kOk;
  VX_LOG_ERR("VXI_BuildServiceList", "No memory to load service info");
  drop_service_list();
  return VX_CONFIG_INFO_ERROR;
}

void drop_service_list() {
  // The records themselves go with their pool.
  drop_added();
  delete g_index;
  g_index = nullptr;
}

}  // namespace vx
