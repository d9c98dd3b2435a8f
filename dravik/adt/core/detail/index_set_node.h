// SPDX-License-Identifier: Apache-2.0
#pragma once

// One node of an index set's tree: four slots, each a box or the bounds of a node below. A plain value; the pool that
// holds all nodes of a tree owns it. Threads: as `int`.

#include "dravik/adt/core/detail/index_set_box.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Quorvel::Dravik::Adt::Detail {

/// One coordinate of each of the four slots.
using IndexLanes [[gnu::vector_size(16)]] = int;
using CostLanes [[gnu::vector_size(16)]] = std::uint32_t;

/// Bit s is set where lane s of a comparison holds.
inline unsigned laneBits(IndexLanes comparison) noexcept {
#if defined(__SSE2__)
    return static_cast<unsigned>(_mm_movemask_ps((__m128)comparison));
#else
    IndexLanes const bits = comparison & IndexLanes{1, 2, 4, 8};
    return static_cast<unsigned>(bits[0] | bits[1] | bits[2] | bits[3]);
#endif
}

enum class IndexNodeKind : std::uint8_t {
    Plain,    ///< goes when it has lost its boxes, and may be rebuilt
    Divided,  ///< of a grid: each slot is a part of the node's place, touched or not
    Cell,     ///< of a grid: as Plain, but stays
};

/// Four slots, the used ones first; what they hold is disjoint, their bounds may overlap.
///
/// The corners lie axis by axis with the four slots side by side, so that a question about all slots is one vector
/// comparison per axis and side. A slot without points has the bounds [2^31-1, -2^31), which meet nothing and vanish in
/// a union. Counts and heights are those of the whole subtree.
template <int N>
struct alignas(N % 2 == 1 ? 64 : 32) IndexNode {
    static constexpr int kSlots = 4;
    static constexpr int kNear = 1 << 26;
    static constexpr std::uint8_t kTallest = UINT8_MAX;  ///< stands for every greater height

    struct Choice {
        int slot;
        std::uint32_t cost;
    };

    alignas(16) int min[N][kSlots];
    alignas(16) int max[N][kSlots];
    std::uint32_t child[kSlots];  ///< the root where the slot is no node
    std::uint32_t boxes;
    std::uint8_t heights[kSlots];  ///< of the child nodes; 0 for a box
    std::uint8_t nodes;            ///< the slots that are nodes, one bit each
    std::uint8_t count;
    IndexNodeKind kind;

    explicit IndexNode(IndexNodeKind ofKind = IndexNodeKind::Plain) noexcept
        : boxes(0), nodes(0), count(0), kind(ofKind) {
        for (int slot = 0; slot < kSlots; ++slot) {
            clearSlot(slot);
        }
    }

    bool isNode(int slot) const noexcept { return (nodes >> slot & 1) != 0; }

    /// Free slots do not, nor do parts of a grid that have no node yet.
    bool holdsPoints(int slot) const noexcept { return min[0][slot] < max[0][slot]; }

    IndexBox<N> box(int slot) const noexcept {
        IndexBox<N> box;
        for (int axis = 0; axis < N; ++axis) {
            box.min.data()[axis] = min[axis][slot];
            box.max.data()[axis] = max[axis][slot];
        }
        return box;
    }

    void setBounds(int slot, IndexBox<N> const& bounds) noexcept {
        for (int axis = 0; axis < N; ++axis) {
            min[axis][slot] = bounds.min.data()[axis];
            max[axis][slot] = bounds.max.data()[axis];
        }
    }

    void setBox(int slot, IndexBox<N> const& box) noexcept {
        setBounds(slot, box);
        setIsBox(slot);
    }

    /// Makes the slot the node `id`, as `below` describes it.
    void setNode(int slot, std::uint32_t id, IndexNode const& below) noexcept {
        setBounds(slot, below.bounds());
        child[slot] = id;
        nodes = static_cast<std::uint8_t>(nodes | 1u << slot);
        heights[slot] = below.height();
    }

    void copySlot(int slot, IndexNode const& source, int from) noexcept {
        setBox(slot, source.box(from));
        child[slot] = source.child[from];
        nodes = static_cast<std::uint8_t>(nodes | (source.nodes >> from & 1u) << slot);
        heights[slot] = source.heights[from];
    }

    void clearSlot(int slot) noexcept {
        for (int axis = 0; axis < N; ++axis) {
            min[axis][slot] = std::numeric_limits<int>::max();
            max[axis][slot] = std::numeric_limits<int>::min();
        }
        setIsBox(slot);
    }

    /// Takes a used slot out and moves the later ones down.
    void closeUp(int slot) noexcept {
        for (--count; slot < count; ++slot) {
            copySlot(slot, *this, slot + 1);
        }
        clearSlot(count);
    }

    /// The tight box around all slots; inverted when no slot holds a point.
    IndexBox<N> bounds() const noexcept {
        IndexBox<N> all;
        for (int axis = 0; axis < N; ++axis) {
            int const* const low = min[axis];
            int const* const high = max[axis];
            all.min.data()[axis] = std::min(std::min(low[0], low[1]), std::min(low[2], low[3]));
            all.max.data()[axis] = std::max(std::max(high[0], high[1]), std::max(high[2], high[3]));
        }
        return all;
    }

