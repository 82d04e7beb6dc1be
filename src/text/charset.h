// Text in the character sets that Specific Character Set (0008,0005) names (PS3.3 section C.12.1.1.2, PS3.5
// section 6.1), to Unicode and back.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "model/object.h"

namespace vx {

struct CharsetRow;

// The character sets of a text. The first is in force where a text starts.
struct TextCharsets {
  static constexpr int kMax = 6;
  const CharsetRow* rows[kMax] = {};
  int count = 0;
  bool extended = false;  // escape sequences switch between the sets
  bool known = true;      // false: ISO_IR 100 stands for a name that is not
};

// ICU stands behind all sets but ASCII and UTF-8; it is off until the application turns it on.
VX_STATUS enable_unicode(bool enable);
bool unicode_enabled();

// The sets that an object's text stands in: its own (0008,0005), or that of its holders. Unknown names count
// as ISO_IR 100, with a warning. A failure of reading the attribute, logged.
VX_STATUS text_charsets(MsgObj& object, TextCharsets& sets);
// The same from the names. `unknown`, if not null, gets the first name that is not known; such names count as
// ISO_IR 100.
TextCharsets text_charsets(std::span<const std::string_view> names, std::string_view* unknown = nullptr);

// How much of a text came over.
enum class TextResult {
  Whole,
  Lost,   // some of it is U+FFFD (decoding) or the substitute (encoding)
  NoIcu,  // decoding: read as ISO_IR 100; encoding: as far as ASCII goes, else the substitute
};

// Appends text as UTF-8; `text` is one value, or all of a text that has one value (ST, LT, UT). A person name
// goes back to the first sets behind ^ and =.
TextResult decode_text(const TextCharsets& sets, std::string_view text, bool person_name, std::string& utf8);
// Appends the bytes of UTF-8 text. What no set has is written as `substitute`.
TextResult encode_text(const TextCharsets& sets, std::string_view utf8, std::string& bytes,
                       char substitute = '?');
// The same with UTF-16.
TextResult decode_text(const TextCharsets& sets, std::string_view text, bool person_name,
                       std::u16string& utf16);
TextResult encode_text(const TextCharsets& sets, std::u16string_view utf16, std::string& bytes,
                       char substitute = '?');

void append_utf8(std::u16string_view utf16, std::string& utf8);
// False if the bytes are no UTF-8; U+FFFD stands for what is none.
bool append_utf16(std::string_view utf8, std::u16string& utf16);

}  // namespace vx
