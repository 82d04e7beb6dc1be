// The table of character sets, and ICU behind it.
#pragma once

#include <cstdint>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <string_view>

namespace vx {

enum class CharsetKind : uint8_t {
  Ascii,
  Utf8,
  Katakana,   // JIS X 0201: ASCII below, half-width katakana above
  Single,     // ASCII below, one byte a character above
  Multi,      // ASCII, and characters of several bytes
  HighPairs,  // ASCII, and pairs of bytes from 0xA1 up, as G1
  LowPairs    // pairs of 7-bit bytes, as G0
};

struct CharsetRow {
  std::string_view name;
  const char* icu;  // converter
  CharsetKind kind;
  std::string_view g0;  // escape sequences, without the ESC
  std::string_view g1;
  // Bytes of a Single that the set has; converters may know more.
  uint8_t lowest = 0x80;
  uint8_t highest = 0xFF;
};

const CharsetRow* find_charset(std::string_view name);
// The set that an escape sequence at the start of `behind` (what follows the ESC) chooses; null if there is
// none. `g1` tells which half it takes.
const CharsetRow* find_charset_escape(std::string_view behind, bool& g1, std::size_t& length);
// ISO 2022 IR n for ISO_IR n; null for a set that takes no part in code extensions.
const CharsetRow* extended_charset(const CharsetRow& row);

// ICU stays loaded as long as one of these lives and `loaded` is true.
class IcuUse {
 public:
  IcuUse();
  bool loaded() const { return loaded_; }

 private:
  std::shared_lock<std::shared_mutex> lock_;
  bool loaded_;
};

// False if ICU is loaded and has no converter for the row. Not for those that have ICU in use.
bool charset_available(const CharsetRow& row);

// The following need ICU in use, for all kinds but Ascii, Utf8 and Katakana.

// Appends characters of bytes that are of this set alone. U+FFFD stands for what is none, and the result is
// false.
bool decode_run(const CharsetRow& row, std::string_view bytes, std::u16string& out);
// The bytes of one character beyond ASCII, without escape sequences: their count, 0 if the set has none.
// Unless `exact`, also of one that the set has under another code point, as which it will be read.
constexpr std::size_t kMaxCharBytes = 16;
std::size_t encode_char(const CharsetRow& row, char32_t c, bool exact, char (&bytes)[kMaxCharBytes]);

}  // namespace vx
