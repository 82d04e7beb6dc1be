// Items of presentation states that are about some images and frames.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vexal {

// Frames of an image, as references name them.
struct FrameName {
  std::string instance;
  uint32_t frame = 0;  // from 0
};

// The first item of a sequence that is about the frame, as all are that name no images; -1 if there is none.
int32_t item_about(int32_t holder, uint32_t sequence, const FrameName& name);
bool is_about(int32_t item, const FrameName& name);

// The frames of an image of so many, from 0 and ascending, that the series and images below an object name.
// True in `named` if they name the image at all.
std::vector<uint32_t> frames_named(int32_t holder, const std::string& instance, uint32_t count, bool& named);

}  // namespace vexal
