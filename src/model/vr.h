// Value representations: the table of codes, letters, classes and sizes.
#pragma once

#include <cstdint>

#include "frame/status.h"

namespace vx {

inline constexpr int32_t kVrCount = 31;

constexpr bool is_vr(int32_t vr) {
  return vr >= 0 && vr < kVrCount;
}
constexpr bool is_text_vr(int32_t vr) {
  return vr >= 0 && vr <= VX_VR_UI;
}
constexpr bool is_numeric_vr(int32_t vr) {
  return vr >= VX_VR_SS && vr <= VX_VR_FD;
}
constexpr bool is_bulk_vr(int32_t vr) {
  return vr >= VX_VR_UN && vr <= VX_VR_OF;
}
constexpr bool is_one_value_text(int32_t vr) {
  return vr == VX_VR_LT || vr == VX_VR_ST || vr == VX_VR_UT || vr == VX_VR_UR;
}
// The VRs that Specific Character Set is about (PS3.5 section 6.1.2.2).
constexpr bool has_character_set(int32_t vr) {
  return vr == VX_VR_LO || vr == VX_VR_LT || vr == VX_VR_PN || vr == VX_VR_SH || vr == VX_VR_ST ||
         vr == VX_VR_UC || vr == VX_VR_UT;
}
// Bytes of one value of a numeric VR or one element of a bulk VR; 1 for text, SQ 0.
constexpr uint32_t vr_width(int32_t vr) {
  switch (vr) {
    case VX_VR_SS:
    case VX_VR_US:
    case VX_VR_OW:
      return 2;
    case VX_VR_AT:
    case VX_VR_SL:
    case VX_VR_UL:
    case VX_VR_FL:
    case VX_VR_OL:
    case VX_VR_OF:
      return 4;
    case VX_VR_FD:
    case VX_VR_OD:
      return 8;
    case VX_VR_SQ:
      return 0;
    default:
      return 1;
  }
}
// True for the VRs with a 4-byte length in an explicit stream (PS3.5 section 7.1.2).
constexpr bool has_long_header(int32_t vr) {
  return (vr >= VX_VR_UN && vr <= VX_VR_SQ) || vr == VX_VR_UC || vr == VX_VR_UR || vr == VX_VR_UT;
}
// The two letters; "??" out of range. UN is "UN" here: writers ask the configuration for its letters.
const char* vr_letters(int32_t vr);
// The code of two letters, -1 if they are none of the table.
int32_t vr_from_letters(char first, char second);

}  // namespace vx
