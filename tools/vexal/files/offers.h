// Files in and out, and what their bytes say: the headers of this room that others may include.
#pragma once

#include "absent_pixels.h"
#include "charset.h"
#include "curl_library.h"
#include "file_set.h"
#include "files.h"
#include "fragments.h"
#include "head_scan.h"
#include "ordered_reader.h"
#include "temp_folder.h"
#include "web_client.h"
