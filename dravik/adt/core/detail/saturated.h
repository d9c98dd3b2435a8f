// SPDX-License-Identifier: Apache-2.0
#pragma once

// What becomes of a 64-bit coordinate that has to go back into a narrower one.

#include <concepts>
#include <cstdint>
#include <limits>

namespace Quorvel::Dravik::Adt::Detail {

/// `value`, cut at the ends of T.
template <std::signed_integral T>
constexpr T saturated(std::int64_t value) noexcept {
    constexpr std::int64_t kLowest = std::numeric_limits<T>::min();
    constexpr std::int64_t kHighest = std::numeric_limits<T>::max();
    return static_cast<T>(value < kLowest ? kLowest : value > kHighest ? kHighest : value);
}

/// The sum, cut at the ends of T.
template <std::signed_integral T>
constexpr T saturatedSum(T left, T right) noexcept {
    T sum = 0;
    if (__builtin_add_overflow(left, right, &sum)) {
        return right < 0 ? std::numeric_limits<T>::min() : std::numeric_limits<T>::max();
    }
    return sum;
}

}  // namespace Quorvel::Dravik::Adt::Detail
