// SPDX-License-Identifier: Apache-2.0
#pragma once

// FloatConverter: scaling of samples to float. Threads: never changes, share it freely.

#include "dravik/adt/converters/detail/number_converter.h"

namespace Quorvel::Dravik::Adt::Converters {

/// scale * x + offset as ScaleOffset::convertFloat computes it. NaN and infinities pass through.
template <class S>
class FloatConverter final : public Detail::NumberConverter<S, float> {
  public:
    explicit FloatConverter(ScaleOffset const& transform) noexcept : Detail::NumberConverter<S, float>(transform) {}
};

}  // namespace Quorvel::Dravik::Adt::Converters
