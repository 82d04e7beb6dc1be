#include "text/text_blocks.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "model/held.h"

namespace vx {

VX_STATUS TextInput::next(int32_t first, int32_t& last, std::string_view& block) {
  uint32_t size = 0;
  void* data = nullptr;
  const Held held(object_, Hold::Table);
  VX_STATUS status = function_(object_.ID, user_, &size, &data, first, &last);
  if (status == kOk && data == nullptr && size != 0) status = VX_NULL_POINTER_PARM;
  if (status == kOk) {
    block = {static_cast<const char*>(data), size};
  } else {
    failed_first_ = first != 0;
  }
  return status;
}

void GatheredText::add(std::string_view block) {
  if (block.size() > capacity_ - size_) {
    const std::size_t wanted = std::max(size_ + block.size(), capacity_ + capacity_ / 2);
    auto* grown = static_cast<char*>(std::realloc(data_.get(), wanted));
    if (grown == nullptr) throw std::bad_alloc();
    static_cast<void>(data_.release());
    data_.reset(grown);
    capacity_ = wanted;
  }
  std::memcpy(data_.get() + size_, block.data(), block.size());
  size_ += block.size();
}

}  // namespace vx
