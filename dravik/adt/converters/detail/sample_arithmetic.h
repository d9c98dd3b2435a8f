// SPDX-License-Identifier: Apache-2.0
#pragma once

// What happens to one sample in a conversion. This is the reference: code for vector instructions gives the same bits.

#include "dravik/adt/converters/detail/sample_type.h"

#include <algorithm>
#include <concepts>
#include <limits>
#include <type_traits>

namespace Quorvel::Dravik::Adt::Converters::Detail {

/// Scale and offset as scaled conversions apply them, narrowed to float.
struct Linear {
    float scale;
    float offset;
};

/// The integer nearest to `x`, the even one on a tie. What has none in 32 bits (NaN, infinities, magnitudes from 2^31
/// on) gives -2^31, whatever its sign.
constexpr int nearestInt(float x) noexcept {
    if (!(x >= -0x1p31f && x < 0x1p31f)) {
        return std::numeric_limits<int>::min();
    }
    // From 2^23 on every float is whole. Below, the sum with 2^23 has no bits left for a fraction: the addition rounds,
    // to nearest even like every float operation.
    constexpr float kWhole = 0x1p23f;
    float const magnitude = x < 0 ? -x : x;
    if (magnitude >= kWhole) {
        return static_cast<int>(x);
    }
    int const rounded = static_cast<int>((magnitude + kWhole) - kWhole);
    return x < 0 ? -rounded : rounded;
}

/// `value` clamped to the range of D.
template <std::integral D>
constexpr D saturated(int value) noexcept {
    // `char` holds what signed char holds, on every platform.
    using Limits = std::numeric_limits<std::conditional_t<std::same_as<D, char>, signed char, D>>;
    return static_cast<D>(std::clamp<int>(value, Limits::min(), Limits::max()));
}

/// The value of a sample, with `char` read as signed.
template <class S>
constexpr auto valueOf(S sample) noexcept {
    if constexpr (std::same_as<S, char>) {
        return static_cast<signed char>(sample);
    } else {
        return sample;
    }
}

/// The integer of type D nearest to `x`, the even one on a tie, the nearer limit of D beyond its range; 0 for NaN.
template <std::integral D>
constexpr D nearestWithin(double x) noexcept {
    using Limits = std::numeric_limits<std::conditional_t<std::same_as<D, char>, signed char, D>>;
    // Both are powers of two or 0, so doubles have them exactly.
    constexpr double kLowest = static_cast<double>(Limits::min());
    constexpr auto kHalf = Limits::max() / 2 + 1;
    constexpr double kBeyond = 2.0 * static_cast<double>(kHalf);
    // From 2^52 on every double is whole. Below, the sum with 2^52 has no bits left for a fraction.
    constexpr double kWhole = 0x1p52;
    double const magnitude = x < 0 ? -x : x;
    double const whole = magnitude < kWhole ? (magnitude + kWhole) - kWhole : magnitude;
    double const rounded = x < 0 ? -whole : whole;
    if (rounded >= kBeyond) {
        return static_cast<D>(Limits::max());
    }
    return rounded >= kLowest ? static_cast<D>(rounded) : x < 0 ? static_cast<D>(Limits::min()) : D{0};
}

/// The unscaled conversion: widened, or rounded and saturated.
template <class D, class S>
constexpr D converted(S sample) noexcept {
    if constexpr (std::floating_point<D>) {
        return static_cast<D>(valueOf(sample));
    } else if constexpr (isStorageType(sampleTypeOf<S>()) || isStorageType(sampleTypeOf<D>())) {
        return nearestWithin<D>(static_cast<double>(sample));
    } else if constexpr (std::same_as<S, float>) {
        return saturated<D>(nearestInt(sample));
    } else {
        return saturated<D>(valueOf(sample));
    }
}

/// The same bytes in the opposite order.
template <std::unsigned_integral Word>
constexpr Word swapped(Word word) noexcept {
    if constexpr (sizeof(Word) == 2) {
        return __builtin_bswap16(word);
    } else if constexpr (sizeof(Word) == 4) {
        return __builtin_bswap32(word);
    } else {
        return __builtin_bswap64(word);
    }
}

/// The scaled conversion: product and sum in double, rounded to float, then to an integer where D is one.
template <class D, class S>
constexpr D scaled(S sample, Linear linear) noexcept {
    double const product = double{linear.scale} * static_cast<double>(valueOf(sample));
    return converted<D>(static_cast<float>(product + double{linear.offset}));
}

}  // namespace Quorvel::Dravik::Adt::Converters::Detail
