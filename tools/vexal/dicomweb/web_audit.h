// Requests of web clients, told to an audit repository.
#pragma once

#include "server/audit.h"
#include "web_answers.h"

namespace vexal {

// Tells of a search, or of what is read of a study; of nothing else. `title`: who is asked.
void audit_reading(const WebContext& context, AuditTrail& trail, const std::string& title);

}  // namespace vexal
