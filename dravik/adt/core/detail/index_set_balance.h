// SPDX-License-Identifier: Apache-2.0
#pragma once

// Balanced trees out of lists of boxes: for a subtree that has grown too deep, and for many boxes at once.

#include "dravik/adt/core/detail/index_set_query.h"

#include <array>
#include <new>
#include <span>

namespace Quorvel::Dravik::Adt::Detail {

/// Twice the centre of a box, along one axis.
template <int N>
std::int64_t doubledCentre(IndexBox<N> const& box, int axis) noexcept {
    return std::int64_t{box.min.data()[axis]} + box.max.data()[axis];
}

/// The axis along which the centres of the boxes lie furthest apart.
template <int N>
int longestAxis(std::span<IndexBox<N> const> boxes) noexcept {
    std::int64_t low[N];
    std::int64_t high[N];
    for (int axis = 0; axis < N; ++axis) {
        low[axis] = high[axis] = doubledCentre<N>(boxes.front(), axis);
    }
    for (IndexBox<N> const& box : boxes) {
        for (int axis = 0; axis < N; ++axis) {
            std::int64_t const centre = doubledCentre<N>(box, axis);
            low[axis] = std::min(low[axis], centre);
            high[axis] = std::max(high[axis], centre);
        }
    }
    int longest = 0;
    for (int axis = 1; axis < N; ++axis) {
        longest = high[axis] - low[axis] > high[longest] - low[longest] ? axis : longest;
    }
    return longest;
}

/// Brings the `count` boxes that lie lowest along the longest axis to the front.
template <int N>
void splitAt(std::span<IndexBox<N>> boxes, std::size_t count) noexcept {
    int const axis = longestAxis<N>(boxes);
    std::nth_element(
        boxes.begin(), boxes.begin() + static_cast<std::ptrdiff_t>(count), boxes.end(),
        [axis](auto const& a, auto const& b) { return doubledCentre<N>(a, axis) < doubledCentre<N>(b, axis); });
}

/// Four nearly equal parts of `size` > 4 boxes. All but the last are 1 modulo 3, the sizes of trees whose every node is
/// full; so the whole tree has one node at most that is not, and no tree of these boxes has fewer nodes.
inline std::array<std::size_t, 4> quarters(std::size_t size) noexcept {
    std::array<std::size_t, 4> parts{};
    for (std::size_t part = 0; part < 3; ++part) {
        parts[part] = (size / (4 - part) + 1) / 3 * 3 + 1;
        parts[part] = std::min(parts[part], (size - (3 - part) - 1) / 3 * 3 + 1);
        size -= parts[part];
    }
    parts[3] = size;
    return parts;
}

/// Fills the empty node with disjoint boxes, whose order changes.
/// @pre the pool has room for a third of their number
template <int N>
void fill(IndexPool<N>& pool, std::uint32_t id, std::span<IndexBox<N>> boxes) noexcept {
    pool[id].boxes = static_cast<std::uint32_t>(boxes.size());
    if (boxes.size() <= 4) {
        for (IndexBox<N> const& box : boxes) {
            pool[id].setBox(pool[id].count++, box);
        }
        return;
    }
    auto const sizes = quarters(boxes.size());
    splitAt<N>(boxes, sizes[0] + sizes[1]);
    splitAt<N>(boxes.first(sizes[0] + sizes[1]), sizes[0]);
    splitAt<N>(boxes.subspan(sizes[0] + sizes[1]), sizes[2]);
    for (std::size_t const size : sizes) {
        int const slot = pool[id].count++;
        if (size == 1) {
            pool[id].setBox(slot, boxes.front());
        } else {
            auto const below = pool.acquire(IndexNodeKind::Plain);
            fill<N>(pool, below, boxes.first(size));
            pool[id].setNode(slot, below, pool[below]);
        }
        boxes = boxes.subspan(size);
    }
}

/// Appends the boxes under a node that is not Divided.
template <int N>
void collect(IndexPool<N> const& pool, std::uint32_t id, std::vector<IndexBox<N>>& boxes) {
    IndexNode<N> const& node = pool[id];
    for (int slot = 0; slot < node.count; ++slot) {
        if (node.isNode(slot)) {
            collect(pool, node.child[slot], boxes);
        } else {
            boxes.push_back(node.box(slot));
        }
    }
}

/// Whether a tree of `boxes` boxes is higher than 8 + 2 log2(boxes).
inline bool isTooHigh(unsigned height, std::uint64_t boxes) noexcept {
    return height >= 8 + static_cast<unsigned>(std::bit_width(boxes * boxes));
}

/// Whether it is higher than a balanced one by half.
inline bool isUneven(unsigned height, std::uint64_t boxes) noexcept {
    return height > 2 + 3 * static_cast<unsigned>(std::bit_width(boxes)) / 4;
}

/// Builds the tree under the node anew, balanced. Uses no more nodes than it gives up, and waits for better times where
/// there is no memory for the list of boxes.
template <int N>
void rebuild(IndexPool<N>& pool, std::uint32_t id) noexcept {
    IndexNode<N>& node = pool[id];
    std::vector<IndexBox<N>> boxes;
    try {
        boxes.reserve(node.boxes);
    } catch (std::bad_alloc const&) {
        return;
    }
    collect(pool, id, boxes);
    for (int slot = 0; slot < node.count; ++slot) {
        if (node.isNode(slot)) {
            pool.dropTree(node.child[slot]);
        }
    }
    node = IndexNode<N>(node.kind);
    fill<N>(pool, id, boxes);
}

}  // namespace Quorvel::Dravik::Adt::Detail
