// SPDX-License-Identifier: Apache-2.0
#pragma once

// Boxes of an array whose last axis varies fastest: where their samples lie, and how to cut it. Threads: as `int`.

#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/core/range.h"

#include <algorithm>
#include <cstdint>

namespace Quorvel::Dravik::Files {

/// Calls act(position, count) for the samples of `box` in an array of `size`, in order: as few runs as there are.
template <class Act>
void forEachRun(Adt::FixedVector<4, int> const& size, Adt::OpenEndedRange<4, int> const& box, Act act) {
    // Axes behind the first one that is not whole lie end to end.
    int first = 3;
    std::int64_t count = box.size(3);
    while (first > 0 && box.size(first) == size[first]) {
        count *= box.size(--first);
    }
    auto index = box.min;
    for (bool more = !box.isEmpty(); more;) {
        std::int64_t position = 0;
        for (int axis = 0; axis < 4; ++axis) {
            position = position * size[axis] + index[axis];
        }
        act(position, count);
        more = false;
        for (int axis = first - 1; axis >= 0 && !more; --axis) {
            more = ++index[axis] < box.max[axis];
            index[axis] = more ? index[axis] : box.min[axis];
        }
    }
}

/// Samples per axis of blocks of at most `sampleCount` that lie end to end.
inline Adt::FixedVector<4, int> blockOfRuns(Adt::FixedVector<4, int> const& size, int sampleCount) {
    auto block = Adt::FixedVector<4, int>::Filled(1);
    for (int axis = 3; axis >= 0; --axis) {
        block[axis] = std::min(size[axis], std::max(sampleCount, 1));
        sampleCount /= block[axis];
    }
    return block;
}

}  // namespace Quorvel::Dravik::Files
