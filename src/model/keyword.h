// Keywords of attributes, made from their names (PS3.6 section 6).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vx {

inline constexpr std::size_t kMaxKeywordName = 127;

class Keyword {
 public:
  void add(std::string_view text) {
    for (const char letter : text) text_[length_++] = letter;
  }
  std::string_view view() const { return {text_, length_}; }

 private:
  char text_[kMaxKeywordName + 8];
  std::size_t length_ = 0;
};

// The keyword of a tag and a name of at most kMaxKeywordName bytes.
void make_keyword(uint32_t tag, std::string_view name, Keyword& keyword);

}  // namespace vx
