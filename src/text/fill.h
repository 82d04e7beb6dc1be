// What the readers of the text forms share: the object that is filled, and values in forms that both know.
#pragma once

#include <charconv>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "model/charset_scan.h"
#include "model/object.h"
#include "text/utf8.h"

namespace vx {

inline constexpr uint32_t kSpecificCharacterSet = 0x00080005U;

// What reading one object has at hand.
struct FillTarget {
  MsgObj& object;
  TextSet set;
  int depth;
  const char* function;          // for the log
  FillTarget* holder = nullptr;  // of an item: what holds its sequence
  CharsetCache charsets{};
  std::vector<std::pair<uint32_t, std::string>> creators{};  // by group and block of the document
  bool utf8_untold = false;  // it, or an item of it, has text beyond ASCII that no (0008,0005) speaks of

  void note_creator(uint32_t tag, std::string code);
  // The creator that the document, or else the object, gives the block of a private tag.
  std::string creator(uint32_t tag) const;
  // The attribute was filled: its value may be the character set of what follows.
  void filled(const TagObj& attribute);
  // Text in the character set of the object. What that can not hold is `?`, logged, and `whole` false.
  std::string_view encoded(uint32_t tag, std::string_view utf8, std::string& work, bool& whole);
  // All is filled. Text that no (0008,0005) speaks of is UTF-8, which it says from now on.
  VX_STATUS finish();

 private:
  void note_utf8();
};

// Values that break a rule of a text VR are stored all the same.
bool is_stored(VX_STATUS status, int32_t vr);

// A text as the whole of a number.
template <typename T, typename... Base>
bool read_number(std::string_view text, T& value, Base... base) {
  const char* end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, value, base...);
  return !text.empty() && read.ec == std::errc{} && read.ptr == end;
}

// The VR of a document's letters, -1 for none. The VRs of 64 bits have no code here: their bytes are kept.
int32_t vr_of_document(std::string_view letters);
inline bool is_wide_integer(std::string_view letters) {
  return letters == "SV" || letters == "UV";
}
// The little-endian bytes of an integer of SV or UV: VX_INCOMPATIBLE_VALUE, VX_VALUE_OUT_OF_RANGE.
VX_STATUS append_wide_integer(std::string_view letters, std::string_view text, std::string& bytes);

// What the document says of its values holds.
void take_vr(FillTarget& target, TagObj& attribute, int32_t vr, std::string_view letters);
VX_STATUS fill_null(FillTarget& target, TagObj& attribute, bool first);
// A text in UTF-8, which goes into the character set of the object. VX_INVALID_CHARS_IN_VALUE, too, for what
// the set can not hold, and for a backslash in what is one value of the document.
VX_STATUS fill_text(FillTarget& target, TagObj& attribute, std::string_view utf8, bool first,
                    std::string& work);
// A tag as digits, with a comma perhaps.
VX_STATUS fill_tag(FillTarget& target, TagObj& attribute, std::string_view digits, int base, bool first);
// FL and FD go in as what they are: denormal numbers, NaN and infinities too.
VX_STATUS fill_real(FillTarget& target, TagObj& attribute, std::string_view text, bool first);
// Bytes in little endian. What is outside the Base64 alphabet is passed over, and logged.
std::string bytes_of_base64(const FillTarget& target, uint32_t tag, std::string_view base64);
VX_STATUS fill_bytes(FillTarget& target, TagObj& attribute, std::string& bytes);
// A creator's code in the bytes of a value of VR UN.
std::string_view creator_of_bytes(std::string_view bytes);
// The escapes that the toolkit's own forms write, undone.
std::string_view unescape(std::string_view text, std::string& work);

}  // namespace vx
