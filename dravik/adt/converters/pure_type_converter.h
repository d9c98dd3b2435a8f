// SPDX-License-Identifier: Apache-2.0
#pragma once

// PureTypeConverter: widening of samples. Threads: never changes, share it freely.

#include "dravik/adt/converters/detail/number_converter.h"

namespace Quorvel::Dravik::Adt::Converters {

/// Plain conversion of S to a D that holds the range of S. Exact, but for integers beyond 2^24 in float, which go to
/// the nearest one, to the even one on a tie.
template <class S, class D>
class PureTypeConverter final : public Detail::NumberConverter<S, D> {
    static_assert(Detail::widens(Detail::sampleTypeOf<S>(), Detail::sampleTypeOf<D>()), "There is no such widening.");
};

}  // namespace Quorvel::Dravik::Adt::Converters
