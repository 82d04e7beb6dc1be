// Single objects by the parameters of a query (PS3.18 chapter 9).
#pragma once

#include <string>

#include "http/http_message.h"
#include "target.h"

namespace vexal {

// Turns such a request into one of the other services: its target, and the query and headers that go with it.
// An error text for the client, empty on success.
std::string read_wado_uri(HttpRequest& request, WebTarget& target);

}  // namespace vexal
