#pragma once

// One node of an index set's tree: four slots, each a box or the bounds of a node below. A plain value; the pool that
// holds all nodes of a tree owns it. Threads: as `int`.

#include "dravik/adt/core/detail/index_set_box.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Quorvel::Dravik::Adt::Detail {

/// One coordinate of each of the four slots.
typedef int IndexLanes __attribute__((vector_size(16)));

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
struct IndexNode {
    static constexpr int kSlots = 4;
    static constexpr std::uint32_t kBox = 0;             ///< marks a slot that is a box: the root is nobody's child
    static constexpr std::uint32_t kUntouched = ~0u;     ///< marks a part of a grid without a node of its own yet
    static constexpr std::uint8_t kTallest = UINT8_MAX;  ///< stands for every greater height

    struct Choice {
        int slot;
        std::uint32_t cost;
    };

    IndexLanes min[N];
    IndexLanes max[N];
    std::uint32_t child[kSlots];
    std::uint32_t boxes;
    std::uint8_t heights[kSlots];  ///< of the child nodes; 0 for a box
    std::uint8_t count;
    IndexNodeKind kind;

    explicit IndexNode(IndexNodeKind ofKind = IndexNodeKind::Plain) noexcept : boxes(0), count(0), kind(ofKind) {
        for (int slot = 0; slot < kSlots; ++slot) {
            clearSlot(slot);
        }
    }

    /// Whether the slot is a node rather than a box; the slot is used and, in a grid, touched.
    bool isNode(int slot) const noexcept { return child[slot] != kBox; }

    unsigned nodeSlots() const noexcept {
        unsigned bits = 0;
        for (int slot = 0; slot < kSlots; ++slot) {
            bits |= isNode(slot) ? 1u << slot : 0u;
        }
        return bits;
    }

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
        child[slot] = kBox;
        heights[slot] = 0;
    }

    /// Makes the slot the node `id`, as `below` describes it.
    void setNode(int slot, std::uint32_t id, IndexNode const& below) noexcept {
        setBounds(slot, below.bounds());
        child[slot] = id;
        heights[slot] = below.height();
    }

    void copySlot(int slot, IndexNode const& source, int from) noexcept {
        setBounds(slot, source.box(from));
        child[slot] = source.child[from];
        heights[slot] = source.heights[from];
    }

    void clearSlot(int slot) noexcept {
        for (int axis = 0; axis < N; ++axis) {
            min[axis][slot] = std::numeric_limits<int>::max();
            max[axis][slot] = std::numeric_limits<int>::min();
        }
        child[slot] = kBox;
        heights[slot] = 0;
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
            IndexLanes const low = min[axis];
            IndexLanes const high = max[axis];
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

    /// The slots whose bounds contain `point`, one bit each.
    unsigned slotsAt(FixedVector<N, int> const& point) const noexcept {
        IndexLanes out{};
        for (int axis = 0; axis < N; ++axis) {
            int const at = point.data()[axis];
            IndexLanes const lanes{at, at, at, at};
            out |= (lanes < min[axis]) | (lanes >= max[axis]);
        }
        return ~laneBits(out) & 15u;
    }

    /// The slots whose bounds share a point with the non-empty `box`.
    unsigned slotsMeeting(IndexBox<N> const& box) const noexcept {
        IndexLanes out{};
        for (int axis = 0; axis < N; ++axis) {
            int const low = box.min.data()[axis];
            int const high = box.max.data()[axis];
            out |= (IndexLanes{high, high, high, high} <= min[axis]) | (IndexLanes{low, low, low, low} >= max[axis]);
        }
        return ~laneBits(out) & 15u;
    }

    /// The used slot that `box` fits best, the first of equals; cost and slot are 0 when none is used.
    Choice cheapest(IndexBox<N> const& box) const noexcept {
        Choice best{0, 0};
        for (int slot = 0; slot < count; ++slot) {
            std::uint32_t const cost = placementCost(this->box(slot), box);
            if (slot == 0 || cost < best.cost) {
                best = {slot, cost};
            }
        }
        return best;
    }
};

}  // namespace Quorvel::Dravik::Adt::Detail
