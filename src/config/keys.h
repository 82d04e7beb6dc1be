// The key tables: one row a key, the row number is the key's number.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "frame/status.h"

namespace vx {

enum class Section : uint8_t { VexalKit3, Assoc, Dimse, Dul, Message, Transport, Media, None };
inline constexpr int kSectionCount = 7;
const char* section_name(Section section);
Section find_section(std::string_view name);  // without regard to case; None if unknown

struct IntKey {
  const char* name;
  Section section;
  int32_t initial;
};
struct BoolKey {
  const char* name;
  Section section;
  bool initial;
  bool listed;
};
struct StringKey {
  const char* name;
  Section section;
  const char* initial;
  bool path;
};
std::span<const IntKey, VX_INT_KEY_COUNT> int_keys();
std::span<const IntKey, VX_LONG_KEY_COUNT> long_keys();
std::span<const BoolKey, VX_BOOL_KEY_COUNT> bool_keys();
std::span<const StringKey, VX_STRING_KEY_COUNT> string_keys();
std::span<const char* const, VX_LOG_KEY_COUNT> log_keys();

}  // namespace vx
