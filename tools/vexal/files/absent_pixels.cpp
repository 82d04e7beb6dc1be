#include "absent_pixels.h"

#include "base/names.h"
#include "base/tags.h"
#include "base/values.h"
#include "files.h"

namespace vexal {
namespace {

// SMPTE ST 2110: video and sound on their way through a network.
bool is_live(VX_TRANSFER_SYNTAX syntax) {
  return syntax >= SMPTE_ST_2110_20_PROGRESSIVE && syntax <= SMPTE_ST_2110_30_AUDIO;
}

std::string name_of(VX_TRANSFER_SYNTAX syntax) {
  return describe_uid(uid_of_syntax(syntax));
}

}  // namespace

bool is_referenced(VX_TRANSFER_SYNTAX syntax) {
  return syntax == JPIP_REFERENCED || syntax == JPIP_REFERENCED_DEFLATE || syntax == JPIP_HTJ2K_REFERENCED ||
         syntax == JPIP_HTJ2K_REFERENCED_DEFLATE;
}

std::string absence_of_pixels(int32_t object, VX_TRANSFER_SYNTAX syntax) {
  if (is_live(syntax)) return name_of(syntax) + " is for live transmission: no file holds pixel data in it";
  if (!is_referenced(syntax)) return "";
  const std::string url = text_of(object, tags::kPixelDataProviderURL);
  return "its pixel data lies elsewhere: " + name_of(syntax) +
         (url.empty() ? " names no place (PixelDataProviderURL)" : " leads to " + url);
}

std::string fault_of_absence(int32_t object, VX_TRANSFER_SYNTAX from, VX_TRANSFER_SYNTAX to) {
  if (is_live(from) || is_live(to)) return absence_of_pixels(object, is_live(from) ? from : to);
  if (is_referenced(from) == is_referenced(to)) return "";
  return is_referenced(from)
             ? absence_of_pixels(object, from)
             : name_of(to) + " has an address in the place of pixel data, which nobody has given";
}

}  // namespace vexal
