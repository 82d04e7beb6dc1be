// Listings of objects for people, and the object trace.
#pragma once

#include <cstdint>
#include <cstdio>

#include "model/object.h"

namespace vx {

// Lists to a stream, or (stream null) to the log at level T2.
void list_object(int32_t id, std::FILE* stream);
// To a file, which is closed after; to the standard output with a null name or one that cannot be opened.
void list_object_to(int32_t id, const char* file_name);

}  // namespace vx
