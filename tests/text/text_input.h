// A text that is given to a reader in blocks of one size, or at once.
#pragma once

#include <algorithm>
#include <string>

#include "vexalkit.h"

namespace text_input {

struct Text {
  std::string bytes;
  std::size_t block = 0;
  std::size_t at = 0;
};
inline VX_STATUS give(int32_t, void* user, uint32_t* size, void** data, int32_t, int32_t* last) {
  auto& text = *static_cast<Text*>(user);
  const std::size_t part =
      std::min(text.block == 0 ? text.bytes.size() : text.block, text.bytes.size() - text.at);
  *data = text.bytes.data() + text.at;
  *size = static_cast<uint32_t>(part);
  text.at += part;
  *last = text.at == text.bytes.size() ? 1 : 0;
  return VX_NORMAL_COMPLETION;
}

}  // namespace text_input
