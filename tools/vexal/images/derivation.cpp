#include "derivation.h"

#include <string>
#include <vector>

#include "base/names.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/values.h"

namespace vexal {
namespace {

// A new item of a sequence, or -1.
int32_t add_item(int32_t object, const char* keyword, uint32_t tag, const std::string& value) {
  std::vector<PathStep> path;
  std::vector<Place> places;
  if (!parse_path(std::string(keyword) + "[+]." + format_tag(tag), path).empty()) return -1;
  if (!resolve_path(object, path, true, places).empty() || places.empty()) return -1;
  set_all_text(places[0].object, tag, value);
  return places[0].object;
}

bool add_code(int32_t object, const char* keyword, const char* code, const char* meaning) {
  const int32_t item = add_item(object, keyword, tags::kCodeValue, code);
  if (item < 0) return false;
  set_all_text(item, tags::kCodingSchemeDesignator, "DCM");
  set_all_text(item, tags::kCodeMeaning, meaning);
  return true;
}

}  // namespace

bool add_derivation(int32_t id, bool from_compressed) {
  const int32_t item =
      add_item(id, "SourceImageSequence", tags::kReferencedSOPClassUID, text_of(id, tags::kSOPClassUID));
  if (item < 0) return false;
  set_all_text(item, tags::kReferencedSOPInstanceUID, text_of(id, tags::kSOPInstanceUID));
  return add_code(
             item, "PurposeOfReferenceCodeSequence", from_compressed ? "121322" : "121320",
             from_compressed ? "Source image for image processing operation" : "Uncompressed predecessor") &&
         add_code(id, "DerivationCodeSequence", "113040", "Lossy Compression");
}

}  // namespace vexal
