// Locks with a name, for the list that SAVE_SEMAPHORES asks for.
#pragma once

#include <cstddef>

#include "frame/lock.h"

namespace vx {

const Lock& log_lock();
const Lock& direct_buffer_lock();
const Lock& pool_lock(std::size_t index);
const char* pool_name(std::size_t index);

// A lock of the layers above, made known by a static object beside it. What has no table of its own, and so
// no lock, names the one that guards it.
struct NamedLock {
  NamedLock(const char* lock_name, const Lock& named) : name(lock_name), lock(named), next(first) {
    first = this;
  }
  static inline constinit const NamedLock* first = nullptr;
  const char* name;
  const Lock& lock;
  const NamedLock* next;
};

}  // namespace vx
