// SPDX-License-Identifier: Apache-2.0
#pragma once

// The converters between two types of numbers: widening, narrowing, scaling, and what files store. Threads: they never
// change, share them freely.

#include "dravik/adt/converters/detail/number_converter.h"

namespace Quorvel::Dravik::Adt::Converters {

/// Plain conversion of S to a D that holds the range of S. Exact, but for integers beyond 2^24 in float, which go to
/// the nearest one, to the even one on a tie.
template <class S, class D>
class PureTypeConverter final : public Detail::NumberConverter<S, D> {
    static_assert(Detail::widens(Detail::sampleTypeOf<S>(), Detail::sampleTypeOf<D>()), "There is no such widening.");
};

/// Rounds a float to the nearest 32-bit integer, ties to even, then saturates at the limits of D; integers are only
/// saturated.
///
/// A float without such an integer (NaN, infinities, magnitudes from 2^31 on) counts as -2^31, also above: it becomes 0
/// where D is unsigned and the lowest D elsewhere.
template <class S, class D>
class BasicDownScaleConverter final : public Detail::NumberConverter<S, D> {
    static_assert(Detail::narrows(Detail::sampleTypeOf<S>(), Detail::sampleTypeOf<D>()), "There is no such narrowing.");
};

/// scale * x + offset as ScaleOffset::convertFloat computes it, then rounded and saturated as in
/// BasicDownScaleConverter.
template <class S, class D>
class DownScaleConverter final : public Detail::NumberConverter<S, D> {
    static_assert(
        Detail::scalesToInteger(Detail::sampleTypeOf<S>(), Detail::sampleTypeOf<D>()), "There is no such scaling.");

  public:
    explicit DownScaleConverter(ScaleOffset const& transform) noexcept : Detail::NumberConverter<S, D>(transform) {}
};

/// scale * x + offset as ScaleOffset::convertFloat computes it. NaN and infinities pass through.
template <class S>
class FloatConverter final : public Detail::NumberConverter<S, float> {
  public:
    explicit FloatConverter(ScaleOffset const& transform) noexcept : Detail::NumberConverter<S, float>(transform) {}
};

/// Converts S to the nearest value of D, to the even one on a tie. To an integer, what lies beyond its range gives the
/// nearer end of it, and a NaN 0; to float, infinity. One of the two is double, or float with unsigned int or
/// std::int64_t.
template <class S, class D>
class StorageTypeConverter final : public Detail::NumberConverter<S, D> {
    static_assert(
        Detail::convertsStorage(Detail::sampleTypeOf<S>(), Detail::sampleTypeOf<D>()), "There is no such conversion.");
};

}  // namespace Quorvel::Dravik::Adt::Converters
