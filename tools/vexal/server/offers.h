// Associations as acceptor: the headers of this room that others may include.
#pragma once

#include "acceptor.h"
#include "audit.h"
#include "metrics.h"
#include "object_store.h"
#include "request.h"
#include "storage.h"
