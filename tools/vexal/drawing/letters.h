// Letters made of straight strokes.
#pragma once

#include <string_view>

namespace vexal {

inline constexpr double kLetterWidth = 6;  // with the gap to the next, in units
inline constexpr double kLineHeight = 10;  // from line to line

// Points that a pen goes through, two digits each: from the left (0 to 4) and from the top (0 to 6, 8 below
// the line). A blank lifts the pen.
std::string_view letter_strokes(char letter);

}  // namespace vexal
