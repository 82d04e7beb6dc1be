// The Message Info File: where a template lies in it, and how its records become one.
#pragma once

#include <cstdint>

#include "model/message_info.h"

namespace vx {

struct TemplateRequest {
  const char* path;
  const char* name;
  uint16_t command;  // 0 for an item
  int32_t number;    // of the service or item, -1 if the configuration does not know the name
};
// Reads one template. Failures are logged and leave nothing behind. VX_MSGFILE_ERROR, VX_SYSTEM_ERROR.
VX_STATUS read_template(const TemplateRequest& request, MsgTemplate& out);
// C_STORE_RSP, N_DELETE_RQ, N_DELETE_RSP, C_ECHO_RQ and C_ECHO_RSP hold nothing but the command.
bool has_no_template(uint16_t command);
// Frees what a template owns: its name, its attributes with their rules and values.
void free_template_parts(MsgTemplate& message_template);

}  // namespace vx
