// Values of numeric VRs as text.
#pragma once

#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>

#include "model/values.h"

namespace vx {

inline constexpr std::size_t kNumberText = 40;
using NumberText = char[kNumberText];

template <typename T>
T numeric_at(const TagObj& attribute, int32_t number) {
  T value{};
  const void* data = numeric_value(attribute, number);
  if (data != nullptr) std::memcpy(&value, data, sizeof value);
  return value;
}

// The fewest digits of the usual precision that read back as the same number.
template <typename T>
std::string_view real_text(T value, int usual, int exact, NumberText& text) {
  auto end = std::to_chars(text, text + kNumberText, value, std::chars_format::general, usual).ptr;
  T again{};
  std::from_chars(text, end, again);
  if (std::isfinite(value) && again != value)
    end = std::to_chars(text, text + kNumberText, value, std::chars_format::general, exact).ptr;
  return {text, static_cast<std::size_t>(end - text)};
}

// Value `number` (from 1) of SS, US, SL, UL or AT in decimal digits.
std::string_view whole_text(const TagObj& attribute, int32_t number, NumberText& text);
// Of AT as eight hexadecimal digits; of any tag.
std::string_view tag_text(uint32_t tag, NumberText& text);

}  // namespace vx
