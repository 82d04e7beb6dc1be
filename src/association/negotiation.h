// What both sides make of the parameters of an association.
#pragma once

#include "connection/session.h"

namespace vx {

// Fills AcceptedEntries from the contexts of Parameters. VX_INVALID_TRANSFER_SYNTAX after a line in the log;
// VX_SYSTEM_ERROR.
VX_STATUS make_accepted_entries(SesObj& session);
// The parameters at level T3. Mode 1 is the request, 2 the response.
enum class ParameterLog { Request = 1, Response = 2 };
void log_association_parameters(const AssociationParameters& parameters, ParameterLog mode);

}  // namespace vx
