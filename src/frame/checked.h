// Sums of sizes that came from outside.
#pragma once

#include <concepts>

namespace vx {

// out = a + b; false if the sum does not fit, out then unspecified.
template <std::unsigned_integral T>
[[nodiscard]] constexpr bool checked_add(T a, T b, T& out) {
  return !__builtin_add_overflow(a, b, &out);
}

template <std::unsigned_integral T>
[[nodiscard]] constexpr bool checked_mul(T a, T b, T& out) {
  return !__builtin_mul_overflow(a, b, &out);
}

}  // namespace vx
