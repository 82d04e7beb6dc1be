// Services and items of the configuration, and DIMSE commands.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>

#include "frame/status.h"

namespace vx {

inline constexpr int32_t kMetaService = 20;
inline constexpr int32_t kBaseService = 30;

// One service; what it points to belongs to the Configuration Record.
struct SopObj {
  int32_t number;
  const char* name;
  const char* uid;
  int32_t kind;
  int32_t sop_class_count;
  uint32_t commands;
  const int32_t* sop_classes;
};
static_assert(std::is_trivially_destructible_v<SopObj>);

// Lookups, exact in case, also among those that were added; null or -1 if unknown. Constant time.
const SopObj* find_service(std::string_view name);
const SopObj* find_service_by_uid(std::string_view uid);
const SopObj* find_service_by_number(int32_t number);
int32_t find_item_number(std::string_view name);

// VX_UNKNOWN_SERVICE, VX_INVALID_COMMAND or normal.
VX_STATUS check_service_command(std::string_view service, uint16_t command);

// The name that objects without a service or an item type bear.
inline constexpr char kNoName[] = "MOUSE";

// The 23 commands of DIMSE, and their names ("C_STORE_RQ"); null for any other value.
bool is_valid_command(uint16_t command);
const char* command_name(uint16_t command);

// The commands a services profile may name, with their mask bit.
struct CommandRow {
  const char* name;
  uint32_t bit;
  uint16_t field;
};
std::span<const CommandRow> command_rows();

}  // namespace vx
