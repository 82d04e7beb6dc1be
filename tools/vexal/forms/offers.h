// Objects as text and back: the headers of this room that others may include.
#pragma once

#include "bulk_files.h"
#include "changes.h"
#include "text_forms.h"
