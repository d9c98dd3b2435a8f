// SPDX-License-Identifier: Apache-2.0
#pragma once

// Where added boxes go in a tree: the rules that small sets are built by, and the balance that large ones are kept in.
// Owns the nodes. Threads: as `int`.

#include "dravik/adt/core/detail/index_set_balance.h"

#include <boost/container/static_vector.hpp>

namespace Quorvel::Dravik::Adt::Detail {

/// Disjoint boxes under nodes of four slots, and the number of points in them.
///
/// A box goes to the child that it fits best, so small trees come out the way they were built. A subtree that has grown
/// too deep is rebuilt, which bounds every recursion. An addition that runs out of memory leaves the tree as it was.
template <int N>
class IndexPlacement {
  public:
    using Box = IndexBox<N>;
    using Pool = IndexPool<N>;
    using Node = IndexNode<N>;
    using Id = typename Pool::Id;

    /// The most pieces that taking a box out of a box leaves.
    static constexpr std::size_t kMostPieces = 2 * N;

    /// No box at all.
    explicit IndexPlacement(IndexNodeKind root) : pool_(root) {}

    /// These disjoint boxes, not empty, in a balanced tree; their order changes.
    explicit IndexPlacement(std::span<Box> boxes) : pool_(IndexNodeKind::Plain), isOutgrown_(boxes.size() > 1) {
        pool_.makeRoom(boxes.size() / 3 + 1);
        fill<N>(pool_, Pool::kRoot, boxes);
        for (Box const& box : boxes) {
            points_ += wideCount(box);
            expect(box);
        }
    }

    Pool& pool() noexcept { return pool_; }
    Pool const& pool() const noexcept { return pool_; }
    WideCount pointCount() const noexcept { return points_; }

    /// Tells that points were taken out of the nodes.
    void forget(WideCount points) noexcept { points_ -= points; }

    /// Tells that the box, or parts of it, will be added.
    void expect(Box const& box) noexcept {
        constexpr auto kEdge = FixedVector<N, int>::Filled(Node::kNear);
        isNear_ = isNear_ && kEdge.allGreaterEqual(box.max) && (box.min + kEdge).allGreaterEqual(FixedVector<N, int>());
    }

    /// Adds a box that does not enclose all under the node; all of it or, where memory runs out, nothing.
    void addTo(Id id, Box const& box) {
        pool_.prefetchChildren(pool_[id]);
        unsigned const slots = pool_[id].slotsMeeting(box);
        if (slots != 0 && leadsThrough(pool_[id], slots, box)) {
            changeChild(id, std::countr_zero(slots), box, [&](Id child) { addTo(child, box); });
        } else if (slots != 0 && meets(pool_, id, box)) {
            addMeeting(id, box);
        } else {
            pool_.makeRoom(1);
            place(id, box);
            points_ += wideCount(box);
        }
    }

    /// Places boxes that meet none under the node; all of them or, where memory runs out, none.
    template <class Boxes>
    void placePieces(Id id, Boxes const& pieces) {
        pool_.makeRoom(pieces.size());
        for (Box const& piece : pieces) {
            place(id, piece);
            points_ += wideCount(piece);
        }
    }

    /// Rebuilds the tree under the node where it has grown too deep for its boxes. Where that happens once, placing
    /// boxes by their bounds alone has led astray, and will again: from then on the whole set is kept near balance.
    void keepShallow(Id id) noexcept {
        Node const& node = pool_[id];
        bool const isDeep = isOutgrown_ ? isUneven(node.height(), node.boxes) : isTooHigh(node.height(), node.boxes);
        if (isDeep && node.kind != IndexNodeKind::Divided) {
            rebuild(pool_, id);
            isOutgrown_ = true;
        }
    }

  private:
    /// Whether the box goes to the only node whose bounds it meets, be it that it shares points with it or fits it
    /// best.
    bool leadsThrough(Node const& node, unsigned slots, Box const& box) const noexcept {
        int const slot = std::countr_zero(slots);
        if ((slots & (slots - 1)) != 0 || !node.isNode(slot) || encloses(box, node.box(slot))) {
            return false;
        }
        // Bounds that it meets are never too far. Others fit better only where it touches them.
        return node.cheapest(box, isNear_).slot == slot;
    }

    /// Adds a box that shares points with some under the node.
    void addMeeting(Id id, Box const& box) {
        unsigned const slots = slotsSharingPoints(id, box);
        int const slot = std::countr_zero(slots);
        if ((slots & (slots - 1)) != 0) {
            placePieces(id, partsOutside(pool_, id, slots, box));
        } else if (!pool_[id].isNode(slot)) {
            addToBox(id, slot, box);
        } else if (encloses(box, pool_[id].box(slot))) {
            replaceChild(id, slot, box);
        } else {
            changeChild(id, slot, box, [&](Id child) { addMeeting(child, box); });
        }
    }

    /// Lets `add` add the box to the node in the slot, and keeps this node in step.
    template <std::invocable<Id> Add>
    void changeChild(Id id, int slot, Box const& box, Add const& add) {
        if (growChild(id, slot, box, add)) {
            keepShallow(id);
        }
    }

