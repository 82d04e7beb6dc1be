// The calls that go from the configuration up. A weak one is null in a build that lacks its layer.
#pragma once

#include <cstdint>

namespace vx {

// net: the network capture learns of its settings, one of which is about to change or has just changed.
[[gnu::weak]] void capture_settings_changed(int32_t file_size, const char* file, int32_t files, bool rewrite);

}  // namespace vx
