// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/core/index_set.h"

#include "dravik/adt/core/detail/index_set_bulk.h"
#include "dravik/adt/core/detail/index_set_tree.h"

#include <algorithm>

namespace Quorvel::Dravik::Adt {

namespace {

using Detail::encloses;
using Detail::WideCount;

// Up to here no tree of so many boxes can be deep enough to be rebuilt.
constexpr std::size_t kFewBoxes = 16;

template <int N>
bool isInverted(OpenEndedRange<N, int> const& box) noexcept {
    return !box.max.allGreaterEqual(box.min);
}

// The box [p, p + 1), inverted where p + 1 leaves int.
template <int N>
OpenEndedRange<N, int> boxOf(FixedVector<N, int> const& point) noexcept {
    return {point, point + FixedVector<N, int>::Filled(1)};
}

template <class TreePointer, int N>
WideCount pointCount(TreePointer const& tree, OpenEndedRange<N, int> const& bounds) noexcept {
    return tree ? tree->pointCount() : Detail::wideCount(bounds);
}

template <int N>
void dump(OpenEndedRange<N, int> const& box, int depth, std::string& text) {
    text.append(" L ").append(std::to_string(depth)).append(" ");
    for (int axis = 0; axis < N; ++axis) {
        text.append("(").append(std::to_string(box.min[axis])).append("-");
        text.append(std::to_string(box.max[axis])).append(") , ");
    }
    text.append("\n");
}

template <int N>
void dump(Detail::IndexPool<N> const& pool, std::uint32_t id, int depth, std::string& text) {
    auto const& node = pool[id];
    for (int slot = 0; slot < node.count; ++slot) {
        if (node.isNode(slot)) {
            dump(pool, node.child[slot], depth + 1, text);
        } else if (node.holdsPoints(slot)) {
            dump(node.box(slot), depth + 1, text);
        }
    }
}

}  // namespace

template <int N>
void Detail::IndexSetTreePointer<N>::reset(Tree* tree) noexcept {
    delete std::exchange(tree_, tree);
}

template <int N, class T>
IndexSet<N, T>::IndexSet(Point const& point) noexcept : IndexSet(boxOf(point)) {}

template <int N, class T>
IndexSet<N, T>::IndexSet(Box const& box) noexcept : bounds_(isInverted(box) ? Box{} : box) {}

template <int N, class T>
IndexSet<N, T>::IndexSet(std::span<Box const> boxes) {
    std::vector<Box> list;
    std::copy_if(boxes.begin(), boxes.end(), std::back_inserter(list), [](Box const& box) { return !box.isEmpty(); });
    for (int axis = 0; axis < N && list.size() > kFewBoxes; ++axis) {
        Detail::mergeAlong<N>(axis, list);
    }
    *this = OfDisjoint(list);
    if (list.size() <= kFewBoxes) {
        return;
    }
    auto const overlapping = Detail::takeOverlapping<N>(tree_->pool(), list);
    if (!overlapping.empty()) {
        *this = OfDisjoint(list);
    }
    for (Box const& box : overlapping) {
        add(box);
    }
}

template <int N, class T>
IndexSet<N, T>::IndexSet(Point const& granularity, Box const& range) {
    if (range.isEmpty() || !granularity.allGreaterEqual(Point::Filled(1))) {
        return;
    }
    Detail::IndexGrid<N> const grid(granularity, range);
    // A place that is one cell needs no grid: an ordinary node without boxes.
    tree_.reset(grid.isCell(grid.place()) ? new Tree : new Tree(grid));
}

template <int N, class T>
IndexSet<N, T>::IndexSet(IndexSet const& other)
    : bounds_(other.bounds_), tree_(other.tree_ ? new Tree(*other.tree_) : nullptr) {}

template <int N, class T>
IndexSet<N, T>& IndexSet<N, T>::operator=(IndexSet const& other) {
    return *this = IndexSet(other);
}

template <int N, class T>
IndexSet<N, T>::IndexSet(IndexSet&& other) noexcept
    : bounds_(std::exchange(other.bounds_, Box{})), tree_(std::move(other.tree_)) {}

template <int N, class T>
IndexSet<N, T>& IndexSet<N, T>::operator=(IndexSet&& other) noexcept {
    tree_ = std::move(other.tree_);
    bounds_ = std::exchange(other.bounds_, Box{});
    return *this;
}

// Boxes that are not empty: few, which may overlap, in turn; many in a balanced tree.
template <int N, class T>
IndexSet<N, T> IndexSet<N, T>::OfDisjoint(std::vector<Box>& boxes) {
    IndexSet set;
    if (boxes.size() <= kFewBoxes) {
        for (Box const& box : boxes) {
            set.add(box);
        }
    } else {
        set.tree_.reset(new Tree(boxes));
        set.bounds_ = set.tree_->bounds();
    }
    return set;
}

template <int N, class T>
template <class Change>
void IndexSet<N, T>::changeTree(Change const& change) {
    struct Refresh {
        IndexSet& set;
        ~Refresh() { set.bounds_ = set.tree_->bounds(); }
    };
    if (tree_) {
        Refresh const refresh{*this};
        change(*tree_);
    } else {
        TreePointer tree(new Tree(std::span(&bounds_, 1)));
        change(*tree);
        tree_ = std::move(tree);
        bounds_ = tree_->bounds();
    }
}

template <int N, class T>
void IndexSet<N, T>::add(Point const& point) {
    add(boxOf(point));
}

template <int N, class T>
void IndexSet<N, T>::add(Box const& box) {
    if (box.isEmpty()) {
        return;
    }
    if (!tree_ && Detail::absorb(bounds_, box)) {
        return;
    }
    if (tree_ && !tree_->isGrid() && (isEmpty() || encloses(box, bounds_))) {
        bounds_ = box;
        tree_.reset();
        return;
    }
    changeTree([&](Tree& tree) { tree.add(box); });
}

template <int N, class T>
void IndexSet<N, T>::add(IndexSet const& other) {
    if (this != &other) {
        for (Box const& box : other.boxes()) {
            add(box);
        }
    }
}

template <int N, class T>
void IndexSet<N, T>::remove(Point const& point) {
    remove(boxOf(point));
}

template <int N, class T>
void IndexSet<N, T>::remove(Box const& box) {
    if (!bounds_.intersects(box) || (!tree_ && Detail::cutInPlace(bounds_, box))) {
        return;
    }
    changeTree([&](Tree& tree) { tree.remove(box); });
    if (!tree_->isGrid() && tree_->boxCount() == 1) {
        tree_.reset();
    }
}

template <int N, class T>
void IndexSet<N, T>::remove(IndexSet const& other) {
    if (this == &other) {
        return remove(bounds_);
    }
    for (Box const& box : other.boxes()) {
        remove(box);
    }
}

template <int N, class T>
void IndexSet<N, T>::clear() {
    if (tree_ && tree_->isGrid()) {
        tree_->clearGrid();
    } else {
        tree_.reset();
    }
    bounds_ = Box{};
}

template <int N, class T>
bool IndexSet<N, T>::isRange() const noexcept {
    return pointCount(tree_, bounds_) == Detail::wideCount(bounds_);
}

template <int N, class T>
std::int64_t IndexSet<N, T>::size() const noexcept {
    return Detail::pointsOf(pointCount(tree_, bounds_));
}

template <int N, class T>
bool IndexSet<N, T>::contains(Point const& point) const noexcept {
    return bounds_.contains(point) && (!tree_ || Detail::findRange(tree_->pool(), point));
}

template <int N, class T>
bool IndexSet<N, T>::isSubset(Box const& box) const noexcept {
    return box.isEmpty() ||
           (encloses(bounds_, box) && (!tree_ || Detail::IndexCoverTest<N>(tree_->pool(), box).covered()));
}

template <int N, class T>
bool IndexSet<N, T>::isSubset(IndexSet const& other) const {
    if (other.isEmpty() || !encloses(bounds_, other.bounds_) ||
        pointCount(tree_, bounds_) < pointCount(other.tree_, other.bounds_)) {
        return other.isEmpty();
    }
    auto const boxes = other.boxes();
    return std::all_of(boxes.begin(), boxes.end(), [&](Box const& box) { return isSubset(box); });
}

template <int N, class T>
bool IndexSet<N, T>::intersects(Box const& box) const noexcept {
    return bounds_.intersects(box) && (!tree_ || Detail::meets(tree_->pool(), Detail::IndexPool<N>::kRoot, box));
}

template <int N, class T>
bool IndexSet<N, T>::intersects(IndexSet const& other) const {
    auto const boxes = other.boxes();
    return bounds_.intersects(other.bounds_) &&
           std::any_of(boxes.begin(), boxes.end(), [&](Box const& box) { return intersects(box); });
}

template <int N, class T>
template <class Visit>
void IndexSet<N, T>::forEachMeeting(Box const& box, Visit const& visit) const {
    if (tree_) {
        Detail::forEachMeeting(tree_->pool(), Detail::IndexPool<N>::kRoot, box, visit);
    } else {
        visit(bounds_);
    }
}

// Appends what this set and the box have in common, as one box where all of it within the bounds is here.
template <int N, class T>
void IndexSet<N, T>::appendCommon(Box const& box, std::vector<Box>& common) const {
    std::size_t const before = common.size();
    Box const within = bounds_.intersection(box);
    WideCount found = 0;
    forEachMeeting(within, [&](Box const& stored) {
        common.push_back(stored.intersection(within));
        found += Detail::wideCount(common.back());
    });
    if (found == Detail::wideCount(within)) {
        common.resize(before);
        common.push_back(within);
    }
}

template <int N, class T>
IndexSet<N, T> IndexSet<N, T>::intersection(Box const& box) const {
    return intersection(IndexSet(box));
}

template <int N, class T>
IndexSet<N, T> IndexSet<N, T>::intersection(IndexSet const& other) const {
    std::vector<Box> common;
    if (bounds_.intersects(other.bounds_)) {
        other.forEachMeeting(bounds_, [&](Box const& box) { appendCommon(box, common); });
    }
    return OfDisjoint(common);
}

template <int N, class T>
auto IndexSet<N, T>::getAnyRange() const -> Box {
    if (!tree_) {
        return bounds_;
    }
    auto const first = boxes().begin();
    return first == boxes().end() ? Box{} : *first;
}

template <int N, class T>
auto IndexSet<N, T>::getAnyRange(Point const& point) const noexcept -> Box {
    if (!tree_) {
        return bounds_.contains(point) ? bounds_ : Box{};
    }
    auto const place = Detail::findRange(tree_->pool(), point);
    return place ? place.box() : Box{};
}

template <int N, class T>
std::string IndexSet<N, T>::toString() const {
    std::string text;
    if (tree_) {
        dump(tree_->pool(), Detail::IndexPool<N>::kRoot, 0, text);
    } else {
        dump(bounds_, 0, text);
    }
    return text;
}

template <int N, class T>
bool IndexSet<N, T>::equals(IndexSet const& other) const {
    return bounds_ == other.bounds_ && pointCount(tree_, bounds_) == pointCount(other.tree_, other.bounds_) &&
           isSubset(other);
}

template <int N, class T>
bool IndexSet<N, T>::equals(Box const& box) const noexcept {
    return bounds_ == (isInverted(box) ? Box{} : box) && isRange();
}

template class Detail::IndexSetTreePointer<1>;
template class Detail::IndexSetTreePointer<2>;
template class Detail::IndexSetTreePointer<3>;
template class Detail::IndexSetTreePointer<4>;
template class IndexSet<1, int>;
template class IndexSet<2, int>;
template class IndexSet<3, int>;
template class IndexSet<4, int>;

}  // namespace Quorvel::Dravik::Adt
