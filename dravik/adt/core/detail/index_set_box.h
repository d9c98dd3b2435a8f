// SPDX-License-Identifier: Apache-2.0
#pragma once

// What an index set does with two boxes: how they merge, how far apart they count, what one leaves of the other. Plain
// functions on values; every sum of coordinates is formed in 64 bits. Threads: as `int`.

#include "dravik/adt/core/range.h"

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <limits>

namespace Quorvel::Dravik::Adt::Detail {

template <int N>
using IndexBox = OpenEndedRange<N, int>;

/// A number of points that holds the volume of any box of up to four axes.
__extension__ typedef unsigned __int128 WideCount;  // NOLINT(modernize-use-using): takes no __extension__

template <int N>
constexpr WideCount wideCount(IndexBox<N> const& box) noexcept {
    if (box.isEmpty()) {
        return 0;
    }
    WideCount count = 1;
    for (int axis = 0; axis < N; ++axis) {
        count *= static_cast<std::uint64_t>(std::int64_t{box.max.data()[axis]} - box.min.data()[axis]);
    }
    return count;
}

constexpr std::int64_t pointsOf(WideCount count) noexcept {
    constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
    return count > static_cast<WideCount>(kMost) ? kMost : static_cast<std::int64_t>(count);
}

/// Whether the corners of `inner` lie within those of `outer`, which says nothing about an empty `inner`.
template <int N>
constexpr bool encloses(IndexBox<N> const& outer, IndexBox<N> const& inner) noexcept {
    return inner.min.allGreaterEqual(outer.min) && outer.max.allGreaterEqual(inner.max);
}

/// Makes `box` the union of itself and the non-empty `added` where that union is a box; otherwise leaves it.
template <int N>
constexpr bool absorb(IndexBox<N>& box, IndexBox<N> const& added) noexcept {
    if (box.isEmpty() || encloses(added, box)) {
        box = added;
        return true;
    }
    if (encloses(box, added)) {
        return true;
    }
    int odd = -1;
    for (int axis = 0; axis < N; ++axis) {
        if (box.min.data()[axis] != added.min.data()[axis] || box.max.data()[axis] != added.max.data()[axis]) {
            if (odd >= 0) {
                return false;
            }
            odd = axis;
        }
    }
    int& low = box.min.data()[odd];
    int& high = box.max.data()[odd];
    if (low > added.max.data()[odd] || added.min.data()[odd] > high) {
        return false;
    }
    low = std::min(low, added.min.data()[odd]);
    high = std::max(high, added.max.data()[odd]);
    return true;
}

/// The weights of the placement cost: being apart on one axis more outweighs every difference in distance, and so does
/// overlapping on one axis more against coinciding there.
template <int N>
struct PlacementWeights {
    static constexpr std::uint32_t kSeparated = std::numeric_limits<std::uint32_t>::max() / (N + 1);
    static constexpr std::uint32_t kOverlapping = kSeparated / N;
    static constexpr int kGapCap = kOverlapping;
    static constexpr int kGapOffset = kOverlapping / 2;
    static constexpr std::uint32_t kTooFar = 2 * kSeparated;
};

/// How badly `box` fits beside `child`; axes on which the two coincide count nothing.
template <int N>
constexpr std::uint32_t placementCost(IndexBox<N> const& child, IndexBox<N> const& box) noexcept {
    using Weights = PlacementWeights<N>;
    std::uint32_t penalty = 0;
    std::int64_t gaps = Weights::kGapOffset;
    for (int axis = 0; axis < N; ++axis) {
        std::int64_t const childMin = child.min.data()[axis];
        std::int64_t const childMax = child.max.data()[axis];
        std::int64_t const boxMin = box.min.data()[axis];
        std::int64_t const boxMax = box.max.data()[axis];
        bool const coincides = childMin == boxMin && childMax == boxMax;
        std::int64_t const gap = std::max(childMin - boxMax, boxMin - childMax);
        penalty += coincides ? 0 : gap > 0 ? Weights::kSeparated : Weights::kOverlapping;
        gaps += coincides ? 0 : gap;
    }
    return penalty + static_cast<std::uint32_t>(std::clamp<std::int64_t>(gaps, 0, Weights::kGapCap));
}

/// Hands the disjoint parts of `box` outside `hole` to `emit`, at most two per axis; the two share a point. Axis by
/// axis the part below comes first, then the part above, each as wide as `box` on the axes still to come.
template <int N, std::invocable<IndexBox<N> const&> Emit>
constexpr void cutOutside(IndexBox<N> box, IndexBox<N> const& hole, Emit emit) {
    for (int axis = 0; axis < N; ++axis) {
        int& low = box.min.data()[axis];
        int& high = box.max.data()[axis];
        int const holeLow = hole.min.data()[axis];
        int const holeHigh = hole.max.data()[axis];
        if (low < holeLow) {
            IndexBox<N> below = box;
            below.max.data()[axis] = holeLow;
            emit(below);
            low = holeLow;
        }
        if (high > holeHigh) {
            IndexBox<N> above = box;
            above.min.data()[axis] = holeHigh;
            emit(above);
            high = holeHigh;
        }
    }
}

/// Takes `hole` out of `box`, which it meets, where what is left is one box or none: the empty box at the origin.
template <int N>
constexpr bool cutInPlace(IndexBox<N>& box, IndexBox<N> const& hole) noexcept {
    IndexBox<N> rest;
    int parts = 0;
    cutOutside(box, hole, [&](IndexBox<N> const& part) {
        rest = part;
        ++parts;
    });
    if (parts <= 1) {
        box = rest;
    }
    return parts <= 1;
}

}  // namespace Quorvel::Dravik::Adt::Detail
