// The locks behind the pools, for the list of named locks that SAVE_SEMAPHORES asks for.
#pragma once

#include <cstddef>

#include "frame/lock.h"

namespace vx {

const Lock& pool_lock(std::size_t index);
const char* pool_name(std::size_t index);
const Lock& direct_buffer_lock();

}  // namespace vx
