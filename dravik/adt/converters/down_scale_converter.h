// SPDX-License-Identifier: Apache-2.0
#pragma once

// DownScaleConverter: scaling of samples to an integer type. Threads: never changes, share it freely.

#include "dravik/adt/converters/detail/number_converter.h"

namespace Quorvel::Dravik::Adt::Converters {

/// scale * x + offset as ScaleOffset::convertFloat computes it, then rounded and saturated as in
/// BasicDownScaleConverter.
template <class S, class D>
class DownScaleConverter final : public Detail::NumberConverter<S, D> {
    static_assert(
        Detail::scalesToInteger(Detail::sampleTypeOf<S>(), Detail::sampleTypeOf<D>()), "There is no such scaling.");

  public:
    explicit DownScaleConverter(ScaleOffset const& transform) noexcept : Detail::NumberConverter<S, D>(transform) {}
};

}  // namespace Quorvel::Dravik::Adt::Converters
