// The scanner of character sets (PS3.3 section C.12.1.1.2, PS3.5 section 6.1): counts characters and tells
// what can not stand in a text under a Specific Character Set.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "model/object.h"

namespace vx {

struct CharsetMasks {
  uint32_t values = 1;  // union over all values of (0008,0005), with kCodeExtensions
  uint32_t first = 1;
};
inline constexpr uint32_t kCodeExtensions = 0x10000;

// Character sets of one object, looked up once; for a run of values of one object.
struct CharsetCache {
  bool known = false;
  VX_STATUS status = kOk;
  CharsetMasks masks;
};

// The values of (0008,0005) of the object or of its holders, up to the first empty one behind the first; none
// if there is no such attribute. They live as long as the attribute. Failures as charset_masks.
inline constexpr int kMaxCharsetNames = 6;
VX_STATUS charset_names(MsgObj& object, std::string_view (&names)[kMaxCharsetNames], int& count);

// The masks of the object or, when it has no (0008,0005), of its holders. VX_VALUE_TOO_LARGE and other
// failures of reading the attribute, logged.
VX_STATUS charset_masks(MsgObj& object, CharsetMasks& masks);
VX_STATUS charset_masks(MsgObj& object, CharsetCache* cache, CharsetMasks& masks);

// True if every byte is a character: no code extensions and no multi-byte set.
bool is_single_byte(const CharsetMasks& masks);

enum class Scan { Single, Taken, Invalid };
// Looks at the character at `position`. Single: the byte stands by itself, the caller tests and counts it.
// Taken: a multi-byte character or an escape sequence, counted, and position stands at its last byte.
// Invalid: logged.
Scan scan_character(std::string_view text, std::size_t& position, uint32_t values_mask, uint32_t& active_mask,
                    int& characters);
// A byte that stands by itself, under ISO-IR 6: false if it counts as a bad character. Logs, a few times a
// value: `told` counts the lines.
bool check_default_character(uint32_t tag, uint8_t byte, uint32_t active_mask, int& told);

// How a text of several values must be cut: a byte 0x5C is no separator where it is half of a character.
enum SplitMode : uint8_t {
  kSplitPlain,      // every backslash separates
  kSplitEscapes,    // not between ESC $ B or ESC $ ( D and the escape sequence that ends it
  kSplitDoubleByte  // not as second byte of a GBK or GB18030 character
};
SplitMode needs_escape_aware_split(const CharsetMasks& masks);
// The end of the value that starts at `start`: the next backslash that separates, or the size of the text.
// Each value starts under the initial character sets.
std::size_t split_point(std::string_view text, std::size_t start, SplitMode mode);

}  // namespace vx
