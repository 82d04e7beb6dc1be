#include "frame/pool.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "frame/lock.h"
#include "frame/log.h"
#include "frame/named_locks.h"
#include "frame/regions.h"

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
namespace {

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

constexpr uint8_t kDirect = 0xFF;  // the pool of slots that stand alone on the heap

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

Slot* slot_of(void* object) {
  return static_cast<Slot*>(object) - 1;
}

struct alignas(16) CPlex {
  CPlex* next;
};

// A heap buffer of its own: this, a Slot, the bytes.
struct alignas(16) DirectBuffer {
  DirectBuffer* previous;
  DirectBuffer* next;

  Slot* slot() { return reinterpret_cast<Slot*>(this + 1); }
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

constexpr PoolRow kPools[] = {
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
static_assert(std::size(kPools) == kPoolCount);

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

constinit PoolRecord g_pools[kPoolCount] = {};
constinit Lock g_direct_lock;  // mallocSemaphore
DirectBuffer* g_direct_head = nullptr;
std::size_t g_direct_count = 0;
std::size_t g_direct_bytes = 0;
std::atomic<std::size_t> g_pixel_size{0};

// Raised whenever all blocks go, so that threads forget the slots they had at hand.
std::atomic<uint64_t> g_epoch{1};

// Anything but zero sends every allocation down the slow road.
enum : uint32_t { kModeDirect = 1, kModeFail = 2 };
std::atomic<uint32_t> g_mode{0};
std::atomic<uint64_t> g_fail_countdown{0};

std::atomic<bool> g_block_failure_logged{false};
std::atomic<bool> g_direct_failure_logged{false};

constinit Lock g_cleanup_lock;
bool g_cleanup_running = false;
std::size_t g_cleanup_position = kPoolCount - 1;  // the pool where the last one stopped

void* heap_failed(void* block) {
  if (block == nullptr) std::fputs("\n\nOut of Memory!\n", stdout);
  return block;
}

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

// Puts a whole stack back on top of the pool's.
void return_to_pool(std::size_t index, Slot* stack) {
  if (stack == nullptr) return;
  PoolRecord& pool = g_pools[index];
  const Guard guard(pool.lock);
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
    return_to_pool(index, std::exchange(bin.older, nullptr));
    return_to_pool(index, std::exchange(bin.head, nullptr));
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

// ---- Direct buffers ----

void link_direct(DirectBuffer* buffer, std::size_t size) {
  const Guard guard(g_direct_lock);
  buffer->previous = nullptr;
  buffer->next = g_direct_head;
  if (g_direct_head != nullptr) g_direct_head->previous = buffer;
  g_direct_head = buffer;
  ++g_direct_count;
  g_direct_bytes += size + sizeof(DirectBuffer) + sizeof(Slot);
}

void unlink_direct(DirectBuffer* buffer, std::size_t size) {
  const Guard guard(g_direct_lock);
  (buffer->previous != nullptr ? buffer->previous->next : g_direct_head) = buffer->next;
  if (buffer->next != nullptr) buffer->next->previous = buffer->previous;
  --g_direct_count;
  g_direct_bytes -= size + sizeof(DirectBuffer) + sizeof(Slot);
}

DirectBuffer* direct_of(Slot* slot) {
  return reinterpret_cast<DirectBuffer*>(slot) - 1;
}

bool direct_bytes(std::size_t size, std::size_t& bytes) {
  return !__builtin_add_overflow(size, sizeof(DirectBuffer) + sizeof(Slot), &bytes);
}

void* new_direct(std::size_t size, bool zeroed) {
  std::size_t bytes = 0;
  void* memory = nullptr;
  if (direct_bytes(size, bytes)) memory = heap_failed(zeroed ? std::calloc(1, bytes) : std::malloc(bytes));
  if (memory == nullptr) {
    if (!g_direct_failure_logged.exchange(true)) {
      VX_LOG_ERR(nullptr, "OUT OF MEMORY when allocating %lu chunk!", static_cast<unsigned long>(size));
    }
    return nullptr;
  }
  advise_huge(memory, bytes);
  auto* buffer = static_cast<DirectBuffer*>(memory);
  Slot* slot = buffer->slot();
  slot->pool = kDirect;
  slot->state.store(kInUse, std::memory_order_relaxed);
  slot->size = size;
  link_direct(buffer, size);
  return slot->object();
}

void free_direct(Slot* slot) {
  DirectBuffer* buffer = direct_of(slot);
  unlink_direct(buffer, slot->size);
  std::free(buffer);
}

// Grows or shrinks in place where the heap can.
void* resize_direct(Slot* slot, std::size_t size) {
  std::size_t bytes = 0;
  if (!direct_bytes(size, bytes)) return nullptr;
  DirectBuffer* buffer = direct_of(slot);
  const std::size_t old_size = slot->size;
  unlink_direct(buffer, old_size);
  void* memory = std::realloc(buffer, bytes);
  if (memory == nullptr) {
    heap_failed(nullptr);
    link_direct(buffer, old_size);
    return nullptr;
  }
  advise_huge(memory, bytes);
  buffer = static_cast<DirectBuffer*>(memory);
  buffer->slot()->size = size;
  link_direct(buffer, size);
  return buffer->slot()->object();
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
        return_to_pool(index, bin.older);
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

void free_blocks(std::size_t index, CPlex* block, std::size_t bytes) {
  while (block != nullptr) {
    CPlex* next = block->next;
    allow(block, bytes);
    region_free(index, block);
    block = next;
  }
}

std::size_t block_bytes(std::size_t index) {
  return sizeof(CPlex) + g_pools[index].stride() * kPools[index].block_count;
}

template <typename Visit>
void for_each_slot(std::size_t index, CPlex* block, Visit visit) {
  auto* at = reinterpret_cast<std::byte*>(block + 1);
  const std::size_t stride = g_pools[index].stride();
  for (uint32_t i = 0; i < kPools[index].block_count; ++i, at += stride) visit(*reinterpret_cast<Slot*>(at));
}

// ---- Clean-up ----

using Clock = std::chrono::steady_clock;

struct CleanUp {
  bool limited;
  Clock::time_point deadline;
  uint64_t freed = 0;

  bool late() const { return limited && Clock::now() > deadline; }
};

bool all_free(std::size_t index, CPlex* block) {
  bool free = true;
  for_each_slot(index, block, [&free](const Slot& slot) {
    free = free && slot.state.load(std::memory_order_relaxed) == kFree;
  });
  return free;
}

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

VX_STATUS cleanup_memory(int32_t max_seconds) {
  if (max_seconds < 0) return VX_VALUE_OUT_OF_RANGE;
  {
    const Guard guard(g_cleanup_lock);
    if (g_cleanup_running) return kOk;
    g_cleanup_running = true;
  }
  if (ThreadCache* cache = thread_cache(); cache != nullptr) flush_thread_cache(*cache);
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
  std::size_t direct = 0;
  std::size_t buffers = 0;
  {
    const Guard guard(g_direct_lock);
    direct = g_direct_bytes;
    buffers = g_direct_count;
  }
  total += direct;
  free_bytes += direct;
  if (!trace) return;
  log_line(VX_LOG_T1, nullptr, "%6d bytes in %d direct buffers", static_cast<int>(direct),
           static_cast<int>(buffers));
  log_line(VX_LOG_T1, nullptr, "True bytes in use: %luK", static_cast<unsigned long>((total - idle) / 1024));
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
  {
    const Guard guard(g_direct_lock);
    for (DirectBuffer* buffer = std::exchange(g_direct_head, nullptr); buffer != nullptr;) {
      DirectBuffer* next = buffer->next;
      std::free(buffer);
      buffer = next;
    }
    g_direct_count = 0;
    g_direct_bytes = 0;
  }
  g_cleanup_position = kPoolCount - 1;
  g_block_failure_logged.store(false);
  g_direct_failure_logged.store(false);
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

const Lock& direct_buffer_lock() {
  return g_direct_lock;
}

}  // namespace vx
