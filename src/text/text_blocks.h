// The first step of every reader of a text form: the blocks of the application.
#pragma once

#include <cstdlib>
#include <memory>
#include <string_view>

#include "frame/patience.h"
#include "model/object.h"

namespace vx {

class TextInput {
 public:
  TextInput(const MsgObj& object, void* user, VX_TEXT_INPUT function)
      : object_(object), user_(user), function_(function) {}

  // Calls `take` with each block until it says false, which is VX_SYSTEM_ERROR. The status of a callback that
  // fails.
  template <typename Take>
  VX_STATUS each(Take take) {
    int32_t last = 0;
    Patience patience;
    for (int32_t first = 1; last == 0; first = 0) {
      std::string_view block;
      if (const VX_STATUS status = next(first, last, block); status != kOk) return status;
      if (last == 0 && patience.ends(block.size())) return VX_CALLBACK_CANNOT_COMPLY;
      if (!block.empty() && !take(block)) return VX_SYSTEM_ERROR;
    }
    return kOk;
  }
  bool failed_first() const { return failed_first_; }

 private:
  VX_STATUS next(int32_t first, int32_t& last, std::string_view& block);

  const MsgObj& object_;
  void* user_;
  VX_TEXT_INPUT function_;
  bool failed_first_ = false;
};

// Blocks put together. Growing moves pages and not bytes, where the system can.
class GatheredText {
 public:
  void add(std::string_view block);
  std::string_view text() const { return {data_.get(), size_}; }

 private:
  struct Free {
    void operator()(char* data) const { std::free(data); }
  };
  std::unique_ptr<char, Free> data_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace vx
