// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/regions/access_traits.h"

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/bulkview/regions/region_access.h"

#include <algorithm>
#include <limits>

namespace Quorvel::Dravik::Adt::BulkView {

namespace {

std::int64_t floorDivided(std::int64_t value, std::int64_t divisor) {
    std::int64_t const quotient = value / divisor;
    return quotient * divisor > value ? quotient - 1 : quotient;
}

// Samples along one axis of the natural blocks that hold an index of `axis`.
std::int64_t samplesTouched(ExtentImpl<int> const& axis, std::int64_t block, std::int64_t blockOrigin) {
    std::int64_t const step = std::abs(std::int64_t{axis.step});
    if (block == 0 || step >= block) {
        // A step of a block or more never meets one twice.
        return axis.count * std::max<std::int64_t>(block, 1);
    }
    std::int64_t const last = axis.origin + (std::int64_t{axis.count} - 1) * axis.step;
    std::int64_t const low = std::min<std::int64_t>(axis.origin, last);
    std::int64_t const high = std::max<std::int64_t>(axis.origin, last);
    return (floorDivided(high - blockOrigin, block) - floorDivided(low - blockOrigin, block) + 1) * block;
}

}  // namespace

IRegionAccess::~IRegionAccess() = default;

AccessTraits traitsOf(IBufferAccessor& accessor) {
    auto const* const regions = dynamic_cast<IRegionAccess const*>(&accessor);
    return regions == nullptr ? AccessTraits() : regions->traits();
}

std::int64_t bytesTouched(AccessTraits const& traits, ExtentK<4, int> const& region) {
    if (region.isEmpty()) {
        return 0;
    }
    if (traits.bitSize <= 0) {
        return -1;
    }
    std::int64_t bits = traits.bitSize;
    for (int axis = 0; axis < 4; ++axis) {
        std::int64_t const samples =
            samplesTouched(region.data()[axis], traits.naturalBlock.data()[axis], traits.blockOrigin.data()[axis]);
        if (__builtin_mul_overflow(bits, samples, &bits)) {
            return std::numeric_limits<std::int64_t>::max();
        }
    }
    return bits / 8 + (bits % 8 != 0 ? 1 : 0);
}

}  // namespace Quorvel::Dravik::Adt::BulkView
