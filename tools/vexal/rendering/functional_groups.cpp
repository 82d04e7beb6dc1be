#include "functional_groups.h"

#include "base/tag_path.h"
#include "base/tags.h"

namespace vexal {

FunctionalGroups::FunctionalGroups(int32_t object)
    : own_(sequence_items(object, tags::kPerFrameFunctionalGroupsSequence)),
      shared_(sequence_items(object, tags::kSharedFunctionalGroupsSequence)) {}

std::vector<int32_t> FunctionalGroups::items(uint32_t frame, uint32_t group) const {
  std::vector<int32_t> found;
  if (frame < own_.size()) found = sequence_items(own_[frame], group);
  if (found.empty() && !shared_.empty()) found = sequence_items(shared_[0], group);
  return found;
}

int32_t FunctionalGroups::item(uint32_t frame, uint32_t group) const {
  const std::vector<int32_t> found = items(frame, group);
  return found.empty() ? -1 : found[0];
}

}  // namespace vexal
