// Memory for the blocks of the pools and for large buffers.
//
// A program that holds many objects touches its memory page by page, and each first touch of a small page is
// a trip into the kernel that costs more than everything else about the object. Past the first few hundred
// kilobytes blocks therefore come from regions of 2 MiB that ask for huge pages.
#pragma once

#include <cstddef>

namespace vx {

// A block for a pool, aligned to 16 bytes, unset; null if there is no memory. A pool gets its own blocks of
// the same size again.
void* region_allocate(std::size_t pool, std::size_t size);
void region_free(std::size_t pool, void* block);

// Asks for huge pages under a large heap buffer that has not been touched yet. Small ones are left alone.
void advise_huge(void* buffer, std::size_t size);

}  // namespace vx
