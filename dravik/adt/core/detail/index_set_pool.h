// SPDX-License-Identifier: Apache-2.0
#pragma once

// All nodes of one tree in one array. Nodes name each other by their place, so copying a tree copies the array, and
// giving it up is one deallocation however deep the tree is. Threads: as `int`.

#include "dravik/adt/core/detail/index_set_node.h"

#include <bit>
#include <cstddef>
#include <new>
#include <vector>

namespace Quorvel::Dravik::Adt::Detail {

/// Owns the nodes; place 0 is the root. References to nodes last until the next makeRoom().
template <int N>
class IndexPool {
  public:
    using Node = IndexNode<N>;
    using Id = std::uint32_t;

    static constexpr Id kRoot = 0;
    static constexpr std::size_t kMostNodes = std::size_t{1} << 30;  ///< lets 32 bits count their boxes

    explicit IndexPool(IndexNodeKind root) : nodes_(1, Node(root)) {}

    Node& operator[](Id id) noexcept { return nodes_[id]; }
    Node const& operator[](Id id) const noexcept { return nodes_[id]; }
    Node const& root() const noexcept { return nodes_[kRoot]; }

    /// Calls for the children's memory while the node itself is still being looked at: one of them comes next, and
    /// which one is known late. Halves a look-up among 100 000 boxes. Among 1000, whose nodes are in the cache anyway,
    /// it would lengthen one by two fifths.
    void prefetchChildren(Node const& node) const noexcept {
        constexpr std::size_t kCacheLine = 64;
        constexpr std::size_t kSecondLevelCache = 256 * 1024;  // bytes
        if (nodes_.size() < kSecondLevelCache / sizeof(Node)) {
            return;
        }
        for (Id const id : node.child) {
            auto const* const child = reinterpret_cast<unsigned char const*>(&nodes_[id]);
            for (std::size_t line = 0; line < sizeof(Node); line += kCacheLine) {
                __builtin_prefetch(child + line);
            }
        }
    }

    /// Makes sure of `count` calls of acquire().
    /// @throws std::bad_alloc and changes nothing
    void makeRoom(std::size_t count) {
        std::size_t const wanted = nodes_.size() + (count > free_.size() ? count - free_.size() : 0);
        if (wanted > kMostNodes) {
            throw std::bad_alloc();
        }
        if (wanted > nodes_.capacity()) {
            nodes_.reserve(std::max(wanted, 2 * nodes_.capacity()));
        }
    }

    /// An empty node.
    /// @pre makeRoom() has made sure of it
    Id acquire(IndexNodeKind kind) noexcept {
        if (free_.empty()) {
            nodes_.emplace_back(kind);
            return static_cast<Id>(nodes_.size() - 1);
        }
        Id const id = free_.take(nodes_);
        nodes_[id] = Node(kind);
        return id;
    }

    /// Gives up one node, whatever it names.
    void drop(Id id) noexcept { free_.put(nodes_, id); }

    /// Gives up the node and all below it.
    /// @return the points that were there
    WideCount dropTree(Id id) noexcept {
        WideCount points = 0;
        for (int slot = 0; slot < nodes_[id].count; ++slot) {
            Node const& node = nodes_[id];
            points += node.isNode(slot) ? dropTree(node.child[slot]) : wideCount(node.box(slot));
        }
        drop(id);
        return points;
    }

  private:
    // Given-up nodes, chained through their first child.
    class FreeList {
      public:
        bool empty() const noexcept { return size_ == 0; }
        std::size_t size() const noexcept { return size_; }
        void put(std::vector<Node>& nodes, Id id) noexcept {
            nodes[id].child[0] = first_;
            first_ = id;
            ++size_;
        }
        Id take(std::vector<Node>& nodes) noexcept {
            --size_;
            Id const id = first_;
            first_ = nodes[id].child[0];
            return id;
        }

      private:
        Id first_ = 0;
        std::size_t size_ = 0;
    };

    std::vector<Node> nodes_;
    FreeList free_;
};

/// While it lives, one child node is being changed: at the end, however it comes, the slot above and the count of boxes
/// follow. Lets every change be cut short by an exception and still leave a sound tree.
template <int N>
class IndexSlotUpdate {
  public:
    IndexSlotUpdate(IndexPool<N>& pool, std::uint32_t parent, int slot) noexcept
        : pool_(pool), parent_(parent), slot_(slot), boxesBefore_(child().boxes) {}
    IndexSlotUpdate(IndexSlotUpdate const&) = delete;
    IndexSlotUpdate& operator=(IndexSlotUpdate const&) = delete;
    ~IndexSlotUpdate() {
        IndexNode<N>& parent = pool_[parent_];
        parent.setNode(slot_, parent.child[slot_], child());
        parent.boxes += child().boxes - boxesBefore_;
    }

  private:
    IndexNode<N> const& child() const noexcept { return pool_[pool_[parent_].child[slot_]]; }

    IndexPool<N>& pool_;
    std::uint32_t parent_;
    int slot_;
    std::uint32_t boxesBefore_;
};

}  // namespace Quorvel::Dravik::Adt::Detail
