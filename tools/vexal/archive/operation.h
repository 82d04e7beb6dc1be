// What those who run an archive ask it over HTTP: whether it lives, whether it can work, what it did.
#pragma once

#include "dicomweb/web_service.h"

namespace vexal {

// Adds /health/live, /health/ready and /metrics to the web services, before they start.
void serve_operation(WebService& web, Holdings& holdings);

}  // namespace vexal
