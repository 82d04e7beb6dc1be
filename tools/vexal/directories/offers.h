// DICOMDIR files: the headers of this room that others may include.
#pragma once

#include "dir.h"
