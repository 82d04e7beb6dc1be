#include "identifier.h"

#include "base/attributes.h"
#include "base/tags.h"
#include "files/charset.h"
#include "network/network.h"

namespace vexal {
namespace {

// Bounds of a query's keys: what is longer matches nothing that is kept.
constexpr std::size_t kMostKeys = 1024;
constexpr std::size_t kLongestKey = 1024;
constexpr std::size_t kLongestUidList = 64 * 1024;

bool read_level(const std::string& word, bool patient_root, Level& level) {
  constexpr const char* kWords[] = {"PATIENT", "STUDY", "SERIES", "IMAGE"};
  for (int i = patient_root ? 0 : 1; i < 4; ++i) {
    if (word != kWords[i]) continue;
    level = static_cast<Level>(i);
    return true;
  }
  return false;
}

}  // namespace

bool read_identifier(int32_t message, bool patient_root, Level& level, std::vector<CatalogKey>& keys) {
  if (!read_level(text_of(message, tags::kQueryRetrieveLevel), patient_root, level)) return false;
  for_each_attribute(message, [&](uint32_t tag, VX_VR vr, int32_t) {
    if (tag > tags::kLastOfCommand && tag != tags::kQueryRetrieveLevel &&
        tag != tags::kSpecificCharacterSet && vr != VX_VR_SQ && (tag >> 16) % 2 == 0)
      keys.push_back({tag, vr, ""});
  });
  if (keys.size() > kMostKeys) return false;
  for (CatalogKey& key : keys) {
    key.value = utf8_text_of(message, key.tag);
    if (key.value.size() > (key.vr == VX_VR_UI ? kLongestUidList : kLongestKey)) return false;
  }
  return true;
}

bool narrows(const CatalogKey& key) {
  return Catalog::keeps(key.tag) && key.value.find_first_not_of("*?-\\ ") != std::string::npos;
}

}  // namespace vexal
