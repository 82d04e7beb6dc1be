// What every room builds on: the headers of this room that others may include.
#pragma once

#include "args.h"
#include "byte_stream.h"
#include "commands.h"
#include "embedded.h"
#include "json.h"
#include "names.h"
#include "parallel.h"
#include "printable.h"
#include "session.h"
#include "settings_source.h"
#include "tables.h"
#include "tag_path.h"
#include "typed_numbers.h"
#include "uid.h"
#include "values.h"
