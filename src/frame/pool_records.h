// Between the files of the pools: slots, blocks and the record of a pool.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "frame/lock.h"
#include "frame/pool.h"

#if defined(__SANITIZE_ADDRESS__)
#define VX_POISON 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VX_POISON 1
#endif
#endif
#ifdef VX_POISON
#include <sanitizer/asan_interface.h>
#endif

namespace vx {

// Under AddressSanitizer a free slot is out of bounds, and so is what lies behind a buffer's size.
inline void forbid([[maybe_unused]] void* bytes, [[maybe_unused]] std::size_t size) {
#ifdef VX_POISON
  ASAN_POISON_MEMORY_REGION(bytes, size);
#endif
}
inline void allow([[maybe_unused]] void* bytes, [[maybe_unused]] std::size_t size) {
#ifdef VX_POISON
  ASAN_UNPOISON_MEMORY_REGION(bytes, size);
#endif
}

enum : uint8_t { kFree = 0x11, kCached = 0x22, kDoomed = 0x33, kInUse = 0x5A };

inline constexpr uint8_t kDirect = 0xFF;  // the pool of slots that stand alone on the heap

// Before each object. Clean-up and report read the states of slots that other threads own, hence the atomic.
struct alignas(16) Slot {
  uint8_t pool;
  std::atomic<uint8_t> state;
  union {
    Slot* next;        // while free
    std::size_t size;  // while in use: what was asked for
  };

  void* object() { return this + 1; }
};
static_assert(sizeof(Slot) == 16 && std::is_trivially_destructible_v<Slot>);

inline Slot* slot_of(void* object) {
  return static_cast<Slot*>(object) - 1;
}

struct alignas(16) CPlex {
  CPlex* next;
};

struct alignas(64) PoolRecord {
  Lock lock;
  Slot* free_list;
  CPlex* blocks;
  std::size_t object_size;  // rounded up to 16; 0 until the first allocation
  std::size_t free_count;   // slots on free_list

  std::size_t stride() const { return sizeof(Slot) + object_size; }
};

struct PoolRow {
  const char* name;
  uint32_t block_count;
  uint32_t limit;  // buffers: the largest request
};

// kPools is indexed by Pool.
extern const PoolRow kPools[kPoolCount];
extern constinit PoolRecord g_pools[kPoolCount];

inline std::size_t block_bytes(std::size_t index) {
  return sizeof(CPlex) + g_pools[index].stride() * kPools[index].block_count;
}

template <typename Visit>
void for_each_slot(std::size_t index, CPlex* block, Visit visit) {
  auto* at = reinterpret_cast<std::byte*>(block + 1);
  const std::size_t stride = g_pools[index].stride();
  for (uint32_t i = 0; i < kPools[index].block_count; ++i, at += stride) visit(*reinterpret_cast<Slot*>(at));
}

// The pool's lock is held.
inline bool all_free(std::size_t index, CPlex* block) {
  bool free = true;
  for_each_slot(index, block, [&free](const Slot& slot) {
    free = free && slot.state.load(std::memory_order_relaxed) == kFree;
  });
  return free;
}

// Gives a chain of blocks back, `bytes` each.
void free_blocks(std::size_t index, CPlex* block, std::size_t bytes);
// Puts the slots that the calling thread has at hand back into their pools.
void flush_own_slots();
// The next clean-up starts with the first pool.
void restart_cleanup();
// A block of the heap as it is; where there is none, a line on standard output.
void* heap_failed(void* block);

}  // namespace vx
