// The objects of an archive: the headers of this room that others may include.
#pragma once

#include "catalog.h"
#include "holdings.h"
#include "key_match.h"
