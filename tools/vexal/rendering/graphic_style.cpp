#include "graphic_style.h"

#include <algorithm>

#include "base/attributes.h"
#include "base/object_values.h"
#include "base/tags.h"
#include "base/values.h"
#include "drawing/lab.h"
#include "geometry.h"

namespace vexal {
namespace {

constexpr double kFarthest = 1000;  // pixels of a shadow's offset
constexpr std::size_t kPatternBytes = 128;

double share_of(int32_t item, uint32_t tag) {
  return std::clamp(real_of(item, tag).value_or(1), 0.0, 1.0);
}

ShadowStyle shadow_of(int32_t style) {
  ShadowStyle shadow;
  const std::string form = text_of(style, tags::kShadowStyle);
  if (form == "NORMAL") shadow.form = ShadowStyle::Form::kNormal;
  if (form == "OUTLINED") shadow.form = ShadowStyle::Form::kOutlined;
  const auto offset = [&](uint32_t tag) {
    return std::clamp(real_of(style, tag).value_or(0), -kFarthest, kFarthest);
  };
  shadow.x = offset(tags::kShadowOffsetX);
  shadow.y = offset(tags::kShadowOffsetY);
  shadow.ink = {lab_of(style, tags::kShadowColorCIELabValue, {0, 0, 0}),
                share_of(style, tags::kShadowOpacity)};
  return shadow;
}

std::optional<Ink> gaps_of(int32_t style) {
  if (reals_of(style, tags::kPatternOffColorCIELabValue).size() != 3) return std::nullopt;
  return Ink{lab_of(style, tags::kPatternOffColorCIELabValue, {}), share_of(style, tags::kPatternOffOpacity)};
}

}  // namespace

Shade lab_of(int32_t item, uint32_t tag, const Shade& otherwise) {
  const std::vector<double> lab = reals_of(item, tag);
  return lab.size() == 3 ? from_lab(lab) : otherwise;
}

LineStyle line_style(int32_t graphic, const Shade& colour) {
  const int32_t style = item_of(graphic, tags::kLineStyleSequence);
  LineStyle line;
  line.ink = {lab_of(style, tags::kPatternOnColorCIELabValue, colour),
              share_of(style, tags::kPatternOnOpacity)};
  line.thickness = std::clamp(real_of(style, tags::kLineThickness).value_or(1), 1.0, 64.0);
  line.shadow = shadow_of(style);
  if (text_of(style, tags::kLineDashingStyle) != "DASHED") return line;
  constexpr uint32_t kUsual = 0xFF00FF00;
  line.pattern = number_of(style, tags::kLinePattern, kUsual);
  line.gaps = gaps_of(style);
  return line;
}

FillStyle fill_style(int32_t graphic, const LineStyle& line) {
  const int32_t style = item_of(graphic, tags::kFillStyleSequence);
  FillStyle fill;
  fill.ink = {lab_of(style, tags::kPatternOnColorCIELabValue, line.ink.colour),
              style >= 0 ? share_of(style, tags::kPatternOnOpacity) : line.ink.opacity};
  if (text_of(style, tags::kFillMode).starts_with("STIPP")) {  // the standard has it with two spellings
    fill.pattern = bytes_of(style, tags::kFillPattern);
    fill.gaps = gaps_of(style);
    if (fill.pattern.size() < kPatternBytes) fill.pattern.clear();
  }
  return fill;
}

TextStyle text_style(int32_t text, const Shade& colour) {
  const int32_t style = item_of(text, tags::kTextStyleSequence);
  TextStyle result;
  result.ink = {lab_of(style, tags::kTextColorCIELabValue, colour), 1};
  result.shadow = shadow_of(style);
  result.across = text_of(style, tags::kHorizontalAlignment);
  result.down = text_of(style, tags::kVerticalAlignment);
  result.underlined = text_of(style, tags::kUnderlined) == "Y";
  result.bold = text_of(style, tags::kBold) == "Y";
  result.italic = text_of(style, tags::kItalic) == "Y";
  return result;
}

}  // namespace vexal
