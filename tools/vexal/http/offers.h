// HTTP as a server: the headers of this room that others may include.
#pragma once

#include "accept.h"
#include "http_message.h"
#include "http_server.h"
#include "multipart.h"
#include "web_gate.h"
