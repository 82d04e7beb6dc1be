// Functions of the caller may answer "nothing yet", but not for ever.
#pragma once

#include <cstddef>

#include "frame/limits.h"

namespace vx {

class Patience {
 public:
  // True when an answer of `size` bytes is one empty answer in a row too many.
  bool ends(std::size_t size) {
    empty_ = size != 0 ? 0 : empty_ + 1;
    return empty_ > kMaxEmptyAnswers;
  }

 private:
  std::size_t empty_ = 0;
};

}  // namespace vx
