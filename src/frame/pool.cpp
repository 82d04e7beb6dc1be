#include "frame/pool.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <new>
#include <utility>

#include "frame/direct_heap.h"
#include "frame/lock.h"
#include "frame/log.h"
#include "frame/named_locks.h"
#include "frame/pool_records.h"
#include "frame/regions.h"

namespace vx {

constexpr PoolRow kPools[kPoolCount] = {
    {"b4", 128, 4},        {"b8", 512, 8},          {"b12", 512, 12},         {"b16", 512, 16},
    {"b20", 512, 20},      {"b24", 512, 24},        {"b32", 128, 32},         {"b40", 128, 40},
    {"b64", 64, 64},       {"b256", 32, 256},       {"b512", 32, 512},        {"b2K", 2, 2048},
    {"b4K", 1, 4096},      {"b8K", 1, 8192},        {"b12K", 1, 12288},       {"b16K", 1, 16384},
    {"b20K", 1, 20480},    {"b24K", 1, 24576},      {"b28K", 1, 28672},       {"bPixel", 4, 0},
    {"ValErrObj", 2, 0},   {"TagObj", 1024, 0},     {"ValidValueObj", 16, 0}, {"FileValueObj", 4, 0},
    {"FileObj", 4, 0},     {"CBObj", 2, 0},         {"MsgObj", 32, 0},        {"HashObj", 16, 0},
    {"SopObj", 8, 0},      {"ItemObj", 8, 0},       {"CreatorObj", 1, 0},     {"CObList", 512, 0},
    {"CNode", 2048, 0},    {"AssocParmsObj", 1, 0}, {"AssocReqObj", 1, 0},    {"AssocObj", 1, 0},
    {"AppObj", 1, 0},      {"ExtInfoObj", 2, 0},    {"SesObj", 2, 0},         {"RemAppObj", 2, 0},
    {"ServListObj", 1, 0}, {"SyntaxListObj", 1, 0}, {"ContextObj", 2, 0},     {"UidObj", 8, 0},
    {"EntityObj", 24, 0},  {"TCPObj", 2, 0},        {"SentRcvMsgObj", 5, 0},  {"ValTagObj", 128, 0},
};

constinit PoolRecord g_pools[kPoolCount] = {};

namespace {

constexpr std::size_t kLargestPooled = 28672;
constexpr auto kPixel = static_cast<std::size_t>(Pool::bPixel);

// The class of a small request, by its size in words of 4 bytes.
constexpr std::size_t kSmallest = 512;
constexpr auto kClassOfWords = [] {
  std::array<uint8_t, kSmallest / 4 + 1> classes{};
  for (std::size_t words = 0; words < classes.size(); ++words) {
    uint8_t index = 0;
    while (kPools[index].limit < words * 4) ++index;
    classes[words] = index;
  }
  return classes;
}();

constexpr std::size_t kThreadSlots = 1024;  // the most that a thread keeps of one pool: a large message
constexpr std::size_t kThreadBytes = 256U * 1024U;  // or their bytes
constexpr std::size_t kLargestCached = 4096;        // bigger objects would lie idle

std::atomic<std::size_t> g_pixel_size{0};

// Raised whenever all blocks go, so that threads forget the slots they had at hand.
std::atomic<uint64_t> g_epoch{1};

// Anything but zero sends every allocation down the slow road.
enum : uint32_t { kModeDirect = 1, kModeFail = 2 };
std::atomic<uint32_t> g_mode{0};
std::atomic<uint64_t> g_fail_countdown{0};

std::atomic<bool> g_block_failure_logged{false};

// ---- The slots that a thread has at hand ----

// Two stacks, the older one full or empty. Slots leave and arrive a stack at a time and keep their order, so
// that what was freed last goes out first, and a large message lies as orderly in memory the tenth time as
// the first.
struct Bin {
  Slot* head;
  Slot* older;
  uint32_t count;  // slots of `head`; `older` has `limit`
  uint32_t limit;  // 0 until the thread first meets the pool, and for pools it must not keep
  std::size_t object_size;
};

struct ThreadCache {
  uint64_t epoch;
  Bin bins[kPoolCount];
};

[[gnu::tls_model("initial-exec")]] thread_local ThreadCache* t_cache = nullptr;
[[gnu::tls_model("initial-exec")]] thread_local bool t_cache_gone = false;

// Puts a whole stack back on top of the pool's, unless its generation of blocks has gone meanwhile: a thread
// may be at its end while another one releases the library.
void return_to_pool(std::size_t index, Slot* stack, uint64_t epoch) {
  if (stack == nullptr) return;
  PoolRecord& pool = g_pools[index];
  const Guard guard(pool.lock);
  if (epoch != g_epoch.load(std::memory_order_acquire)) return;
  Slot* last = stack;
  for (Slot* slot = stack; slot != nullptr; slot = slot->next) {
    slot->state.store(kFree, std::memory_order_relaxed);
    ++pool.free_count;
    last = slot;
  }
  last->next = pool.free_list;
  pool.free_list = stack;
}

// Forgets what went with an earlier generation of blocks.
void refresh(ThreadCache& cache) {
  const uint64_t epoch = g_epoch.load(std::memory_order_acquire);
  if (cache.epoch == epoch) return;
  for (Bin& bin : cache.bins) bin = Bin{};
  cache.epoch = epoch;
}

void flush_thread_cache(ThreadCache& cache) {
  refresh(cache);
  for (std::size_t index = 0; index < kPoolCount; ++index) {
    Bin& bin = cache.bins[index];
    return_to_pool(index, std::exchange(bin.older, nullptr), cache.epoch);
    return_to_pool(index, std::exchange(bin.head, nullptr), cache.epoch);
    bin.count = 0;
  }
}

// On the heap: the thread-local block of the library has to stay small, or a running process can not load it.
struct CacheOwner {
  ThreadCache* cache = new (std::nothrow) ThreadCache{};
  ~CacheOwner() {
    t_cache = nullptr;
    t_cache_gone = true;
    if (cache != nullptr) flush_thread_cache(*cache);
    delete cache;
  }
};

ThreadCache* thread_cache() {
  if (t_cache == nullptr && !t_cache_gone) {
    thread_local CacheOwner owner;
    t_cache = owner.cache;
  }
  if (t_cache != nullptr) refresh(*t_cache);
  return t_cache;
}

// ---- Pools ----

// Slots of one stack of a thread.
uint32_t thread_limit(std::size_t stride) {
  if (stride > kLargestCached + sizeof(Slot)) return 0;
  return static_cast<uint32_t>(std::clamp<std::size_t>(kThreadBytes / stride, 2, kThreadSlots) / 2);
}

// Adds a block. The pool's lock is held.
bool grow(std::size_t index) {
  PoolRecord& pool = g_pools[index];
  const std::size_t stride = pool.stride();
  const std::size_t count = kPools[index].block_count;
  void* bytes = heap_failed(region_allocate(index, sizeof(CPlex) + stride * count));
  if (bytes == nullptr) return false;
  auto* block = new (bytes) CPlex{pool.blocks};
  pool.blocks = block;
  auto* first = reinterpret_cast<std::byte*>(block + 1);
  // Chained from the last to the first, so that slots go out in the order of their addresses.
  for (std::size_t i = count; i-- > 0;) {
    auto* slot = new (first + i * stride) Slot;
    slot->pool = static_cast<uint8_t>(index);
    slot->state.store(kFree, std::memory_order_relaxed);
    slot->next = pool.free_list;
    pool.free_list = slot;
    forbid(slot->object(), pool.object_size);
  }
  pool.free_count += count;
  return true;
}

Slot* pop_free(PoolRecord& pool) {
  Slot* slot = pool.free_list;
  pool.free_list = slot->next;
  --pool.free_count;
  return slot;
}

struct Taken {
  Slot* slot;
  bool too_large;  // the object does not fit the slots that the pool was sized for
};

// Takes one slot, and for a thread that may keep some, a handful more.
Taken take_from_pool(std::size_t index, std::size_t size, Bin* bin) {
  PoolRecord& pool = g_pools[index];
  const Guard guard(pool.lock);
  if (pool.object_size == 0) pool.object_size = std::max<std::size_t>((size + 15) & ~std::size_t{15}, 16);
  if (size > pool.object_size) return {nullptr, true};
  if (pool.free_list == nullptr && !grow(index)) return {nullptr, false};
  Slot* taken = pop_free(pool);
  if (bin == nullptr) return {taken, false};
  bin->object_size = pool.object_size;
  bin->limit = thread_limit(pool.stride());
  bin->head = bin->limit != 0 ? pool.free_list : nullptr;
  Slot* last = nullptr;
  for (bin->count = 0; bin->count < bin->limit && pool.free_list != nullptr; ++bin->count) {
    last = pop_free(pool);
    last->state.store(kCached, std::memory_order_relaxed);
  }
  if (last != nullptr) last->next = nullptr;
  return {taken, false};
}

inline void* hand_out(Slot* slot, std::size_t size) {
  slot->state.store(kInUse, std::memory_order_relaxed);
  slot->size = size;
  allow(slot->object(), size);
  return slot->object();
}

// True if the injected failure is due now.
bool injected_failure() {
  if ((g_mode.load(std::memory_order_relaxed) & kModeFail) == 0) return false;
  uint64_t left = g_fail_countdown.load(std::memory_order_relaxed);
  while (left != 0 && !g_fail_countdown.compare_exchange_weak(left, left - 1)) {
  }
  if (left != 1) return false;
  g_mode.fetch_and(~uint32_t{kModeFail});
  return true;
}

// ---- The common road ----

constexpr std::size_t kNoPool = kPoolCount;

std::size_t class_of(std::size_t size) {
  if (size <= kSmallest) return kClassOfWords[(size + 3) / 4];
  if (size <= 2048) return static_cast<std::size_t>(Pool::b2K);
  if (size <= kLargestPooled) return static_cast<std::size_t>(Pool::b4K) + (size - 1) / 4096;
  return size == g_pixel_size.load(std::memory_order_relaxed) ? kPixel : kNoPool;
}

[[gnu::noinline]] void* take_slowly(std::size_t index, std::size_t size, std::size_t slot_size, bool zeroed) {
  if (injected_failure()) return nullptr;
  if ((g_mode.load(std::memory_order_relaxed) & kModeDirect) != 0) return new_direct(size, zeroed);
  ThreadCache* cache = thread_cache();
  Bin* bin = cache != nullptr ? &cache->bins[index] : nullptr;
  Slot* slot = nullptr;
  if (bin != nullptr && bin->head == nullptr && bin->older != nullptr) {
    bin->head = std::exchange(bin->older, nullptr);
    bin->count = bin->limit;
  }
  if (bin != nullptr && bin->head != nullptr && slot_size <= bin->object_size) {
    slot = bin->head;
    bin->head = slot->next;
    --bin->count;
  } else {
    const Taken taken = take_from_pool(index, slot_size, bin);
    if (taken.too_large) return new_direct(size, zeroed);
    slot = taken.slot;
  }
  if (slot == nullptr) {
    if (!g_block_failure_logged.exchange(true)) VX_LOG_ERR(nullptr, "OUT OF MEMORY!");
    return nullptr;
  }
  void* object = hand_out(slot, size);
  if (zeroed) std::memset(object, 0, size);
  return object;
}

// `slot_size` is what the pool's slots hold, `size` what this caller needs.
inline void* take(std::size_t index, std::size_t size, std::size_t slot_size, bool zeroed) {
  ThreadCache* cache = t_cache;
  if (cache != nullptr && g_mode.load(std::memory_order_relaxed) == 0 &&
      cache->epoch == g_epoch.load(std::memory_order_relaxed)) {
    Bin& bin = cache->bins[index];
    Slot* slot = bin.head;
    if (slot != nullptr && slot_size <= bin.object_size) {
      bin.head = slot->next;
      --bin.count;
      void* object = hand_out(slot, size);
      if (zeroed) std::memset(object, 0, size);
      return object;
    }
  }
  return take_slowly(index, size, slot_size, zeroed);
}

[[gnu::noinline]] void give_back_slowly(std::size_t index, Slot* slot) {
  ThreadCache* cache = thread_cache();
  if (cache != nullptr) {
    Bin& bin = cache->bins[index];
    if (bin.limit == 0 && g_pools[index].object_size != 0) {
      bin.object_size = g_pools[index].object_size;
      bin.limit = thread_limit(g_pools[index].stride());
    }
    if (bin.limit != 0) {
      if (bin.count >= bin.limit) {
        return_to_pool(index, bin.older, cache->epoch);
        bin.older = std::exchange(bin.head, nullptr);
        bin.count = 0;
      }
      slot->state.store(kCached, std::memory_order_relaxed);
      slot->next = bin.head;
      bin.head = slot;
      ++bin.count;
      return;
    }
  }
  PoolRecord& pool = g_pools[index];
  const Guard guard(pool.lock);
  slot->state.store(kFree, std::memory_order_relaxed);
  slot->next = pool.free_list;
  pool.free_list = slot;
  ++pool.free_count;
}

inline void give_back(std::size_t index, Slot* slot) {
  forbid(slot->object(), g_pools[index].object_size);
  ThreadCache* cache = t_cache;
  if (cache != nullptr && cache->epoch == g_epoch.load(std::memory_order_relaxed)) {
    Bin& bin = cache->bins[index];
    if (bin.count < bin.limit) {
      slot->state.store(kCached, std::memory_order_relaxed);
      slot->next = bin.head;
      bin.head = slot;
      ++bin.count;
      return;
    }
  }
  give_back_slowly(index, slot);
}

void log_invalid_free(const char* name) {
  VX_LOG_ERR(nullptr, "Invalid %s free", name);
}

}  // namespace

void free_blocks(std::size_t index, CPlex* block, std::size_t bytes) {
  while (block != nullptr) {
    CPlex* next = block->next;
    allow(block, bytes);
    region_free(index, block);
    block = next;
  }
}

void* pool_new(Pool pool, std::size_t size) {
  return take(static_cast<std::size_t>(pool), size, size, true);
}

void pool_free(Pool pool, void* object) {
  if (object == nullptr) return;
  Slot* slot = slot_of(object);
  const auto index = static_cast<std::size_t>(pool);
  if (slot->state.load(std::memory_order_relaxed) != kInUse) return log_invalid_free(kPools[index].name);
  if (slot->pool == kDirect) return free_direct(slot);
  if (slot->pool != index) return log_invalid_free(kPools[index].name);
  give_back(index, slot);
}

static void* allocate_bytes(std::size_t size, bool zeroed) {
  const std::size_t index = class_of(size);
  void* buffer = nullptr;
  if (index != kNoPool) {
    buffer = take(index, size, index != kPixel ? kPools[index].limit : size, zeroed);
  } else if (!injected_failure()) {
    buffer = new_direct(size, zeroed);
  }
  if (buffer == nullptr) VX_LOG_ERR(nullptr, "Unable to allocate memory");
  return buffer;
}

void* allocate(std::size_t size) {
  return allocate_bytes(size, true);
}

void* allocate_raw(std::size_t size) {
  return allocate_bytes(size, false);
}

void* reallocate(std::size_t size, void* buffer) {
  if (buffer == nullptr) return allocate_raw(size);
  Slot* slot = slot_of(buffer);
  const std::size_t old_size = slot->size;
  if (slot->pool == kDirect) {
    if (class_of(size) == kNoPool) {
      void* moved = injected_failure() ? nullptr : resize_direct(slot, size);
      if (moved == nullptr) VX_LOG_ERR(nullptr, "Unable to allocate memory");
      return moved;
    }
  } else if (class_of(size) == slot->pool && size <= g_pools[slot->pool].object_size) {
    slot->size = size;
    forbid(buffer, g_pools[slot->pool].object_size);
    allow(buffer, size);
    return buffer;
  }
  void* moved = allocate_raw(size);
  if (moved == nullptr) return nullptr;
  std::memcpy(moved, buffer, std::min(size, old_size));
  release(buffer);
  return moved;
}

void release(void* buffer) {
  if (buffer == nullptr) return;
  Slot* slot = slot_of(buffer);
  if (slot->state.load(std::memory_order_relaxed) != kInUse) {
    return log_invalid_free(slot->pool < kPoolCount ? kPools[slot->pool].name : "buffer");
  }
  if (slot->pool == kDirect) return free_direct(slot);
  give_back(slot->pool, slot);
}

char* duplicate_text(const char* text) {
  const std::size_t size = std::strlen(text) + 1;
  auto* copy = static_cast<char*>(allocate_raw(size));
  if (copy != nullptr) std::memcpy(copy, text, size);
  return copy;
}

void flush_own_slots() {
  if (ThreadCache* cache = thread_cache(); cache != nullptr) flush_thread_cache(*cache);
}

void set_pixel_buffer_size(std::size_t size) {
  PoolRecord& pool = g_pools[kPixel];
  CPlex* old = nullptr;
  std::size_t bytes = 0;
  {
    const Guard guard(pool.lock);
    if (g_pixel_size.load(std::memory_order_relaxed) == size) return;
    bool idle = true;
    for (CPlex* block = pool.blocks; block != nullptr; block = block->next)
      idle = idle && all_free(kPixel, block);
    if (idle) {
      bytes = block_bytes(kPixel);
      old = std::exchange(pool.blocks, nullptr);
      pool.free_list = nullptr;
      pool.free_count = 0;
      pool.object_size = 0;
    }
    // With buffers out, the pool keeps its slots, and what does not fit them stands alone.
    g_pixel_size.store(size, std::memory_order_relaxed);
  }
  free_blocks(kPixel, old, bytes);
}

void set_direct_allocation(bool on) {
  if (on) {
    g_mode.fetch_or(kModeDirect);
  } else {
    g_mode.fetch_and(~uint32_t{kModeDirect});
  }
}

void drop_all_memory() {
  g_epoch.fetch_add(1, std::memory_order_release);
  for (std::size_t index = 0; index < kPoolCount; ++index) {
    PoolRecord& pool = g_pools[index];
    const Guard guard(pool.lock);
    free_blocks(index, std::exchange(pool.blocks, nullptr), block_bytes(index));
    pool.free_list = nullptr;
    pool.free_count = 0;
    pool.object_size = 0;
  }
  drop_direct_buffers();
  restart_cleanup();
  g_block_failure_logged.store(false);
}

void fail_allocation_after(uint64_t n) {
  g_fail_countdown.store(n);
  if (n != 0) {
    g_mode.fetch_or(kModeFail);
  } else {
    g_mode.fetch_and(~uint32_t{kModeFail});
  }
}

const Lock& pool_lock(std::size_t index) {
  return g_pools[index].lock;
}

const char* pool_name(std::size_t index) {
  return kPools[index].name;
}

}  // namespace vx
