// zlib on the library's pools.
#pragma once

#include <zlib.h>

#include <cstddef>

#include "frame/pool.h"

namespace vx {

inline void* zlib_allocate(void*, uInt items, uInt size) {
  return allocate_raw(static_cast<std::size_t>(items) * size);
}
inline void zlib_release(void*, void* address) {
  release(address);
}
// A zeroed stream that allocates from the pools, or null.
inline z_stream* new_zlib_stream() {
  auto* stream = static_cast<z_stream*>(allocate(sizeof(z_stream)));
  if (stream != nullptr) {
    stream->zalloc = zlib_allocate;
    stream->zfree = zlib_release;
  }
  return stream;
}
inline const char* zlib_message(const z_stream& stream) {
  return stream.msg != nullptr ? stream.msg : "";
}

}  // namespace vx
