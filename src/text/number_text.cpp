#include "text/number_text.h"

#include "frame/text.h"
#include "model/vr.h"

namespace vx {

std::string_view whole_text(const TagObj& attribute, int32_t number, NumberText& text) {
  int64_t value = 0;
  switch (attribute.VR) {
    case VX_VR_SS:
      value = numeric_at<int16_t>(attribute, number);
      break;
    case VX_VR_US:
      value = numeric_at<uint16_t>(attribute, number);
      break;
    case VX_VR_SL:
      value = numeric_at<int32_t>(attribute, number);
      break;
    default:
      value = numeric_at<uint32_t>(attribute, number);
      break;
  }
  const char* end = std::to_chars(text, text + kNumberText, value).ptr;
  return {text, static_cast<std::size_t>(end - text)};
}

std::string_view tag_text(uint32_t tag, NumberText& text) {
  for (unsigned i = 0; i < 8; ++i) text[i] = kHexDigits[(tag >> (28 - 4 * i)) & 15U];
  return {text, 8};
}

}  // namespace vx
