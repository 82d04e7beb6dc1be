// The rules of a template for applications: with all texts of the Message Info File, and read when asked for.
#pragma once

#include <cstdint>
#include <vector>

#include "model/info_records.h"
#include "vexalkit/rules.h"

namespace vx {

struct RuleList {
  char* Name;
  uint16_t Command;  // 0 for an item
  const RuleObj* Rules;
  int32_t Count;
};

// Into one block of memory, at Rules; null without records. Failures are logged. VX_MSGFILE_ERROR,
// VX_SYSTEM_ERROR.
VX_STATUS read_rules(const TemplateRequest& request, RuleList& out);

// Of a service and command or an item (command 0), kept from then on. VX_NOT_FOUND, VX_MSGFILE_ERROR.
VX_STATUS get_rules(const char* name, uint16_t command, const RuleList*& out);
// Null if there is none; repeating groups go by their first group.
const RuleObj* find_rule(const RuleList& rules, uint32_t tag);
// The commands that a service has rules for. VX_MSGFILE_ERROR.
VX_STATUS rule_commands(const char* service, std::vector<uint16_t>& commands);
void drop_rules();

}  // namespace vx
