// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a long list of boxes goes through before it becomes a tree: boxes that touch along whole sides are joined, and
// those that overlap others are set aside. Threads: as `int`.

#include "dravik/adt/core/detail/index_set_query.h"

#include <array>

namespace Quorvel::Dravik::Adt::Detail {

/// Where a box ends or starts along one axis, and its extents on the others.
template <int N>
struct IndexBoxFace {
    std::array<int, 2 * N - 1> coordinates;

    IndexBoxFace(IndexBox<N> const& box, int axis, int at) noexcept {
        std::size_t place = 0;
        for (int other = 0; other < N; ++other) {
            if (other != axis) {
                coordinates[place++] = box.min.data()[other];
                coordinates[place++] = box.max.data()[other];
            }
        }
        coordinates[place] = at;
    }

    std::size_t hash(std::size_t buckets) const noexcept {
        std::uint64_t mixed = 0;
        for (int const coordinate : coordinates) {
            mixed = (mixed ^ static_cast<unsigned>(coordinate)) * 0x9E3779B97F4A7C15u;
            mixed ^= mixed >> 32;
        }
        return mixed & (buckets - 1);
    }
};

/// Joins boxes that coincide on every other axis and touch along this one.
template <int N>
void mergeAlong(int axis, std::vector<IndexBox<N>>& boxes) {
    auto const startOf = [axis](auto const& box) { return IndexBoxFace<N>(box, axis, box.min.data()[axis]); };
    auto const endOf = [axis](auto const& box) { return IndexBoxFace<N>(box, axis, box.max.data()[axis]); };
    // Most boxes touch none in this way, which a look at hashes tells nearly always: only the others are sorted.
    std::size_t const buckets = std::bit_ceil(8 * boxes.size());
    std::vector<bool> starts(buckets);
    std::vector<bool> ends(buckets);
    for (auto const& box : boxes) {
        starts[startOf(box).hash(buckets)] = true;
        ends[endOf(box).hash(buckets)] = true;
    }
    auto const first = std::partition(boxes.begin(), boxes.end(), [&](auto const& box) {
        return !ends[startOf(box).hash(buckets)] && !starts[endOf(box).hash(buckets)];
    });
    std::sort(first, boxes.end(), [&](auto const& left, auto const& right) {
        return startOf(left).coordinates < startOf(right).coordinates;
    });
    auto last = first;
    for (auto next = first; next != boxes.end(); ++next) {
        if (next != first && !absorb(*last, *next)) {
            *++last = *next;
        }
    }
    boxes.erase(first == boxes.end() ? first : last + 1, boxes.end());
}

/// Moves the boxes that share points with others of the tree out of the list.
template <int N>
std::vector<IndexBox<N>> takeOverlapping(IndexPool<N> const& pool, std::vector<IndexBox<N>>& boxes) {
    auto const first =
        std::partition(boxes.begin(), boxes.end(), [&](auto const& box) { return !meetsTwo(pool, box); });
    std::vector<IndexBox<N>> overlapping(first, boxes.end());
    boxes.erase(first, boxes.end());
    return overlapping;
}

}  // namespace Quorvel::Dravik::Adt::Detail
