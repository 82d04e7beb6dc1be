// Names of tags: from keywords and numbers to tags and back.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "vexalkit.h"

namespace vexal {

// "(0010,0020)".
std::string format_tag(uint32_t tag);
// "00100020".
std::string tag_key(uint32_t tag);
constexpr bool is_private(uint32_t tag) {
  const uint32_t group = tag >> 16;
  return group % 2 != 0 && group > 7 && group != 0xFFFF;
}
// "PatientID"; "(0010,0020)" for one without a keyword.
std::string tag_name(uint32_t tag);
// "(0010,0020) PatientID".
std::string describe_tag(uint32_t tag);
// The keyword of a standard tag, "" if it has none. Groups 50xx and 60xx give the keyword of 5000 and 6000.
std::string_view tag_keyword(uint32_t tag);
// The VR of the standard, also one that the library carries as UN ("UV"); "" for a tag that it does not know.
std::string_view standard_vr(uint32_t tag);
// "(gggg,eeee)", "gggg,eeee", "ggggeeee", "0xggggeeee" or a keyword (case does not count); false if it is
// none.
bool parse_tag(std::string_view text, uint32_t& tag);
const char* vr_letters(VX_VR vr);
bool is_text_vr(VX_VR vr);
bool is_number_vr(VX_VR vr);
// "1.2.840.10008.1.2.5 RLE Lossless"; the UID alone where the standard does not have it.
std::string describe_uid(const std::string& uid);
// Keywords near a word, best first, at most `limit`.
std::vector<std::string> similar_keywords(std::string_view word, std::size_t limit);
// Edit distance of two words without regard to case, at most `limit` + 1.
std::size_t edit_distance(std::string_view a, std::string_view b, std::size_t limit);

}  // namespace vexal
