#include "frame/direct_heap.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "frame/log.h"
#include "frame/named_locks.h"
#include "frame/regions.h"

namespace vx {
namespace {

// A heap buffer of its own: this, a Slot, the bytes.
struct alignas(16) DirectBuffer {
  DirectBuffer* previous;
  DirectBuffer* next;

  Slot* slot() { return reinterpret_cast<Slot*>(this + 1); }
};

constinit Lock g_direct_lock;  // mallocSemaphore
DirectBuffer* g_direct_head = nullptr;
std::size_t g_direct_count = 0;
std::size_t g_direct_bytes = 0;
std::atomic<bool> g_direct_failure_logged{false};

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

}  // namespace

void* heap_failed(void* block) {
  if (block == nullptr) std::fputs("\n\nOut of Memory!\n", stdout);
  return block;
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

void drop_direct_buffers() {
  const Guard guard(g_direct_lock);
  for (DirectBuffer* buffer = std::exchange(g_direct_head, nullptr); buffer != nullptr;) {
    DirectBuffer* next = buffer->next;
    std::free(buffer);
    buffer = next;
  }
  g_direct_count = 0;
  g_direct_bytes = 0;
  g_direct_failure_logged.store(false);
}

DirectTotals direct_totals() {
  const Guard guard(g_direct_lock);
  return {g_direct_bytes, g_direct_count};
}

const Lock& direct_buffer_lock() {
  return g_direct_lock;
}

}  // namespace vx
