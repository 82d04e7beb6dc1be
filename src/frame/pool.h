// Fixed-size pools for every kind of object and for small buffers.
//
// A pool grows in blocks and keeps them until a clean-up, a reset or the release. Each thread keeps a few
// free slots of each pool at hand, so that the common path takes no lock. Every slot has a 16-byte header
// with its pool, its state and, for a buffer, its size, and is aligned to 16 bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "frame/status.h"

namespace vx {

// In the order in which clean-up and report walk them: buffers first, smallest first, then objects.
enum class Pool : uint8_t {
  b4,
  b8,
  b12,
  b16,
  b20,
  b24,
  b32,
  b40,
  b64,
  b256,
  b512,
  b2K,
  b4K,
  b8K,
  b12K,
  b16K,
  b20K,
  b24K,
  b28K,
  bPixel,
  ValErrObj,
  TagObj,
  ValidValueObj,
  FileValueObj,
  FileObj,
  CBObj,
  MsgObj,
  HashObj,
  SopObj,
  ItemObj,
  CreatorObj,
  CObList,
  CNode,
  AssocParmsObj,
  AssocReqObj,
  AssocObj,
  AppObj,
  ExtInfoObj,
  SesObj,
  RemAppObj,
  ServListObj,
  SyntaxListObj,
  ContextObj,
  UidObj,
  EntityObj,
  TCPObj,
  SentRcvMsgObj,
  ValTagObj,
};
inline constexpr std::size_t kPoolCount = static_cast<std::size_t>(Pool::ValTagObj) + 1;

// A zeroed object of `size` bytes (the same for each call on one pool), or null after a line in the log.
void* pool_new(Pool pool, std::size_t size);
// Null is ignored; an object that is free already is logged and left alone.
void pool_free(Pool pool, void* object);

template <typename T>
T* new_object(Pool pool) {
  static_assert(std::is_trivially_destructible_v<T> && alignof(T) <= 16);
  return static_cast<T*>(pool_new(pool, sizeof(T)));
}

// Buffers. allocate gives zeroed bytes, allocate_raw leaves them unset; null after a line in the log if there
// is no memory. reallocate keeps the contents up to the smaller size (new bytes are unset); null leaves the
// old buffer in place. Sizes up to 28672 and the one of pixel buffers come from pools, all others straight
// from the heap.
void* allocate(std::size_t size);
void* allocate_raw(std::size_t size);
void* reallocate(std::size_t size, void* buffer);
void release(void* buffer);
// A copy of a text, or null.
char* duplicate_text(const char* text);

// The size that bPixel serves, PIXEL_BUFFER_SIZE + 12; pushed by the configuration.
void set_pixel_buffer_size(std::size_t size);
// Everything straight from the heap (VX3_MALLOC). Chosen while nothing is allocated.
void set_direct_allocation(bool on);

VX_STATUS cleanup_memory(int32_t max_seconds);
void report_memory(uint64_t& total, uint64_t& free_bytes);
// Gives every block and direct buffer back, without looking at what is in them. The caller runs alone.
void drop_all_memory();

// Makes the n-th allocation from now fail, once; 0 switches off. For tests of failure paths.
void fail_allocation_after(uint64_t n);

}  // namespace vx
