// How the records of the Message Info File become a template.
#pragma once

#include "model/info_records.h"
#include "model/message_info.h"

namespace vx {

// Reads one template. Failures are logged and leave nothing behind. VX_MSGFILE_ERROR, VX_SYSTEM_ERROR.
VX_STATUS read_template(const TemplateRequest& request, MsgTemplate& out);
// Frees what a template owns: its name, its attributes with their rules and values.
void free_template_parts(MsgTemplate& message_template);

}  // namespace vx
