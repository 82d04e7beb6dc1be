// Objects beside each other: the headers of this room that others may include.
#pragma once

#include "validate_set.h"
