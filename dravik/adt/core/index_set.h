// SPDX-License-Identifier: Apache-2.0
#pragma once

// IndexSet: any set of integer points of index space, as disjoint boxes. A value that owns its boxes: copying copies
// them all. Threads: as `int`; const questions change nothing, not even a cache.

#include "dravik/adt/core/index_set_box_iterator.h"
#include "dravik/adt/core/range.h"
#include "dravik/adt/export.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt {

namespace Detail {

template <int N>
class IndexSetTree;

/// Owns a tree or none, as std::unique_ptr does, whose header would weigh as much as this one.
template <int N>
class DRAVIK_ADT_EXPORT IndexSetTreePointer {
  public:
    using Tree = IndexSetTree<N>;

    explicit IndexSetTreePointer(Tree* tree = nullptr) noexcept : tree_(tree) {}
    IndexSetTreePointer(IndexSetTreePointer&& other) noexcept : tree_(std::exchange(other.tree_, nullptr)) {}
    IndexSetTreePointer& operator=(IndexSetTreePointer&& other) noexcept {
        reset(std::exchange(other.tree_, nullptr));
        return *this;
    }
    ~IndexSetTreePointer() { reset(); }

    void reset(Tree* tree = nullptr) noexcept;
    Tree* get() const noexcept { return tree_; }
    Tree* operator->() const noexcept { return tree_; }
    Tree& operator*() const noexcept { return *tree_; }
    explicit operator bool() const noexcept { return tree_ != nullptr; }

  private:
    Tree* tree_;
};

}  // namespace Detail

/// A set of points of N-dimensional index space (N = 1 ... 4), kept as a union of disjoint boxes.
///
/// One box, the common case, is held in place; more live in a tree with four children per node, on the heap. Boxes that
/// touch along a whole side become one where they meet in the tree. How the tree of a small set looks follows from the
/// order of changes alone. Where a subtree grows deeper than 8 + 2 log2(its boxes), which takes 18 boxes at least, it
/// is rebuilt, and the set is kept near balance from then on. Unit: absolute indices. The index 2^31 - 1 belongs to no
/// box and so to no set; a box whose corners are the wrong way round on an axis counts as the empty box at the origin.
/// Equality asks for the same points, and of empty sets for the same bounds.
///
/// A set made with a granularity is a grid: it keeps its boxes within cells and stays a grid when it is cleared.
///
/// Changes throw std::bad_alloc alone, and then leave the set with a part of the change made or none of it.
/// @complexity additions, removals and questions about one box: O(log n + boxes met) for boxes that are spread out
///
///     using Set = IndexSet<2, int>;
///     Set touched(Set::Box{{0, 0}, {4, 4}});
///     touched.remove(Set::Box{{1, 1}, {2, 2}});
///     touched.size();                                // 15
///     for (auto const& box : touched.boxes()) { … }  // four boxes
template <int N, class T>
class DRAVIK_ADT_EXPORT IndexSet {
    static_assert(std::same_as<T, int> && N >= 1 && N <= 4, "Compiled for one to four axes of int.");

  public:
    using Point = FixedVector<N, T>;
    using Box = OpenEndedRange<N, T>;
    using BoxIterator = IndexSetBoxIterator<N>;

    /// What boxes() gives.
    /// @lifetime as its iterators
    class Boxes {
      public:
        BoxIterator begin() const { return BoxIterator(set_->tree_.get(), set_->bounds_); }
        BoxIterator end() const noexcept { return BoxIterator(); }

      private:
        friend class IndexSet;
        explicit Boxes(IndexSet const& set) noexcept : set_(&set) {}
        IndexSet const* set_;
    };

    class OwnBoxes;

    /// The empty set: the empty box at the origin.
    IndexSet() noexcept = default;

    /// One point, or one box as it is given; an empty one keeps its corners.
    IndexSet(Point const& point) noexcept;
    IndexSet(Box const& box) noexcept;

    /// All points of the boxes, which may be empty, touch or overlap. As adding them in turn, but a large number ends
    /// up merged as far as boxes touch in one pass per axis, and balanced.
    /// @complexity O(n log n) for n boxes that hardly overlap
    explicit IndexSet(std::span<Box const> boxes);

    /// An empty grid over `range` rounded outwards to multiples of `granularity`, whose cells are no longer than that.
    /// Boxes added later are stored cut along the cells; the grid grows as they reach beyond it. Plainly empty for an
    /// empty range or a granularity below 1. Cells cost nothing until they are touched.
    IndexSet(Point const& granularity, Box const& range);

    IndexSet(IndexSet const& other);
    IndexSet& operator=(IndexSet const& other);
    /// Leaves `other` plainly empty.
    IndexSet(IndexSet&& other) noexcept;
    IndexSet& operator=(IndexSet&& other) noexcept;
    ~IndexSet() = default;

