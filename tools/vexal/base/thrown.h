// Exceptions: what they say, and where none may pass.
#pragma once

#include <exception>
#include <string>
#include <type_traits>

#include "vexalkit.h"

namespace vexal {

inline constexpr char kNoMemory[] = "there is not enough memory";
// What an exception says, for people.
std::string words_of(const std::exception_ptr& thrown);
// A line on standard error of the exception that is being handled.
void note_thrown() noexcept;

template <auto Function>
struct Guarded;
template <typename Result, typename... Values, Result (*Function)(Values...)>
struct Guarded<Function> {
  static Result call(Values... values) noexcept {
    try {
      return Function(values...);
    } catch (...) {
      note_thrown();
    }
    if constexpr (!std::is_void_v<Result>) return static_cast<Result>(VX_CALLBACK_CANNOT_COMPLY);
  }
};
// A function as the library may call it. An exception that met the library would end the process there, as
// the two unwind each for itself; so it stops here, and the call has failed.
template <auto Function>
inline constexpr auto guarded = &Guarded<Function>::call;

}  // namespace vexal