    /// Levels of nodes from here down to the deepest box.
    std::uint8_t height() const noexcept {
        std::uint8_t const tallest = std::max(std::max(heights[0], heights[1]), std::max(heights[2], heights[3]));
        return static_cast<std::uint8_t>(std::min(tallest + 1, int{kTallest}));
    }

    /// Widens the bounds of a slot to take in `box`.
    void growSlot(int slot, IndexBox<N> const& box) noexcept {
        for (int axis = 0; axis < N; ++axis) {
            min[axis][slot] = std::min(min[axis][slot], box.min.data()[axis]);
            max[axis][slot] = std::max(max[axis][slot], box.max.data()[axis]);
        }
    }

    /// The slots whose bounds contain `point`, one bit each.
    unsigned slotsAt(FixedVector<N, int> const& point) const noexcept {
        IndexLanes below{};
        IndexLanes inside = broadcast(-1);
        for (int axis = 0; axis < N; ++axis) {
            IndexLanes const at = broadcast(point.data()[axis]);
            below |= lanes(min[axis]) > at;
            inside &= lanes(max[axis]) > at;
        }
        return laneBits(inside & ~below);
    }

    /// The slots whose bounds share a point with the non-empty `box`.
    unsigned slotsMeeting(IndexBox<N> const& box) const noexcept {
        IndexLanes meeting = broadcast(-1);
        for (int axis = 0; axis < N; ++axis) {
            meeting &= broadcast(box.max.data()[axis]) > lanes(min[axis]);
            meeting &= lanes(max[axis]) > broadcast(box.min.data()[axis]);
        }
        return laneBits(meeting);
    }

    /// placementCost() of `box` against each slot, of no meaning where that is free. `isNear`: all coordinates are
    /// within kNear, so that every sum of differences fits into 32 bits and the slots can be taken side by side.
    void costs(IndexBox<N> const& box, bool isNear, std::uint32_t (&each)[kSlots]) const noexcept {
        if (isNear) {
            nearCosts(box, each);
        } else {
            for (int slot = 0; slot < kSlots; ++slot) {
                each[slot] = placementCost(this->box(slot), box);
            }
        }
    }

    /// The used slot that `box` fits best, the first of equals, in a node that is not empty.
    Choice cheapest(IndexBox<N> const& box, bool isNear) const noexcept {
        std::uint32_t each[kSlots];
        costs(box, isNear, each);
        // Cost and slot in one number: without a branch that data decides.
        std::uint64_t best = std::uint64_t{each[0]} << 2;
        for (unsigned slot = 1; slot < kSlots; ++slot) {
            std::uint64_t const other = std::uint64_t{each[slot]} << 2 | slot;
            best = slot < count && other < best ? other : best;
        }
        return {static_cast<int>(best & 3), static_cast<std::uint32_t>(best >> 2)};
    }

  private:
    void setIsBox(int slot) noexcept {
        child[slot] = 0;
        nodes = static_cast<std::uint8_t>(nodes & ~(1u << slot));
        heights[slot] = 0;
    }

    static IndexLanes lanes(int const (&coordinates)[kSlots]) noexcept {
        IndexLanes loaded;
        std::memcpy(&loaded, coordinates, sizeof(loaded));
        return loaded;
    }
    static IndexLanes broadcast(int value) noexcept { return IndexLanes{value, value, value, value}; }

    void nearCosts(IndexBox<N> const& box, std::uint32_t (&each)[kSlots]) const noexcept {
        using Weights = PlacementWeights<N>;
        IndexLanes const none{};
        IndexLanes gaps = broadcast(Weights::kGapOffset);
        CostLanes costs{};
        for (int axis = 0; axis < N; ++axis) {
            IndexLanes const boxMin = broadcast(box.min.data()[axis]);
            IndexLanes const boxMax = broadcast(box.max.data()[axis]);
            IndexLanes const low = lanes(min[axis]);
            IndexLanes const high = lanes(max[axis]);
            IndexLanes const differs = (low != boxMin) | (high != boxMax);
            // Unsigned, since the lanes of free slots may wrap.
            IndexLanes const below = (IndexLanes)((CostLanes)low - (CostLanes)boxMax);
            IndexLanes const above = (IndexLanes)((CostLanes)boxMin - (CostLanes)high);
            IndexLanes const gap = below > above ? below : above;
            gaps = (IndexLanes)((CostLanes)gaps + (CostLanes)(gap & differs));
            costs += (CostLanes)differs & (Weights::kOverlapping + ((CostLanes)(gap > none) & kApart));
        }
        gaps = gaps > none ? gaps : none;
        IndexLanes const cap = broadcast(Weights::kGapCap);
        costs += (CostLanes)(gaps < cap ? gaps : cap);
        std::memcpy(each, &costs, sizeof(each));
    }
    static constexpr std::uint32_t kApart = PlacementWeights<N>::kSeparated - PlacementWeights<N>::kOverlapping;
};

}  // namespace Quorvel::Dravik::Adt::Detail