    /// Union with a point, a box, or the stored boxes of a set one after the other.
    void add(Point const& point);
    void add(Box const& box);
    void add(IndexSet const& other);

    /// Difference from a point, a box or a set.
    void remove(Point const& point);
    void remove(Box const& box);
    void remove(IndexSet const& other);

    /// Removes every point. A grid stays a grid; any other set becomes plainly empty and gives its memory back.
    void clear();

    bool isEmpty() const noexcept { return bounds_.isEmpty(); }

    /// Whether the set fills its bounds; an empty one does.
    bool isRange() const noexcept;

    /// The number of points; 2^63 - 1 for anything larger.
    std::int64_t size() const noexcept;

    /// The tight box around the set.
    Box const& bounds() const noexcept { return bounds_; }

    /// The number of points of bounds(); 2^63 - 1 for anything larger.
    std::int64_t boundsSize() const noexcept { return bounds_.pointCount(); }

    bool contains(Point const& point) const noexcept;

    /// Whether every point of the argument is one of this set; an empty argument always is.
    bool isSubset(Box const& box) const noexcept;
    bool isSubset(IndexSet const& other) const;

    /// Whether the two share a point.
    bool intersects(Box const& box) const noexcept;
    bool intersects(IndexSet const& other) const;

    /// The common points; plainly empty where there are none.
    IndexSet intersection(Box const& box) const;
    IndexSet intersection(IndexSet const& other) const;

    /// The first stored box; empty when the set is.
    Box getAnyRange() const;

    /// The stored box that contains `point`, or the empty box at the origin.
    Box getAnyRange(Point const& point) const noexcept;

    /// The stored boxes: `for (auto const& box : set.boxes())`. Of a temporary set they keep the set:
    /// `for (auto const& box : set.intersection(other).boxes())`.
    Boxes boxes() const& noexcept { return Boxes(*this); }
    OwnBoxes boxes() &&;
    OwnBoxes boxes() const&&;

    /// One line per stored box with its depth in the tree: " L 1 (0-4) , (1-3) , " for [0,4)x[1,3) under the top node.
    std::string toString() const;

    friend bool operator==(IndexSet const& left, IndexSet const& right) { return left.equals(right); }

    /// Whether the set is exactly that box; an empty set, whether its bounds are.
    friend bool operator==(IndexSet const& set, Box const& box) noexcept { return set.equals(box); }

    /// Writes the stored boxes: "{[0,2)x[0,1) [4,6)x[0,1)}".
    template <class Traits>
    friend std::basic_ostream<char, Traits>& operator<<(std::basic_ostream<char, Traits>& out, IndexSet const& set) {
        char const* separator = "";
        out << "{";
        for (Box const& box : set.boxes()) {
            out << separator << box;
            separator = " ";
        }
        return out << "}";
    }

  private:
    using Tree = Detail::IndexSetTree<N>;
    using TreePointer = Detail::IndexSetTreePointer<N>;

    static IndexSet OfDisjoint(std::vector<Box>& boxes);
    template <class Change>
    void changeTree(Change const& change);
    template <class Visit>
    void forEachMeeting(Box const& box, Visit const& visit) const;
    void appendCommon(Box const& box, std::vector<Box>& common) const;
    bool equals(IndexSet const& other) const;
    bool equals(Box const& box) const noexcept;

    Box bounds_;        // the set itself while there is no tree
    TreePointer tree_;  // null: a single box
};

/// The boxes of a set that was a temporary, and the set.
/// @lifetime that of this range
template <int N, class T>
class IndexSet<N, T>::OwnBoxes {
  public:
    explicit OwnBoxes(IndexSet set) noexcept : set_(std::move(set)) {}

    BoxIterator begin() const { return set_.boxes().begin(); }
    BoxIterator end() const noexcept { return BoxIterator(); }

  private:
    IndexSet set_;
};

/// @cond
template <int N, class T>
auto IndexSet<N, T>::boxes() && -> OwnBoxes {
    return OwnBoxes(std::move(*this));
}

template <int N, class T>
auto IndexSet<N, T>::boxes() const&& -> OwnBoxes {
    return OwnBoxes(*this);
}
/// @endcond

extern template class Detail::IndexSetTreePointer<1>;
extern template class Detail::IndexSetTreePointer<2>;
extern template class Detail::IndexSetTreePointer<3>;
extern template class Detail::IndexSetTreePointer<4>;
extern template class IndexSet<1, int>;
extern template class IndexSet<2, int>;
extern template class IndexSet<3, int>;
extern template class IndexSet<4, int>;

}  // namespace Quorvel::Dravik::Adt

template <int N, class T>
struct std::hash<Quorvel::Dravik::Adt::IndexSet<N, T>> {
    std::size_t operator()(Quorvel::Dravik::Adt::IndexSet<N, T> const& set) const {
        return Quorvel::Dravik::Adt::Detail::hashOf(set.bounds(), set.size());
    }
};
