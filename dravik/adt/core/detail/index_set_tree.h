// SPDX-License-Identifier: Apache-2.0
#pragma once

// The tree of boxes behind an index set that is not a single box: what a removal leaves, and the grid when there is
// one. Owns its nodes. Threads: as `int`.

#include "dravik/adt/core/detail/index_set_grid.h"
#include "dravik/adt/core/detail/index_set_placement.h"

#include <optional>

namespace Quorvel::Dravik::Adt::Detail {

/// Disjoint boxes, in the cells of a grid when there is one. Whatever runs out of memory leaves a sound tree, with a
/// part of the change made or none.
template <int N>
class IndexSetTree {
  public:
    using Box = IndexBox<N>;
    using Pool = IndexPool<N>;
    using Node = IndexNode<N>;
    using Id = typename Pool::Id;

    /// No box at all.
    IndexSetTree() : boxes_(IndexNodeKind::Plain) {}
    explicit IndexSetTree(IndexGrid<N> const& grid) : boxes_(IndexNodeKind::Divided), grid_(grid) {
        divide(Pool::kRoot, grid_->place());
    }

    /// These disjoint boxes, not empty, in a balanced tree; their order changes.
    explicit IndexSetTree(std::span<Box> boxes) : boxes_(boxes) {}

    Pool const& pool() const noexcept { return boxes_.pool(); }
    bool isGrid() const noexcept { return grid_.has_value(); }
    WideCount pointCount() const noexcept { return boxes_.pointCount(); }
    std::size_t boxCount() const noexcept { return pool().root().boxes; }

    /// The tight box around all points, or the empty box at the origin.
    Box bounds() const noexcept { return pointCount() == 0 ? Box{} : pool().root().bounds(); }

    /// Adds the points of a box that is not empty and, outside a grid, does not enclose all others.
    void add(Box const& box) {
        boxes_.expect(box);
        if (grid_) {
            addToGrid(Pool::kRoot, grid_->place(), box);
        } else {
            boxes_.addTo(Pool::kRoot, box);
        }
    }

    /// Removes the points of a box that is not empty.
    void remove(Box const& box) { removeFrom(Pool::kRoot, box); }

    /// Removes all points of a grid; the grid stays as far as it reaches.
    void clearGrid() {
        IndexSetTree cleared(*grid_);
        *this = std::move(cleared);
    }

  private:
    Pool& nodes() noexcept { return boxes_.pool(); }

    // Removing

    void removeFrom(Id id, Box const& box) {
        bool mustCut = false;
        // Downwards, so that closing up a slot moves none that is still to come.
        for (unsigned slots = nodes()[id].slotsMeeting(box); slots != 0;) {
            int const slot = static_cast<int>(std::bit_width(slots)) - 1;
            slots &= ~(1u << slot);
            if (nodes()[id].isNode(slot)) {
                removeFromChild(id, slot, box);
            } else {
                mustCut = !removeFromBox(nodes()[id], slot, box) || mustCut;
            }
        }
        if (mustCut) {
            cutBoxes(id, box);
        }
        boxes_.keepShallow(id);
    }

    void removeFromChild(Id id, int slot, Box const& box) {
        bool const stays = nodes()[id].kind == IndexNodeKind::Divided;
        if (encloses(box, nodes()[id].box(slot))) {
            Id const child = nodes()[id].child[slot];
            nodes()[id].boxes -= nodes()[child].boxes;
            boxes_.forget(nodes().dropTree(child));
            if (stays) {
                nodes()[id].clearSlot(slot);
            } else {
                nodes()[id].closeUp(slot);
            }
            return;
        }
        {
            IndexSlotUpdate<N> const update(nodes(), id, slot);
            removeFrom(nodes()[id].child[slot], box);
        }
        if (!stays) {
            fold(nodes()[id], slot);
        }
    }

    /// Replaces a child node that has one child left by that child. It has one: bounds are tight, so a box that takes
    /// all of its points encloses them.
    void fold(Node& node, int slot) noexcept {
        Id const child = node.child[slot];
        if (nodes()[child].count == 1) {
            node.copySlot(slot, nodes()[child], 0);
            nodes().drop(child);
        }
    }

    /// Whether what is left is one box or none.
    bool removeFromBox(Node& node, int slot, Box const& box) noexcept {
        Box const stored = node.box(slot);
        Box rest = stored;
        if (!cutInPlace(rest, box)) {
            return false;
        }
        boxes_.forget(wideCount(stored) - wideCount(rest));
        if (rest.isEmpty()) {
            node.closeUp(slot);
            --node.boxes;
        } else {
            node.setBounds(slot, rest);
        }
        return true;
    }

    /// Replaces the node's boxes that still meet `box` by their pieces outside.
    void cutBoxes(Id id, Box const& box) {
        boost::container::static_vector<Box, IndexPlacement<N>::kMostPieces * Node::kSlots> pieces;
        nodes().makeRoom(pieces.capacity());
        Node& node = nodes()[id];
        for (int slot = 0; slot < node.count;) {
            if (node.isNode(slot) || (node.slotsMeeting(box) >> slot & 1u) == 0) {
                ++slot;
                continue;
            }
            Box const stored = node.box(slot);
            cutOutside(stored, box, [&](Box const& piece) { pieces.push_back(piece); });
            boxes_.forget(wideCount(stored));
            node.closeUp(slot);
            --node.boxes;
        }
        boxes_.placePieces(id, pieces);
    }

    // The grid

    void divide(Id id, Box const& part) noexcept {
        Box parts[IndexGrid<N>::kMostParts];
        Node& node = nodes()[id];
        node.count = static_cast<std::uint8_t>(grid_->divide(part, parts));
    }

    void addToGrid(Id id, Box const& part, Box const& box) {
        Box parts[IndexGrid<N>::kMostParts];
        int const count = grid_->divide(part, parts);
        for (int slot = 0; slot < count; ++slot) {
            Box const inside = box.intersection(grid_->reach(parts[slot]));
            if (inside.isEmpty()) {
                continue;
            }
            touch(id, slot, parts[slot]);
            Id const child = nodes()[id].child[slot];
            IndexSlotUpdate<N> const update(nodes(), id, slot);
            if (nodes()[child].kind == IndexNodeKind::Divided) {
                addToGrid(child, parts[slot], inside);
            } else {
                boxes_.addTo(child, inside);
            }
        }
    }

    /// Makes sure that the part has a node.
    void touch(Id id, int slot, Box const& part) {
        if (nodes()[id].isNode(slot)) {
            return;
        }
        bool const isCell = grid_->isCell(part);
        nodes().makeRoom(1);
        Id const child = nodes().acquire(isCell ? IndexNodeKind::Cell : IndexNodeKind::Divided);
        if (!isCell) {
            divide(child, part);
        }
        nodes()[id].setNode(slot, child, nodes()[child]);
    }

    IndexPlacement<N> boxes_;
    std::optional<IndexGrid<N>> grid_;
};

}  // namespace Quorvel::Dravik::Adt::Detail
