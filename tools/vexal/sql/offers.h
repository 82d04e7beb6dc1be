// Databases: the headers of this room that others may include.
#pragma once

#include "database.h"
#include "pool.h"
