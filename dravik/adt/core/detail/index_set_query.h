// SPDX-License-Identifier: Apache-2.0
#pragma once

// Questions to a tree of boxes. A child's bounds are asked before its points, and each recursion is as deep as the tree
// at most. Threads: as `int`; nothing is cached.

#include "dravik/adt/core/detail/index_set_pool.h"

#include <utility>

namespace Quorvel::Dravik::Adt::Detail {

/// Calls `visit` with each slot whose bit is set, in order.
template <std::invocable<int> Visit>
void forEachSlot(unsigned bits, Visit visit) {
    for (; bits != 0; bits &= bits - 1) {
        visit(std::countr_zero(bits));
    }
}

/// A slot that is a box; none when `node` is null.
template <int N>
struct IndexBoxPlace {
    IndexNode<N> const* node = nullptr;
    int slot = 0;

    explicit operator bool() const noexcept { return node != nullptr; }
    IndexBox<N> box() const noexcept { return node->box(slot); }
};

/// The first box that `slotsOf`, a question to the slots of one node, leads to.
template <int N, class SlotsOf>
IndexBoxPlace<N> firstBox(IndexPool<N> const& pool, std::uint32_t id, SlotsOf const& slotsOf) noexcept {
    while (true) {
        IndexNode<N> const& node = pool[id];
        pool.prefetchChildren(node);
        unsigned const slots = slotsOf(node);
        unsigned nodes = slots & node.nodes;
        if (slots != nodes) {
            return {&node, std::countr_zero(slots ^ nodes)};
        }
        if (nodes == 0) {
            return {};
        }
        // The last candidate needs no return to this level.
        for (unsigned rest = nodes & (nodes - 1); rest != 0; rest &= rest - 1) {
            if (auto const found = firstBox(pool, node.child[std::countr_zero(nodes)], slotsOf)) {
                return found;
            }
            nodes = rest;
        }
        id = node.child[std::countr_zero(nodes)];
    }
}

/// The stored box that contains `point`.
template <int N>
IndexBoxPlace<N> findRange(IndexPool<N> const& pool, FixedVector<N, int> const& point) noexcept {
    return firstBox(pool, IndexPool<N>::kRoot, [&](IndexNode<N> const& node) { return node.slotsAt(point); });
}

/// Whether a box under the node shares a point with the non-empty `box`.
template <int N>
bool meets(IndexPool<N> const& pool, std::uint32_t id, IndexBox<N> const& box) noexcept {
    return bool(firstBox(pool, id, [&](IndexNode<N> const& node) { return node.slotsMeeting(box); }));
}

/// Whether two boxes at least share a point with the non-empty `box`.
template <int N>
bool meetsTwo(IndexPool<N> const& pool, IndexBox<N> const& box) noexcept {
    int met = 0;
    return bool(firstBox(pool, IndexPool<N>::kRoot, [&](IndexNode<N> const& node) {
        unsigned const slots = node.slotsMeeting(box);
        unsigned const boxes = slots & ~node.nodes;
        met += (boxes != 0) + ((boxes & (boxes - 1)) != 0);
        return met > 1 ? boxes : slots & node.nodes;
    }));
}

/// Calls `visit` with every stored box under the node that shares a point with the non-empty `box`, in slot order.
template <int N, std::invocable<IndexBox<N> const&> Visit>
void forEachMeeting(IndexPool<N> const& pool, std::uint32_t id, IndexBox<N> const& box, Visit const& visit) {
    IndexNode<N> const& node = pool[id];
    forEachSlot(node.slotsMeeting(box), [&](int slot) {
        if (node.isNode(slot)) {
            forEachMeeting(pool, node.child[slot], box, visit);
        } else {
            visit(node.box(slot));
        }
    });
}

/// The parts of `box` that no box in these slots of the node covers.
template <int N>
std::vector<IndexBox<N>> partsOutside(
    IndexPool<N> const& pool, std::uint32_t id, unsigned slots, IndexBox<N> const& box) {
    IndexNode<N> const& node = pool[id];
    std::vector<IndexBox<N>> pieces(1, box);
    forEachSlot(slots, [&](int slot) {
        std::vector<IndexBox<N>> rest;
        for (IndexBox<N> const& piece : pieces) {
            if ((node.slotsMeeting(piece) >> slot & 1) == 0) {
                rest.push_back(piece);
            } else if (node.isNode(slot)) {
                auto const child = node.child[slot];
                auto const parts = partsOutside(pool, child, pool[child].slotsMeeting(piece), piece);
                rest.insert(rest.end(), parts.begin(), parts.end());
            } else {
                cutOutside(piece, node.box(slot), [&](IndexBox<N> const& part) { rest.push_back(part); });
            }
        }
        pieces.swap(rest);
    });
    return pieces;
}

/// Whether the tree holds every point of one box: asks for its volume instead of cutting it up.
///
/// `possible_` counts what the bounds met so far could hold at most, `found_` what boxes do hold. The answer is known
/// as soon as one of them reaches or loses the wanted volume.
template <int N>
class IndexCoverTest {
  public:
    IndexCoverTest(IndexPool<N> const& pool, IndexBox<N> const& box) noexcept
        : pool_(pool), box_(box), wanted_(wideCount(box)) {}

    bool covered() noexcept {
        possible_ = wideCount(box_.intersection(pool_.root().bounds()));
        visit(IndexPool<N>::kRoot, possible_);
        return found_ == wanted_;
    }

  private:
    // `share`: what the node's bounds could hold.
    void visit(std::uint32_t id, WideCount share) noexcept {
        IndexNode<N> const& node = pool_[id];
        unsigned const slots = node.slotsMeeting(box_);
        WideCount shares[IndexNode<N>::kSlots];
        possible_ -= share;
        forEachSlot(slots, [&](int slot) {
            shares[slot] = wideCount(box_.intersection(node.box(slot)));
            possible_ += shares[slot];
            found_ += node.isNode(slot) ? 0 : shares[slot];
        });
        forEachSlot(slots, [&](int slot) {
            if (node.isNode(slot) && found_ < wanted_ && possible_ >= wanted_) {
                visit(node.child[slot], shares[slot]);
            }
        });
    }

    IndexPool<N> const& pool_;
    IndexBox<N> box_;
    WideCount wanted_;
    WideCount possible_ = 0;
    WideCount found_ = 0;
};

}  // namespace Quorvel::Dravik::Adt::Detail
