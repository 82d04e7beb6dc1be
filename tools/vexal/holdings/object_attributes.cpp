#include "object_attributes.h"

#include <algorithm>

#include "base/session.h"
#include "base/values.h"
#include "files/charset.h"
#include "holdings.h"
#include "key_match.h"

namespace vexal {
namespace {

constexpr std::size_t kMostObjects = 10000;  // that one query has read

// Attributes from one to another that belong to an entity, by the modules of PS3.3.
constexpr struct {
  uint32_t first;
  uint32_t last;
  Level level;
} kOwners[] = {
    {0x00080051, 0x00080051, Level::Study},   {0x00080070, 0x00080070, Level::Series},
    {0x00081032, 0x00081032, Level::Study},   {0x00081040, 0x00081040, Level::Series},
    {0x00081048, 0x00081049, Level::Study},   {0x00081050, 0x00081050, Level::Series},
    {0x00081060, 0x00081060, Level::Study},   {0x00081070, 0x00081070, Level::Series},
    {0x00081080, 0x00081084, Level::Study},   {0x00081090, 0x00081090, Level::Series},
    {0x00100021, 0x00100035, Level::Patient}, {0x00101000, 0x00101005, Level::Patient},
    {0x00101010, 0x00101030, Level::Study},   {0x00101040, 0x00101100, Level::Patient},
    {0x00102160, 0x00102160, Level::Patient}, {0x00102180, 0x001021B0, Level::Study},
    {0x00104000, 0x00104000, Level::Patient}, {0x00181000, 0x00181000, Level::Series},
    {0x00181020, 0x00181030, Level::Series},  {0x00185100, 0x00185100, Level::Series},
    {0x00200060, 0x00200060, Level::Series},  {0x00321033, 0x00321033, Level::Study},
    {0x00380010, 0x00380010, Level::Study},   {0x00400244, 0x00400254, Level::Series},
};

// What names an entity, from the level of studies down.
const CatalogKey kNames[] = {{tags::kPatientID, VX_VR_LO, ""},
                             {tags::kStudyInstanceUID, VX_VR_UI, ""},
                             {tags::kSeriesInstanceUID, VX_VR_UI, ""},
                             {tags::kSOPInstanceUID, VX_VR_UI, ""}};

}  // namespace

bool tells_entity(uint32_t tag, Level level) {
  // Where objects can be had from is not for them to tell.
  if ((tag >= 0x00080052 && tag <= 0x00080056) || tag == 0x00081190) return false;
  if (level == Level::Image) return true;
  return std::any_of(std::begin(kOwners), std::end(kOwners), [&](const auto& row) {
    return tag >= row.first && tag <= row.last && row.level <= level;
  });
}

ObjectAttributes::ObjectAttributes(Holdings& holdings, Level level, const std::vector<CatalogKey>& keys)
    : holdings_(holdings), keys_(keys), all_(keys) {
  for (std::size_t i = 0; i < keys.size(); ++i) {
    const uint32_t tag = keys[i].tag;
    if (Catalog::keeps(tag) || Catalog::computes(tag) || !tells_entity(tag, level)) continue;
    asked_.push_back(i);
    tags_.push_back(tag);
  }
  tags_.push_back(tags::kSpecificCharacterSet);
  std::sort(tags_.begin(), tags_.end());
  tags_.erase(std::unique(tags_.begin(), tags_.end()), tags_.end());
  const std::size_t from = level == Level::Patient ? 0 : 1;
  for (std::size_t i = from; i <= static_cast<std::size_t>(level); ++i) all_.push_back(kNames[i]);
}

// The values of one object of the entity. False: there is none that can be read.
bool ObjectAttributes::read(const std::vector<std::string>& values, std::string& charset,
                            std::vector<std::string>& told) {
  std::vector<CatalogKey> names(all_.begin() + static_cast<std::ptrdiff_t>(keys_.size()), all_.end());
  for (std::size_t i = 0; i < names.size(); ++i) names[i].value = values[keys_.size() + i];
  ObjectFile object;
  problem_ = holdings_.catalog().representative(names, object);
  if (!problem_.empty() || object.path.empty()) return false;
  LocalObject local;
  HeadScan scan;
  const MutedWarnings muted;
  Message kept;
  if (!holdings_.fetch(object, local).empty() || !scan_file(local.file().path, tags_, scan).empty())
    return false;
  kept.id = scan.make_message();
  if (kept.id < 0) return false;
  for (const std::size_t at : asked_) {
    told.push_back(utf8_text_of(kept.id, keys_[at].tag));
    // One answer has one character set.
    if (is_ascii(told.back())) continue;
    if (charset.empty() && is_utf8(told.back())) charset = "ISO_IR 192";
    if (charset != "ISO_IR 192" || !is_utf8(told.back())) told.back().clear();
  }
  return true;
}

bool ObjectAttributes::complete(std::vector<std::string>& values, std::string& charset) {
  if (++objects_ > kMostObjects) {
    problem_ = "needs values from more than " + std::to_string(kMostObjects) + " objects";
    return false;
  }
  std::vector<std::string> told;
  if (!read(values, charset, told)) told.assign(asked_.size(), "");
  if (!problem_.empty()) return false;
  values.resize(keys_.size());
  for (std::size_t i = 0; i < asked_.size(); ++i) {
    const CatalogKey& key = keys_[asked_[i]];
    if (!matches_key(key.vr, told[i], key.value)) return false;
    values[asked_[i]] = told[i];
  }
  return true;
}

}  // namespace vexal
