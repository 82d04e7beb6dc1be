// Associations as requester: the headers of this room that others may include.
#pragma once

#include "network.h"
#include "query.h"
#include "sender.h"
#include "tls.h"
