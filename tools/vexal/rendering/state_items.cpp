#include "state_items.h"

#include <algorithm>
#include <set>

#include "base/object_values.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/values.h"

namespace vexal {

bool is_about(int32_t item, const FrameName& name) {
  const std::vector<int32_t> images = sequence_items(item, tags::kReferencedImageSequence);
  return images.empty() || std::any_of(images.begin(), images.end(), [&](int32_t image) {
           if (text_of(image, tags::kReferencedSOPInstanceUID) != name.instance) return false;
           const std::vector<int32_t> frames = integers_of(image, tags::kReferencedFrameNumber);
           return frames.empty() || std::find(frames.begin(), frames.end(),
                                              static_cast<int32_t>(name.frame) + 1) != frames.end();
         });
}

int32_t item_about(int32_t holder, uint32_t sequence, const FrameName& name) {
  for (const int32_t item : sequence_items(holder, sequence)) {
    if (is_about(item, name)) return item;
  }
  return -1;
}

std::vector<uint32_t> frames_named(int32_t holder, const std::string& instance, uint32_t count, bool& named) {
  named = false;
  std::set<uint32_t> frames;
  for (const int32_t series : sequence_items(holder, tags::kReferencedSeriesSequence)) {
    for (const int32_t image : sequence_items(series, tags::kReferencedImageSequence)) {
      if (text_of(image, tags::kReferencedSOPInstanceUID) != instance) continue;
      named = true;
      const std::vector<int32_t> numbers = integers_of(image, tags::kReferencedFrameNumber);
      for (const int32_t number : numbers) {
        if (number >= 1 && static_cast<uint32_t>(number) <= count)
          frames.insert(static_cast<uint32_t>(number) - 1);
      }
      for (uint32_t i = 0; numbers.empty() && i < count; ++i) frames.insert(frames.end(), i);
    }
  }
  return {frames.begin(), frames.end()};
}

}  // namespace vexal
