// Objects and buffers that stand alone on the heap, each behind a Slot as in a pool.
#pragma once

#include <cstddef>

#include "frame/pool_records.h"

namespace vx {

// Null after a line in the log.
void* new_direct(std::size_t size, bool zeroed);
void free_direct(Slot* slot);
// Grows or shrinks in place where the heap can; null leaves it as it is.
void* resize_direct(Slot* slot, std::size_t size);
// All of them, without looking at what is in them.
void drop_direct_buffers();

struct DirectTotals {
  std::size_t bytes;
  std::size_t buffers;
};
DirectTotals direct_totals();

}  // namespace vx
