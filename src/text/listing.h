// Listings of objects for people, and the object trace.
#pragma once

#include <cstdint>
#include <cstdio>

#include "model/object.h"

namespace vx {

// Lists to a stream, or (stream null) to the log at level T2.
void list_object(int32_t id, std::FILE* stream);

}  // namespace vx
