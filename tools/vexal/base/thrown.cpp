#include "thrown.h"

#include <new>

#include "args.h"

namespace vexal {

std::string words_of(const std::exception_ptr& thrown) try {
  std::rethrow_exception(thrown);
} catch (const std::bad_alloc&) {
  return kNoMemory;
} catch (const std::exception& error) {
  return error.what();
}

void note_thrown() noexcept {
  complain("%s", words_of(std::current_exception()).c_str());
}

}  // namespace vexal
