// What the standard asks for: the headers of this room that others may include.
#pragma once
#include "report_templates.h"
#include "rules.h"
