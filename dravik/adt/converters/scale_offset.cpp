// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/converters/scale_offset.h"

#include <limits>
#include <stdexcept>

namespace Quorvel::Dravik::Adt {

constinit ScaleOffset const ScaleOffset::identity_;

ScaleOffset const& ScaleOffset::identity() noexcept {
    return identity_;
}

// Here and not in the header: in a program that is compiled to fuse products and sums the bits would be other ones.
double ScaleOffset::convertDouble(double x) const noexcept {
    return scale_ * x + offset_;
}

ScaleOffset ScaleOffset::getComposition(ScaleOffset const& first, ScaleOffset const& second) noexcept {
    return {first.scale_ * second.scale_, first.offset_ * second.scale_ + second.offset_};
}

ScaleOffset ScaleOffset::getRangeTransform(ClosedRange<1, double> const& source, ClosedRange<1, double> const& target) {
    double const targetWidth = target.max - target.min;
    if (areClose(targetWidth, 0)) {
        return {std::numeric_limits<double>::min(), target.min};
    }
    double const sourceWidth = source.max - source.min;
    if (areClose(sourceWidth, 0)) {
        throw std::invalid_argument(
            "[ScaleOffset::getRangeTransform] Source value range is empty (and target range is not)");
    }
    double const scale = targetWidth / sourceWidth;
    return {scale, target.min - scale * source.min};
}

}  // namespace Quorvel::Dravik::Adt
