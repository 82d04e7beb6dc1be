// The Configuration Record and how the library reads it.
//
// Numbers are read and written as single atomic words through std::atomic_ref; texts only under the
// configuration lock, so that readers copy them.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "frame/status.h"

namespace vx {

// Never null between a successful load and the release. Until then an all-defaults record.
ConfigRecord& config();

inline int32_t config_int(VX_INT_KEY key) {
  return std::atomic_ref<int32_t>(config().int_values[key]).load(std::memory_order_relaxed);
}
inline int32_t config_long(VX_LONG_KEY key) {
  return std::atomic_ref<int32_t>(config().long_values[key]).load(std::memory_order_relaxed);
}
inline bool config_bool(VX_BOOL_KEY key) {
  return std::atomic_ref<uint32_t>(config().bool_values[key]).load(std::memory_order_relaxed) == 1;
}
// Numbers that a profile may give without bounds, as the library can work with them.
// PDU_MAXIMUM_LENGTH: 0 is no limit; below 128 bytes hardly a value finds room, and data come in even pieces.
inline uint32_t pdu_maximum_length() {
  const int32_t length = config_long(VX_CFG_PDU_MAXIMUM_LENGTH);
  return length > 0 ? (std::max<uint32_t>(static_cast<uint32_t>(length), 128) + 1) & ~uint32_t{1} : 0;
}
// PIXEL_BUFFER_SIZE: values in memory come in pieces of 100 times as much.
inline uint32_t pixel_buffer_size() {
  return static_cast<uint32_t>(std::max(config_long(VX_CFG_PIXEL_BUFFER_SIZE), 4096));
}
// WORK_BUFFER_SIZE, of which each encode and each open directory has one.
inline uint32_t work_buffer_size() {
  return static_cast<uint32_t>(std::clamp(config_int(VX_CFG_WORK_BUFFER_SIZE), 64, 64 << 20));
}
// A copy of a text, cut to size - 1 bytes; its whole length. Holds the lock while it copies.
std::size_t config_text(VX_STRING_KEY key, char* buffer, std::size_t size);
std::string config_text(VX_STRING_KEY key);
// The first character of a text, NUL when empty, without a lock: for LARGE_DATA_STORE and its like.
char config_first_char(VX_STRING_KEY key);

// Setters as the public functions have them.
VX_STATUS config_set_int(VX_INT_KEY key, int32_t value);
VX_STATUS config_set_long(VX_LONG_KEY key, int32_t value);
VX_STATUS config_set_bool(VX_BOOL_KEY key, bool value);
VX_STATUS config_set_text(VX_STRING_KEY key, const char* value);
VX_STATUS config_set_destination(VX_LOG_KEY key, uint32_t destination);

// DECODER_TAG_FILTER, parsed.
struct FilterEntry {
  uint32_t type;  // 1, 2, 4 ... 256
  char creator[65];
  uint32_t low;
  uint32_t high;
};
// True if an entry whose type is in `types` matches the tag. Cheap when there is no filter.
bool filter_matches(uint32_t tag, uint32_t types);

// True for one of the titles of ACCEPT_LIST_OF_APPLICATION_TITLES.
bool accepts_title(const char* title);

// Expansion of "$(NAME)/rest" and "%NAME%/rest" in a path; VX3INIDIR is the folder of vexal.ini. A value
// without a variable is copied. False after a line in the log.
bool expand_path(const char* value, std::string& expanded);

}  // namespace vx
