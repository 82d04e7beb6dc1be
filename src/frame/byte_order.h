// Numbers in streams. The machine is little endian; nothing is read or written through a cast pointer.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace vx {
static_assert(std::endian::native == std::endian::little);

inline uint16_t load16(const void* p, bool big_endian) {
  uint16_t v;
  std::memcpy(&v, p, sizeof v);
  return big_endian ? __builtin_bswap16(v) : v;
}
inline uint32_t load32(const void* p, bool big_endian) {
  uint32_t v;
  std::memcpy(&v, p, sizeof v);
  return big_endian ? __builtin_bswap32(v) : v;
}
inline void store16(void* p, uint16_t v, bool big_endian) {
  if (big_endian) v = __builtin_bswap16(v);
  std::memcpy(p, &v, sizeof v);
}
inline void store32(void* p, uint32_t v, bool big_endian) {
  if (big_endian) v = __builtin_bswap32(v);
  std::memcpy(p, &v, sizeof v);
}
// A tag in stream form: group, then element.
inline uint32_t load_tag(const void* p, bool big_endian) {
  const auto* bytes = static_cast<const uint8_t*>(p);
  return (static_cast<uint32_t>(load16(bytes, big_endian)) << 16) | load16(bytes + 2, big_endian);
}
inline void store_tag(void* p, uint32_t tag, bool big_endian) {
  auto* bytes = static_cast<uint8_t*>(p);
  store16(bytes, static_cast<uint16_t>(tag >> 16), big_endian);
  store16(bytes + 2, static_cast<uint16_t>(tag), big_endian);
}

inline constexpr uint32_t kItemTag = 0xFFFEE000U;
inline constexpr uint32_t kItemEnd = 0xFFFEE00DU;
inline constexpr uint32_t kSequenceEnd = 0xFFFEE0DDU;

}  // namespace vx
