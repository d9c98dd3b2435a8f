// SPDX-License-Identifier: Apache-2.0
#pragma once

// The grid of an index set: how a place is divided into parts and these into cells. Only arithmetic; the nodes come on
// first touch, with the cuts that dividing at once would have made. Threads: as `int`.

#include "dravik/adt/core/detail/index_set_box.h"

namespace Quorvel::Dravik::Adt::Detail {

/// A rounded place and the lengths of its cells.
///
/// The grid grows with whatever is added beyond its place: the outermost parts reach out to the ends of int.
template <int N>
class IndexGrid {
  public:
    using Box = IndexBox<N>;
    using Point = FixedVector<N, int>;

    static constexpr int kMostParts = 4;

    /// The grid over `range` rounded outwards to multiples of `granularity`, clipped to int.
    /// @pre no side of the range and no granularity is below 1
    IndexGrid(Point const& granularity, Box const& range) noexcept : granularity_(granularity), place_(range) {
        for (int axis = 0; axis < N; ++axis) {
            std::int64_t const step = granularity.data()[axis];
            place_.min.data()[axis] = saturated<int>(floorDivided(range.min.data()[axis], step) * step);
            place_.max.data()[axis] = saturated<int>(-floorDivided(-std::int64_t{range.max.data()[axis]}, step) * step);
        }
    }

    /// What is divided, and in whose terms parts are named.
    Box const& place() const noexcept { return place_; }

    /// Whether the part is no longer than the granularity on any axis.
    bool isCell(Box const& part) const noexcept { return longestDivisible(part, kNoAxis) == kNoAxis; }

    /// Cuts a part that is no cell into two to four, in ascending order along the first cut, then along the second.
    int divide(Box const& part, Box (&parts)[kMostParts]) const noexcept {
        int const first = longestDivisible(part, kNoAxis);
        int second = longestDivisible(part, first);
        if (second == kNoAxis ? length(part, first) > 2 * granularity(first)
                              : 2 * length(part, second) <= length(part, first)) {
            second = first;
        }
        Box halves[2] = {part, part};
        int cut = cutPoint(part, first);
        if (cut == part.max.data()[first]) {
            // Only where the lower end was clipped to int: no cut there would leave the part as long as it is.
            cut = static_cast<int>(cut - granularity(first));
        }
        halves[0].max.data()[first] = halves[1].min.data()[first] = cut;
        int count = 0;
        for (Box const& half : halves) {
            parts[count++] = half;
            if (second == kNoAxis) {
                continue;
            }
            int const secondCut = cutPoint(half, second);
            if (secondCut < half.max.data()[second]) {
                parts[count] = half;
                parts[count - 1].max.data()[second] = parts[count].min.data()[second] = secondCut;
                ++count;
            }
        }
        return count;
    }

    /// All that belongs to the part: an outermost one has no outer boundary.
    Box reach(Box part) const noexcept {
        for (int axis = 0; axis < N; ++axis) {
            int& low = part.min.data()[axis];
            int& high = part.max.data()[axis];
            low = low == place_.min.data()[axis] ? std::numeric_limits<int>::min() : low;
            high = high == place_.max.data()[axis] ? std::numeric_limits<int>::max() : high;
        }
        return part;
    }

  private:
    static constexpr int kNoAxis = -1;

    static constexpr std::int64_t floorDivided(std::int64_t value, std::int64_t step) noexcept {
        return value / step - (value % step < 0 ? 1 : 0);
    }
    static std::int64_t length(Box const& part, int axis) noexcept {
        return std::int64_t{part.max.data()[axis]} - part.min.data()[axis];
    }
    std::int64_t granularity(int axis) const noexcept { return granularity_.data()[axis]; }

    /// The longest axis but `other` that is longer than a cell, the lower one of equals.
    int longestDivisible(Box const& part, int other) const noexcept {
        int longest = kNoAxis;
        for (int axis = 0; axis < N; ++axis) {
            bool const divisible = axis != other && length(part, axis) > granularity(axis);
            if (divisible && (longest == kNoAxis || length(part, axis) > length(part, longest))) {
                longest = axis;
            }
        }
        return longest;
    }

    /// The middle moved towards zero to a multiple of the granularity, but a cell above the lower end at least.
    int cutPoint(Box const& part, int axis) const noexcept {
        std::int64_t const low = part.min.data()[axis];
        std::int64_t const high = part.max.data()[axis];
        std::int64_t const step = granularity(axis);
        std::int64_t cut = (low + (high - low) / 2) / step * step;
        if (cut <= low) {
            cut = low + step;
        }
        return static_cast<int>(std::min(cut, high));
    }

    Point granularity_;
    Box place_;
};

}  // namespace Quorvel::Dravik::Adt::Detail