    /// @return whether the height over the number of boxes may have risen
    template <std::invocable<Id> Add>
    bool growChild(Id id, int slot, Box const& box, Add const& add) {
        Id const child = pool_[id].child[slot];
        std::uint32_t const boxesBefore = pool_[child].boxes;
        add(child);
        Node& node = pool_[id];
        node.growSlot(slot, box);
        node.boxes += pool_[child].boxes - boxesBefore;
        std::uint8_t const heightBefore = std::exchange(node.heights[slot], pool_[child].height());
        return node.heights[slot] != heightBefore || pool_[child].boxes < boxesBefore;
    }

    /// The slots whose points, not just bounds, the box meets; there is one.
    unsigned slotsSharingPoints(Id id, Box const& box) const noexcept {
        Node const& node = pool_[id];
        unsigned slots = node.slotsMeeting(box);
        if ((slots & (slots - 1)) != 0) {
            forEachSlot(slots, [&](int slot) {
                if (node.isNode(slot) && !meets(pool_, node.child[slot], box)) {
                    slots &= ~(1u << slot);
                }
            });
        }
        return slots;
    }

    void addToBox(Id id, int slot, Box const& box) {
        Box const stored = pool_[id].box(slot);
        Box grown = stored;
        if (absorb(grown, box)) {
            pool_[id].setBounds(slot, grown);
            points_ += wideCount(grown) - wideCount(stored);
        } else {
            boost::container::static_vector<Box, kMostPieces> pieces;
            cutOutside(box, stored, [&](Box const& piece) { pieces.push_back(piece); });
            placePieces(id, pieces);
        }
    }

    void replaceChild(Id id, int slot, Box const& box) noexcept {
        Node& node = pool_[id];
        node.boxes -= pool_[node.child[slot]].boxes - 1;
        points_ -= pool_.dropTree(node.child[slot]);
        points_ += wideCount(box);
        node.setBox(slot, box);
    }

    /// Finds the place for a box that meets none under the node.
    /// @pre there is room for one node
    void place(Id id, Box const& box) noexcept {
        Node& node = pool_[id];
        if (node.count == 0) {
            return append(node, box);
        }
        pool_.prefetchChildren(node);
        auto const [slot, cost] = node.cheapest(box, isNear_);
        if (node.count < Node::kSlots && cost >= PlacementWeights<N>::kTooFar) {
            return append(node, box);
        }
        if (node.isNode(slot)) {
            changeChild(id, slot, box, [&](Id child) { place(child, box); });
        } else if (Box merged = node.box(slot); absorb(merged, box)) {
            node.setBounds(slot, merged);
        } else if (node.count < Node::kSlots) {
            append(node, box);
        } else {
            crowd(id, slot, cost, box);
            keepShallow(id);
        }
    }

    static void append(Node& node, Box const& box) noexcept {
        node.setBox(node.count++, box);
        ++node.boxes;
    }

    /// Makes a slot for a box that the cheapest of four, itself a box, does not absorb.
    void crowd(Id id, int cheapest, std::uint32_t cost, Box const& box) noexcept {
        Node& node = pool_[id];
        int first = 0;
        int second = 0;
        for (int i = 0; i < Node::kSlots - 1; ++i) {
            std::uint32_t pairCosts[Node::kSlots];
            node.costs(node.box(i), isNear_, pairCosts);
            for (int j = i + 1; j < Node::kSlots; ++j) {
                if (pairCosts[j] < cost) {
                    cost = pairCosts[j];
                    first = i;
                    second = j;
                }
            }
        }
        if (first != second) {
            mergeSlots(id, first, second);
            append(node, box);
        } else {
            Id const below = pool_.acquire(IndexNodeKind::Plain);
            append(pool_[below], node.box(cheapest));
            append(pool_[below], box);
            node.setNode(cheapest, below, pool_[below]);
            ++node.boxes;
        }
    }

    /// Brings what is in the slots `into` and `from` together in `into`, and the last slot into the place of `from`.
    /// The last one is then free for the box that crowds the node.
    void mergeSlots(Id id, int into, int from) noexcept {
        Node& node = pool_[id];
        Box merged = node.box(into);
        if (node.isNode(into) && !node.isNode(from)) {
            growChild(id, into, node.box(from), [&](Id child) { place(child, node.box(from)); });
            --node.boxes;
        } else if (!node.isNode(into) && !node.isNode(from) && absorb(merged, node.box(from))) {
            node.setBounds(into, merged);
            --node.boxes;
        } else {
            Id const below = pool_.acquire(IndexNodeKind::Plain);
            adopt(pool_[below], node, into);
            adopt(pool_[below], node, from);
            node.setNode(into, below, pool_[below]);
        }
        node.copySlot(from, node, --node.count);
    }

    void adopt(Node& node, Node const& source, int slot) noexcept {
        node.copySlot(node.count++, source, slot);
        node.boxes += source.isNode(slot) ? pool_[source.child[slot]].boxes : 1;
    }

    Pool pool_;
    WideCount points_ = 0;
    bool isNear_ = true;       // whether no coordinate ever was beyond Node::kNear
    bool isOutgrown_ = false;  // whether a part of the tree was ever too deep
};

}  // namespace Quorvel::Dravik::Adt::Detail
