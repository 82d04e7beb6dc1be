// How graphics and texts of presentation states are drawn (PS3.3 section C.10.5).
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace vexal {

using Shade = std::array<uint8_t, 3>;

inline bool is_coloured(const Shade& shade) {
  return shade[0] != shade[1] || shade[1] != shade[2];
}
// By an attribute of PCS-CIELab values.
Shade lab_of(int32_t item, uint32_t tag, const Shade& otherwise);

struct Ink {
  Shade colour{};
  double opacity = 1;
};

struct ShadowStyle {
  enum class Form { kNone, kNormal, kOutlined } form = Form::kNone;
  double x = 0;  // how far it falls, in pixels of a display
  double y = 0;
  Ink ink;
};

struct LineStyle {
  Ink ink;
  std::optional<Ink> gaps;  // between dashes
  uint32_t pattern = UINT32_MAX;
  double thickness = 1;  // in pixels of a display
  ShadowStyle shadow;
};

struct FillStyle {
  Ink ink;
  std::optional<Ink> gaps;
  std::string pattern;  // 32 rows of 32 bits; empty: all of it
};

struct TextStyle {
  Ink ink;
  ShadowStyle shadow;
  std::string across;  // LEFT, CENTER or RIGHT, if it says so
  std::string down;    // TOP, CENTER or BOTTOM, likewise
  bool underlined = false;
  bool bold = false;
  bool italic = false;
};

// Of a graphic, a filled one, or a text; what it leaves open is solid and has the colour of its layer.
LineStyle line_style(int32_t graphic, const Shade& colour);
FillStyle fill_style(int32_t graphic, const LineStyle& line);
TextStyle text_style(int32_t text, const Shade& colour);

}  // namespace vexal
