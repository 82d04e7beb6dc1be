// The Data Dictionary. Read-only once loaded: lookups take no lock.
#pragma once

#include <cstdint>
#include <string_view>

#include "frame/status.h"

namespace vx {

struct DictInfo {
  int32_t vr;
  uint16_t vm_low;
  uint16_t vm_high;
  const char* name;  // null for a synthesised private group length
};
// `creator` is the private code, trailing blanks do not count; empty for none. The block byte of a private
// tag does not count. VX_INVALID_TAG, VX_MISSING_CONFIG_PARM.
VX_STATUS dictionary_lookup(uint32_t tag, std::string_view creator, DictInfo& info);
// Lookup and name at once; `info` is filled also when the name does not fit.
VX_STATUS dictionary_describe(uint32_t tag, std::string_view creator, DictInfo& info, char* buffer,
                              int32_t size);
// The name as VX_Get_Tag_Info copies it.
VX_STATUS dictionary_name(uint32_t tag, std::string_view creator, char* buffer, int32_t size);
VX_STATUS dictionary_keyword(uint32_t tag, char* buffer, int32_t size);

}  // namespace vx
