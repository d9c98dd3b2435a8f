// SPDX-License-Identifier: Apache-2.0
#pragma once

// Ascending arithmetic progressions: what the intersection of two extents is computed on.

#include <cstdint>

namespace Quorvel::Dravik::Adt::Detail {

/// first, first + step, ... up to `last`, which need not be one of them: step from 1 to 2^31.
struct Progression {
    std::int64_t first;
    std::int64_t last;
    std::int64_t step;

    /// Drops what lies outside [lowest, highest].
    constexpr void clip(std::int64_t lowest, std::int64_t highest) noexcept {
        if (first < lowest) {
            first += (lowest - first + step - 1) / step * step;
        }
        last = last > highest ? highest : last;
    }
};

/// The greatest common divisor of two numbers, and how often `left` counts in it: divisor = factor * left modulo right.
struct CommonDivisor {
    std::uint32_t divisor;
    std::int64_t factor;  ///< at most `right` in amount

    constexpr CommonDivisor(std::uint32_t left, std::uint32_t right) noexcept : divisor(left), factor(1) {
        std::int64_t rightFactor = 0;
        // Two steps of Euclid's algorithm a round, which saves moving the four numbers about.
        while (right != 0) {
            std::uint32_t quotient = divisor / right;
            divisor -= quotient * right;
            factor -= quotient * rightFactor;
            if (divisor == 0) {
                divisor = right;
                factor = rightFactor;
                return;
            }
            quotient = right / divisor;
            right -= quotient * divisor;
            rightFactor -= quotient * factor;
        }
    }
};

/// `dividend` modulo `divisor`, by a 32-bit division where that does: it is the faster one.
constexpr std::uint64_t narrowModulo(std::uint64_t dividend, std::uint32_t divisor) noexcept {
    return dividend >> 32 == 0 ? static_cast<std::uint32_t>(dividend) % divisor : dividend % divisor;
}

/// first + k * step for k from 0 to count - 1; the step is the least common multiple of two others, up to 2^62.
struct CommonIndices {
    std::int64_t first;
    std::int64_t step;
    std::int64_t count;
};

/// The numbers that both progressions run through; all of them lie within the same 2^32 numbers.
constexpr CommonIndices commonIndices(Progression const& a, Progression const& b) noexcept {
    // From the one that starts later, so that its first place on the other's grid is the first common index. Chosen
    // value by value, without a branch that data decides.
    bool const swapped = a.first < b.first;
    std::int64_t const start = swapped ? b.first : a.first;
    auto const distance = static_cast<std::uint32_t>(start - (swapped ? a.first : b.first));
    auto const step = static_cast<std::uint32_t>(swapped ? b.step : a.step);
    auto const otherStep = static_cast<std::uint32_t>(swapped ? a.step : b.step);
    CommonDivisor const common(step, otherStep);
    std::uint32_t const modulus = otherStep / common.divisor;
    std::int64_t const multiple = std::int64_t{step} * modulus;
    // start + i * step - distance' = 0 modulo otherStep, divided by the common divisor, has one i in [0, modulus).
    std::int64_t const factor = common.factor > 0 ? modulus - common.factor : -common.factor;
    std::uint64_t const i = narrowModulo(distance / common.divisor * static_cast<std::uint64_t>(factor), modulus);
    std::int64_t const first = start + static_cast<std::int64_t>(i) * step;
    std::int64_t const end = a.last < b.last ? a.last : b.last;
    if (distance % common.divisor != 0 || first > end) {
        return {0, 1, 0};
    }
    auto const length = static_cast<std::uint32_t>(end - first);
    std::int64_t const steps = multiple > length ? 0 : length / static_cast<std::uint32_t>(multiple);
    return {first, multiple, steps + 1};
}

}  // namespace Quorvel::Dravik::Adt::Detail
