// Locks of the pools and the log, for the list of named locks that SAVE_SEMAPHORES asks for.
#pragma once

#include <cstddef>

#include "frame/lock.h"

namespace vx {

const Lock& log_lock();
const Lock& direct_buffer_lock();
const Lock& pool_lock(std::size_t index);
const char* pool_name(std::size_t index);

}  // namespace vx
