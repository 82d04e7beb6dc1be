#include "frame/regions.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>

#include "frame/lock.h"
#include "frame/pool.h"

#if defined(__SANITIZE_ADDRESS__)
#define VX_PLAIN_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VX_PLAIN_HEAP 1
#endif
#endif

namespace vx {
namespace {

constexpr std::size_t kRegion = std::size_t{2} << 20;             // the size and the alignment of a huge page
[[maybe_unused]] constexpr std::size_t kFromHeap = 512U * 1024U;  // a small program never takes a region
[[maybe_unused]] constexpr std::size_t kLargestBlock = kRegion / 4;
constexpr std::size_t kHugeBuffer = 2 * kRegion;

// At the head of each region. A block that is given back waits for the next of its pool, or for the region to
// empty.
struct alignas(16) Region {
  Region* next;
  std::size_t used;  // bytes handed out, with this header
  std::size_t live;  // blocks in use
};

struct SpareBlock {
  SpareBlock* next;
};

// Before each block: where it came from.
struct alignas(16) Origin {
  Region* region;    // null: the heap
  std::size_t size;  // with this header
};

constinit Lock g_lock;
Region* g_regions = nullptr;  // the first one is being filled
SpareBlock* g_spare[kPoolCount];
[[maybe_unused]] std::size_t g_heap_bytes = 0;

void* map_region() {
  // Twice the size always holds an aligned region; what is left over goes back.
  void* mapping = ::mmap(nullptr, 2 * kRegion, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapping == MAP_FAILED) return nullptr;
  const auto start = reinterpret_cast<uintptr_t>(mapping);
  const uintptr_t aligned = (start + kRegion - 1) & ~(kRegion - 1);
  if (aligned != start) ::munmap(mapping, aligned - start);
  const uintptr_t end = start + 2 * kRegion;
  if (aligned + kRegion != end) ::munmap(reinterpret_cast<void*>(aligned + kRegion), end - aligned - kRegion);
  ::madvise(reinterpret_cast<void*>(aligned), kRegion, MADV_HUGEPAGE);
  return reinterpret_cast<void*>(aligned);
}

bool lies_in(const void* block, const Region* region) {
  return (reinterpret_cast<uintptr_t>(block) & ~(kRegion - 1)) == reinterpret_cast<uintptr_t>(region);
}

[[maybe_unused]] Origin* carve(std::size_t size) {
  Region* region = g_regions;
  if (region == nullptr || size > kRegion - region->used) {
    region = static_cast<Region*>(map_region());
    if (region == nullptr) return nullptr;
    *region = {g_regions, sizeof(Region), 0};
    g_regions = region;
  }
  auto* origin = reinterpret_cast<Origin*>(reinterpret_cast<char*>(region) + region->used);
  region->used += size;
  *origin = {region, size};
  return origin;
}

// A block that was given back. Those of the pixel pool differ in size when its setting changed.
[[maybe_unused]] Origin* take_spare(std::size_t pool, std::size_t size) {
  for (SpareBlock** link = &g_spare[pool]; *link != nullptr; link = &(*link)->next) {
    Origin* origin = reinterpret_cast<Origin*>(*link) - 1;
    if (origin->size != size) continue;
    *link = (*link)->next;
    return origin;
  }
  return nullptr;
}

void drop_region(Region* region) {
  for (SpareBlock*& head : g_spare) {
    for (SpareBlock** link = &head; *link != nullptr;) {
      if (lies_in(*link, region)) {
        *link = (*link)->next;
      } else {
        link = &(*link)->next;
      }
    }
  }
  for (Region** link = &g_regions; *link != nullptr; link = &(*link)->next) {
    if (*link != region) continue;
    *link = region->next;
    break;
  }
  ::munmap(region, kRegion);
}

}  // namespace

void* region_allocate(std::size_t pool, std::size_t size) {
  const std::size_t whole = sizeof(Origin) + ((size + 15) & ~std::size_t{15});
#ifndef VX_PLAIN_HEAP
  {
    const Guard guard(g_lock);
    Origin* origin = take_spare(pool, whole);
    if (origin == nullptr && g_heap_bytes + whole > kFromHeap && whole <= kLargestBlock) {
      origin = carve(whole);
    }
    if (origin != nullptr) {
      ++origin->region->live;
      return origin + 1;
    }
    g_heap_bytes += whole;
  }
#endif
  (void)pool;
  auto* origin = static_cast<Origin*>(std::malloc(whole));
  if (origin == nullptr) return nullptr;
  *origin = {nullptr, whole};
  return origin + 1;
}

void region_free(std::size_t pool, void* block) {
  Origin* origin = static_cast<Origin*>(block) - 1;
  Region* region = origin->region;
  if (region == nullptr) return std::free(origin);
  const Guard guard(g_lock);
  auto* spare = static_cast<SpareBlock*>(block);
  spare->next = g_spare[pool];
  g_spare[pool] = spare;
  if (--region->live == 0) drop_region(region);
}

void advise_huge(void* buffer, std::size_t size) {
  if (size < kHugeBuffer) return;
  const auto start = (reinterpret_cast<uintptr_t>(buffer) + kRegion - 1) & ~(kRegion - 1);
  const auto end = (reinterpret_cast<uintptr_t>(buffer) + size) & ~(kRegion - 1);
  if (start < end) ::madvise(reinterpret_cast<void*>(start), end - start, MADV_HUGEPAGE);
}

}  // namespace vx
