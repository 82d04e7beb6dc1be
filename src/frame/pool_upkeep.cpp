// Clean-up of the pools, and what they hold.
#include <chrono>

#include "frame/direct_heap.h"
#include "frame/log.h"
#include "frame/pool_records.h"

namespace vx {
namespace {

constinit Lock g_cleanup_lock;
bool g_cleanup_running = false;
std::size_t g_cleanup_position = kPoolCount - 1;  // the pool where the last one stopped

using Clock = std::chrono::steady_clock;

struct CleanUp {
  bool limited;
  Clock::time_point deadline;
  uint64_t freed = 0;

  bool late() const { return limited && Clock::now() > deadline; }
};

void drop_doomed_slots(PoolRecord& pool) {
  for (Slot** link = &pool.free_list; *link != nullptr;) {
    Slot* slot = *link;
    if (slot->state.load(std::memory_order_relaxed) == kDoomed) {
      *link = slot->next;
      --pool.free_count;
    } else {
      link = &slot->next;
    }
  }
}

// VX_TIMEOUT if the time ran out.
VX_STATUS clean_pool(std::size_t index, CleanUp& work) {
  PoolRecord& pool = g_pools[index];
  VX_STATUS status = kOk;
  CPlex* doomed = nullptr;
  std::size_t bytes = 0;
  int handled = 0;
  int found = 0;
  {
    const Guard guard(pool.lock);
    bytes = block_bytes(index);
    for (CPlex** link = &pool.blocks; *link != nullptr;) {
      if (++handled % 100 == 0 && work.late()) {
        status = VX_TIMEOUT;
        break;
      }
      CPlex* block = *link;
      if (!all_free(index, block)) {
        link = &block->next;
        continue;
      }
      for_each_slot(index, block, [](Slot& slot) { slot.state.store(kDoomed, std::memory_order_relaxed); });
      *link = block->next;
      block->next = doomed;
      doomed = block;
      ++found;
    }
    if (found != 0) drop_doomed_slots(pool);
  }
  free_blocks(index, doomed, bytes);
  const uint64_t freed = uint64_t{bytes} * static_cast<uint64_t>(found);
  work.freed += freed;
  VX_LOG_INF(nullptr, "CleanupEmptyBlocks: %d CPlex handled", handled);
  VX_LOG_INF(nullptr, "                    %d free CPlex found", found);
  VX_LOG_INF(nullptr, "                    %d bytes freed", static_cast<int>(freed));
  return status;
}

struct PoolCount {
  uint64_t block_bytes = 0;
  uint64_t stride = 0;
  uint64_t blocks = 0;
  uint64_t with_free = 0;  // blocks that have a free slot
  uint64_t free = 0;       // free slots
};

PoolCount count_pool(std::size_t index) {
  PoolCount count;
  const Guard guard(g_pools[index].lock);
  count.block_bytes = block_bytes(index);
  count.stride = g_pools[index].stride();
  for (CPlex* block = g_pools[index].blocks; block != nullptr; block = block->next) {
    uint64_t free = 0;
    for_each_slot(index, block, [&free](const Slot& slot) {
      free += slot.state.load(std::memory_order_relaxed) == kInUse ? 0 : 1;
    });
    ++count.blocks;
    count.with_free += free != 0 ? 1 : 0;
    count.free += free;
  }
  return count;
}

}  // namespace

void restart_cleanup() {
  g_cleanup_position = kPoolCount - 1;
}

VX_STATUS cleanup_memory(int32_t max_seconds) {
  if (max_seconds < 0) return VX_VALUE_OUT_OF_RANGE;
  {
    const Guard guard(g_cleanup_lock);
    if (g_cleanup_running) return kOk;
    g_cleanup_running = true;
  }
  flush_own_slots();
  CleanUp work{max_seconds != 0, Clock::now() + std::chrono::seconds(max_seconds)};
  std::size_t index = g_cleanup_position >= kPoolCount - 1 ? 0 : g_cleanup_position + 1;
  for (; index < kPoolCount; ++index) {
    g_cleanup_position = index;
    if (clean_pool(index, work) == VX_TIMEOUT || work.late()) break;
  }
  VX_LOG_INF(nullptr, "Total bytes freed: %lu", static_cast<unsigned long>(work.freed));
  const Guard guard(g_cleanup_lock);
  g_cleanup_running = false;
  return kOk;
}

void report_memory(uint64_t& total, uint64_t& free_bytes) {
  total = 0;
  free_bytes = 0;
  uint64_t idle = 0;
  const bool trace = log_enabled(VX_LOG_T1);
  for (std::size_t index = 0; index < kPoolCount; ++index) {
    const PoolCount count = count_pool(index);
    const uint64_t stride = count.blocks != 0 ? count.stride : 0;
    total += count.blocks * count.block_bytes;
    free_bytes += count.with_free * count.block_bytes;
    idle += count.free * stride;
    if (!trace) continue;
    log_line(VX_LOG_T1, nullptr, "%.5d : %6d : (%5luK) : %s", static_cast<int>(count.free),
             static_cast<int>(stride), static_cast<unsigned long>(count.free * stride / 1024),
             kPools[index].name);
  }
  const auto [direct, buffers] = direct_totals();
  total += direct;
  free_bytes += direct;
  if (!trace) return;
  log_line(VX_LOG_T1, nullptr, "%6d bytes in %d direct buffers", static_cast<int>(direct),
           static_cast<int>(buffers));
  log_line(VX_LOG_T1, nullptr, "True bytes in use: %luK", static_cast<unsigned long>((total - idle) / 1024));
}

}  // namespace vx
