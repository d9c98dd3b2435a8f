// SPDX-License-Identifier: Apache-2.0
#pragma once

// Boxes of an array whose last axis varies fastest: where their samples lie, and how to cut it. Threads: as `int`.

#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/core/range.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

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

/// Calls act(part) for what of `box` lies in each block of `block` samples per axis, in order; blocks begin at 0.
template <class Act>
void forEachPart(Adt::OpenEndedRange<4, int> const& box, Adt::FixedVector<4, int> const& block, Act act) {
    auto part = box;
    for (bool more = !box.isEmpty(); more;) {
        for (int axis = 0; axis < 4; ++axis) {
            auto const next = (std::int64_t{part.min[axis]} / block[axis] + 1) * block[axis];
            part.max[axis] = static_cast<int>(std::min<std::int64_t>(next, box.max[axis]));
        }
        act(std::as_const(part));
        more = false;
        for (int axis = 3; axis >= 0 && !more; --axis) {
            more = part.max[axis] < box.max[axis];
            part.min[axis] = more ? part.max[axis] : box.min[axis];
        }
    }
}

/// Calls act(position, place, count) for the runs of samples of `part` among the dense samples of `box`: where each
/// lies, and where in a dense array of the part, and how many there are.
template <class Act>
void forEachRunOfPart(Adt::OpenEndedRange<4, int> const& box, Adt::OpenEndedRange<4, int> const& part, Act act) {
    std::int64_t done = 0;
    forEachRun(box.max - box.min, {part.min - box.min, part.max - box.min}, [&](std::int64_t position, std::int64_t n) {
        act(position, done, n);
        done += n;
    });
}

/// Several small blocks in one, so that a call for each costs less than its samples; a large block as it is.
inline Adt::FixedVector<4, int> joinedBlocks(
    Adt::FixedVector<4, int> block, Adt::FixedVector<4, int> const& size, std::int64_t bytesPerSample) {
    constexpr std::int64_t kSmall = 1 << 13, kEnough = 1 << 16;  // bytes
    std::int64_t bytes = Adt::OpenEndedRange<4, int>::OfSize(block).pointCount() * bytesPerSample;
    for (int axis = 3; axis >= 0 && bytes <= kSmall; --axis) {
        std::int64_t const all = (std::int64_t{size[axis]} + block[axis] - 1) / block[axis];
        std::int64_t const joined = std::clamp<std::int64_t>(kEnough / std::max<std::int64_t>(bytes, 1), 1, all);
        block[axis] = static_cast<int>(std::min<std::int64_t>(block[axis] * joined, size[axis]));
        bytes *= joined;
    }
    return block;
}

/// Reads `box` by read(part, samples) for its part in each block, dense samples of so many bytes each. A library that
/// puts them in their places itself does so row by row.
template <class Read>
void readByParts(
    Adt::OpenEndedRange<4, int> const& box, Adt::FixedVector<4, int> const& block, std::int64_t bytes, void* samples,
    Read read) {
    std::unique_ptr<std::byte[]> memory;
    forEachPart(box, block, [&](Adt::OpenEndedRange<4, int> const& part) {
        if (part == box) {
            return read(part, samples);
        }
        if (memory == nullptr) {
            std::int64_t const most =
                std::min(Adt::OpenEndedRange<4, int>::OfSize(block).pointCount(), box.pointCount());
            memory = std::make_unique_for_overwrite<std::byte[]>(static_cast<std::size_t>(most * bytes));
        }
        read(part, static_cast<void*>(memory.get()));
        forEachRunOfPart(box, part, [&](std::int64_t position, std::int64_t place, std::int64_t count) {
            std::memcpy(
                static_cast<std::byte*>(samples) + position * bytes, memory.get() + place * bytes,
                static_cast<std::size_t>(count * bytes));
        });
    });
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
