// SPDX-License-Identifier: Apache-2.0
#pragma once

// BasicDownScaleConverter: narrowing of samples without scaling. Threads: never changes, share it freely.

#include "dravik/adt/converters/detail/number_converter.h"

namespace Quorvel::Dravik::Adt::Converters {

/// Rounds a float to the nearest 32-bit integer, ties to even, then saturates at the limits of D; integers are only
/// saturated.
///
/// A float without such an integer (NaN, infinities, magnitudes from 2^31 on) counts as -2^31, also above: it becomes 0
/// where D is unsigned and the lowest D elsewhere.
template <class S, class D>
class BasicDownScaleConverter final : public Detail::NumberConverter<S, D> {
    static_assert(Detail::narrows(Detail::sampleTypeOf<S>(), Detail::sampleTypeOf<D>()), "There is no such narrowing.");
};

}  // namespace Quorvel::Dravik::Adt::Converters
