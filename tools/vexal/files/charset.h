// Text of files: out of its character sets for people, and from one character set into another.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/args.h"
#include "base/printable.h"
#include "files.h"

namespace vexal {

// Nothing but ASCII, and no escape sequence to another set.
bool is_ascii(std::string_view text);
// True for the VRs that (0008,0005) speaks of.
bool has_charset(VX_VR vr);
// Loads what stands behind all sets but ASCII and UTF-8; false, said once, where it is not installed.
bool load_charsets();

struct TextValue {
  std::string bytes;
  std::u16string unicode;  // U+FFFD for what is no character
  bool is_null = false;
};
// The values of a text attribute as they lie in the object, and in Unicode if `decode` is set.
VX_STATUS read_texts(int32_t id, uint32_t tag, int32_t count, bool decode, std::vector<TextValue>& values);

// The character set that a text starts in, as the object or what holds it names it; empty for the default.
std::string first_charset(int32_t id, const std::string& inherited);

// all_text_of as UTF-8; as it lies in the object where it can not be decoded.
std::string utf8_text_of(int32_t id, uint32_t tag);
// Sets the first or the next value of an attribute from what people type: in the character sets of its
// object. False if these can not hold it; text that is no UTF-8 is taken as it is.
bool set_typed_text(int32_t id, uint32_t tag, const std::string& text, bool first, VX_STATUS& status);
// Text of the object that is more than ASCII becomes UTF-8, and (0008,0005) says so; what is no text in its
// set is reported and replaced, and counted. An object of ASCII stays as it is, and so does one that says it
// is in UTF-8.
std::size_t make_utf8(const DicomFile& file);
// The other way: text in UTF-8 becomes text in the sets of a (0008,0005), its values parted by backslashes.
// The problem, empty if there is none.
std::string leave_utf8(int32_t object, const std::string& path, const std::string& charset);

// Rows of an option table.
#define VEXAL_CHARSET_OPTIONS                                                                            \
  {"--charset", "NAME[,NAME...]",                                                                        \
   "write all text in these character sets: utf-8, or defined terms of (0008,0005); what they can not "  \
   "express is reported, and nothing is written"},                                                       \
      {"--charset-from", "NAME[,NAME...]", "the sets of text in files that name none"}, {                \
    "--lossy", nullptr, "with --charset: write the file all the same, with ? or U+FFFD for what is lost" \
  }

// From one character set into another, as the options ask.
class CharsetChange {
 public:
  bool read(const Args& args);  // false after a line on standard error
  bool wanted() const { return wanted_; }
  // Text of the object and its items, and their (0008,0005). kFindings: some of it was lost, each value
  // reported; `write` tells whether the file is to be written then. Nothing has changed if not.
  Exit apply(const DicomFile& file, bool& write) const;

 private:
  using Names = std::vector<std::string>;
  bool read_names(const Args& args, const char* option, Names& names) const;

  bool wanted_ = false;
  bool lossy_ = false;
  Names names_;  // none: the default repertoire
  Names from_;
};

}  // namespace vexal
