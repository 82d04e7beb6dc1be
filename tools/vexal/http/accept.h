// What a client takes in answer, best first (RFC 9110 section 12.5.1, PS3.18 section 8.7.4).
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vexal {

struct MediaRange {
  bool parts = false;  // multipart/related of the type
  std::string type;    // in lower case: "application/dicom", "image/*", "*/*"
  std::string syntax;  // the transfer syntax: a UID, "*", or "" where it names none
  double quality = 1;  // from above 0 to 1

  // Whether an answer of this type is meant.
  bool takes(std::string_view media) const;
};

// The ranges of an Accept header, those with the same quality in their order. What can not be understood is
// left out; nothing at all stands for everything.
std::vector<MediaRange> parse_accept(std::string_view header);

}  // namespace vexal
