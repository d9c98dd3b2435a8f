// SPDX-License-Identifier: Apache-2.0
#pragma once

// Ascending arithmetic progressions in 64 bits: what the intersection of two extents is computed on.

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <utility>

namespace Quorvel::Dravik::Adt::Detail {

/// first, first + step, ... last: step above 0, last on the grid. Empty when last < first.
struct Progression {
    std::int64_t first = 0;
    std::int64_t step = 1;
    std::int64_t last = -1;

    constexpr bool isEmpty() const noexcept { return last < first; }
    constexpr std::int64_t count() const noexcept { return isEmpty() ? 0 : (last - first) / step + 1; }

    /// Drops what lies outside [lowest, highest].
    constexpr void clip(std::int64_t lowest, std::int64_t highest) noexcept {
        if (first < lowest) {
            first += (lowest - first + step - 1) / step * step;
        }
        if (last > highest && first <= highest) {
            last = first + (highest - first) / step * step;
        } else if (last > highest) {
            last = first - 1;
        }
    }
};

/// The number x in [0, modulus) with value * x = 1 modulo `modulus`; both are coprime and below 2^31 in amount.
constexpr std::int64_t modularInverse(std::int64_t value, std::int64_t modulus) noexcept {
    std::int64_t remainder = modulus;
    std::int64_t next = value % modulus;
    std::int64_t coefficient = 0;
    std::int64_t nextCoefficient = 1;
    while (next != 0) {
        std::int64_t const quotient = remainder / next;
        remainder = std::exchange(next, remainder - quotient * next);
        coefficient = std::exchange(nextCoefficient, coefficient - quotient * nextCoefficient);
    }
    return coefficient < 0 ? coefficient + modulus : coefficient;
}

/// The numbers that both non-empty progressions run through. Steps are at most 2^31 and the ends within 2^62, so that
/// no product below leaves 64 bits.
constexpr Progression commonIndices(Progression const& a, Progression const& b) noexcept {
    std::int64_t const divisor = std::gcd(a.step, b.step);
    std::int64_t const multiple = a.step / divisor * b.step;
    std::int64_t const distance = b.first - a.first;
    if (distance % divisor != 0) {
        return {};
    }
    // a.first + i * a.step = b.first modulo b.step has one solution i in [0, b.step / divisor).
    std::int64_t const modulus = b.step / divisor;
    std::int64_t wanted = distance / divisor % modulus;
    wanted = wanted < 0 ? wanted + modulus : wanted;
    std::int64_t const i = modulus == 1 ? 0 : wanted * modularInverse(a.step / divisor, modulus) % modulus;
    std::int64_t first = a.first + i * a.step;
    std::int64_t const start = std::max(a.first, b.first);
    if (first < start) {
        first += (start - first + multiple - 1) / multiple * multiple;
    }
    std::int64_t const end = std::min(a.last, b.last);
    return end < first ? Progression{} : Progression{first, multiple, first + (end - first) / multiple * multiple};
}

}  // namespace Quorvel::Dravik::Adt::Detail
