// The items of an encapsulated value and the frames that the program finds in them, from hostile bytes.
#include "../tools/vexal/files/fragments.h"

#include <algorithm>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, std::size_t size) {
  if (size < 1) return 0;
  const uint32_t frames = bytes[0] + 1U;
  ++bytes;
  --size;
  const auto read = [&](uint64_t offset, void* buffer, std::size_t length) {
    if (offset > size || length > size - offset) return false;
    std::memcpy(buffer, bytes + offset, length);
    return true;
  };
  vexal::Encapsulated value = vexal::read_items(read, size);
  vexal::find_frames(value, frames, read);
  vexal::find_frames_by_table(value, frames);
  // Every frame is there, has fragments of its own, and they lie in the value.
  if (!value.starts.empty() && value.starts.size() != frames) __builtin_trap();
  for (std::size_t i = 0; i < value.starts.size(); ++i) {
    if (value.starts[i] >= value.end_of_frame(i)) __builtin_trap();
  }
  for (const vexal::Fragment& fragment : value.fragments) {
    if (fragment.data + fragment.length > size || fragment.offset + 8 > fragment.data) __builtin_trap();
  }
  return 0;
}
