// What a program that hands files on as they came asks for beyond the rules of the interface:
// VX_Keep_Stream_Form; and what one that takes them from strangers does: VX_Limit_Decoder.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "frame/state.h"
#include "model/object.h"
#include "model/vr.h"

namespace vx {

inline bool keeps_stream_form() {
  return std::atomic_ref(state().KeepStreamForm).load(std::memory_order_relaxed) != 0;
}

inline thread_local uint32_t most_decoded = 0;
inline uint64_t most_decoded_parts() {
  return most_decoded != 0 ? most_decoded : ~uint64_t{0};
}

inline constexpr uint32_t kWideWidth = 8;
// OV, SV and UV have no code in the interface; their first letters tell them apart.
constexpr bool is_wide_vr(char first, char second) {
  return second == 'V' && (first == 'O' || first == 'S' || first == 'U');
}
// The first letter of the VR that PS3.6 gives a tag, if that is one of the three; else 0.
char standard_wide_letter(uint32_t tag);
// The same of an attribute's own VR.
inline char wide_letter(const TagObj& attribute) {
  return attribute.VR == VX_VR_UN && is_wide_vr(attribute.DecoderMark, 'V') ? attribute.DecoderMark : char{};
}

// The letters under which an attribute goes out; of two that it makes up, in `work`.
inline std::string_view stream_letters(const TagObj& attribute, char (&work)[2]) {
  work[0] = wide_letter(attribute);
  work[1] = 'V';
  return {work[0] != 0 ? work : vr_letters(attribute.VR), 2};
}

// Keeps the bytes of a text if its values would not write them again. False: no memory.
bool keep_if_changed(TagObj& attribute, std::string_view bytes);
// True if the values say less, or other things, than the bytes that were kept: blanks and NULs aside.
bool says_less_than_kept(const TagObj& attribute);

}  // namespace vx
