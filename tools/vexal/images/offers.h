// Frames, and how files are written: the headers of this room that others may include.
#pragma once

#include "bounded_file.h"
#include "film.h"
#include "frame_form.h"
#include "frame_source.h"
#include "recode.h"
#include "write_options.h"
