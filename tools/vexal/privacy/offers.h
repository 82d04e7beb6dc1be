// What identifies patients, taken out: the headers of this room that others may include.
#pragma once

#include "deidentifier.h"
