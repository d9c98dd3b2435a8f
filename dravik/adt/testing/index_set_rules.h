// SPDX-License-Identifier: Apache-2.0
#pragma once

// The rules by which an index set stores its boxes, word for word and slowly: owned nodes, every question answered by
// trying all boxes, nothing ever rebuilt, grids divided at once. One object belongs to one thread.

#include "dravik/adt/core/detail/index_set_box.h"

#include <cmath>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::Testing {

/// Stored boxes in order, each with its depth in the tree.
template <int N>
using StoredBoxes = std::vector<std::pair<OpenEndedRange<N, int>, int>>;

/// A set that is no grid.
template <int N>
class IndexSetRules {
  public:
    using Box = OpenEndedRange<N, int>;

    IndexSetRules() = default;
    explicit IndexSetRules(Box const& box) : box_(box) {}

    void add(Box const& r) {
        if (r.isEmpty() || (children_.empty() && Adt::Detail::absorb(box_, r))) {
            return;
        }
        if (children_.empty()) {
            children_.emplace_back(std::exchange(box_, Box{}));
        } else if (Adt::Detail::encloses(r, bounds())) {
            *this = IndexSetRules(r);
            return;
        }
        addToNode(r);
    }

    void remove(Box const& r) {
        removeFrom(r);
        if (children_.size() == 1 && children_[0].children_.empty()) {
            pullUp();
        }
    }

    StoredBoxes<N> boxes(int depth = 0) const {
        StoredBoxes<N> all;
        for (IndexSetRules const& child : children_) {
            auto const below = child.boxes(depth + 1);
            all.insert(all.end(), below.begin(), below.end());
        }
        if (children_.empty() && !box_.isEmpty()) {
            all.emplace_back(box_, depth);
        }
        return all;
    }

    /// Whether some subtree is deeper than 8 + 2 log2(its boxes).
    bool isTooDeep() const {
        double boxCount = 0;
        int height = 0;
        bool below = false;
        for (auto const& [box, depth] : boxes()) {
            ++boxCount;
            height = std::max(height, depth);
        }
        for (IndexSetRules const& child : children_) {
            below = below || child.isTooDeep();
        }
        return below || (boxCount > 0 && height > 8 + 2 * std::log2(boxCount));
    }

  private:
    static std::uint32_t cost(Box const& child, Box const& r) {
        static constexpr std::uint32_t kOverlap[] = {0x7FFFFFFF, 0x2AAAAAAA, 0x15555555, 0x0CCCCCCC};
        static constexpr std::uint32_t kSeparation[] = {0x7FFFFFFF, 0x55555555, 0x3FFFFFFF, 0x33333333};
        static constexpr std::int64_t kOffset[] = {0x3FFFFFFF, 0x15555555, 0x0AAAAAAA, 0x06666666};
        std::uint32_t penalty = 0;
        std::int64_t gaps = 0;
        for (int axis = 0; axis < N; ++axis) {
            if (child.min[axis] != r.min[axis] || child.max[axis] != r.max[axis]) {
                std::int64_t const below = std::int64_t{child.min[axis]} - r.max[axis];
                std::int64_t const gap = std::max(below, std::int64_t{r.min[axis]} - child.max[axis]);
                penalty += gap <= 0 ? kOverlap[N - 1] : kSeparation[N - 1];
                gaps += gap;
            }
        }
        return penalty +
               static_cast<std::uint32_t>(std::clamp<std::int64_t>(gaps + kOffset[N - 1], 0, kOverlap[N - 1]));
    }

    static void cut(Box const& piece, Box const& hole, std::vector<Box>& rest) {
        if (piece.intersects(hole)) {
            Adt::Detail::cutOutside(piece, hole, [&](Box const& part) { rest.push_back(part); });
        } else {
            rest.push_back(piece);
        }
    }

    Box bounds() const {
        auto const all = boxes();
        Box around = all.empty() ? Box{} : all[0].first;
        for (auto const& [box, depth] : all) {
            for (int axis = 0; axis < N; ++axis) {
                around.min[axis] = std::min(around.min[axis], box.min[axis]);
                around.max[axis] = std::max(around.max[axis], box.max[axis]);
            }
        }
        return around;
    }

    void pullUp() {
        IndexSetRules only = std::move(children_[0]);
        *this = std::move(only);
    }

    void addToNode(Box const& r) {
        std::vector<IndexSetRules*> hit;
        for (IndexSetRules& child : children_) {
            auto const below = child.boxes();
            if (std::any_of(below.begin(), below.end(), [&](auto const& at) { return at.first.intersects(r); })) {
                hit.push_back(&child);
            }
        }
        if (hit.empty()) {
            place(r);
        } else if (hit.size() == 1 && !hit[0]->children_.empty()) {
            hit[0]->add(r);
        } else if (hit.size() > 1 || !Adt::Detail::absorb(hit[0]->box_, r)) {
            std::vector<Box> pieces{r};
            for (IndexSetRules const* child : hit) {
                for (auto const& [stored, depth] : child->boxes()) {
                    std::vector<Box> rest;
                    for (Box const& piece : pieces) {
                        cut(piece, stored, rest);
                    }
                    pieces = rest;
                }
            }
            for (Box const& piece : pieces) {
                addToNode(piece);
            }
        }
    }

    void place(Box const& r) {
        constexpr std::uint32_t kTooFar[] = {0xFFFFFFFE, 0xAAAAAAAA, 0x7FFFFFFE, 0x66666666};
        IndexSetRules* cheapest = nullptr;
        std::uint32_t lowest = 0;
        for (IndexSetRules& child : children_) {
            if (std::uint32_t const each = cost(child.bounds(), r); cheapest == nullptr || each < lowest) {
                cheapest = &child;
                lowest = each;
            }
        }
        bool const free = children_.size() < 4;
        if (cheapest == nullptr || (free && lowest >= kTooFar[N - 1])) {
            children_.emplace_back(r);
        } else if (!cheapest->children_.empty()) {
            cheapest->add(r);
        } else if (Adt::Detail::absorb(cheapest->box_, r)) {
            return;
        } else if (free) {
            children_.emplace_back(r);
        } else {
            crowd(*cheapest, lowest, r);
        }
    }

    void crowd(IndexSetRules& cheapest, std::uint32_t lowest, Box const& r) {
        std::size_t first = 0;
        std::size_t second = 0;
        for (std::size_t i = 0; i < 4; ++i) {
            for (std::size_t j = i + 1; j < 4; ++j) {
                std::uint32_t const each = cost(children_[i].bounds(), children_[j].bounds());
                if (each < lowest) {
                    lowest = each;
                    first = i;
                    second = j;
                }
            }
        }
        if (second == 0) {
            cheapest.children_.emplace_back(std::exchange(cheapest.box_, Box{}));
            cheapest.children_.emplace_back(r);
            return;
        }
        IndexSetRules& into = children_[first];
        IndexSetRules& from = children_[second];
        if (from.children_.empty() && (!into.children_.empty() || Adt::Detail::absorb(into.box_, from.box_))) {
            into.add(from.box_);
        } else {
            IndexSetRules both;
            both.children_.push_back(std::move(into));
            both.children_.push_back(std::move(from));
            into = std::move(both);
        }
        if (second != 3) {
            from = std::move(children_[3]);
        }
        children_[3] = IndexSetRules(r);
    }

    void removeFrom(Box const& r) {
        if (children_.empty()) {
            if (!box_.intersects(r) || Adt::Detail::cutInPlace(box_, r)) {
                return;
            }
            children_.emplace_back(std::exchange(box_, Box{}));
        }
        std::vector<Box> pieces;
        std::vector<IndexSetRules> left;
        for (IndexSetRules& child : children_) {
            if (!child.children_.empty()) {
                child.removeFrom(r);
                if (child.children_.size() == 1) {
                    child.pullUp();
                }
            } else if (child.box_.intersects(r) && !Adt::Detail::cutInPlace(child.box_, r)) {
                cut(std::exchange(child.box_, Box{}), r, pieces);
            }
            if (!child.children_.empty() || !child.box_.isEmpty()) {
                left.push_back(std::move(child));
            }
        }
        children_ = std::move(left);
        for (Box const& piece : pieces) {
            addToNode(piece);
        }
    }

    Box box_;                              // the set itself while there are no children
    std::vector<IndexSetRules> children_;  // four at most
};

/// The cells of a grid over a rounded place, by the rules of cutting: what a grid stores when all of it is added.
template <int N>
void appendCells(FixedVector<N, int> const& g, OpenEndedRange<N, int> const& place, int depth, StoredBoxes<N>& cells) {
    int axes[2] = {-1, -1};
    for (int& longest : axes) {
        for (int axis = 0; axis < N; ++axis) {
            bool const open = axis != axes[0] && place.size(axis) > g[axis];
            longest = open && (longest < 0 || place.size(axis) > place.size(longest)) ? axis : longest;
        }
    }
    auto const [p, q] = axes;
    if (p < 0) {
        cells.emplace_back(place, depth + 1);
        return;
    }
    if (q < 0 ? place.size(p) > 2 * g[p] : 2 * place.size(q) <= place.size(p)) {
        axes[1] = p;
    }
    std::vector<OpenEndedRange<N, int>> parts{place};
    for (int const axis : axes) {
        for (std::size_t i = 0; axis >= 0 && i < parts.size(); ++i) {
            int const min = parts[i].min[axis];
            int const max = parts[i].max[axis];
            int cut = (min + (max - min) / 2) / g[axis] * g[axis];
            cut = std::min(cut <= min ? min + g[axis] : cut, max);
            if (cut < max) {
                parts.insert(parts.begin() + static_cast<std::ptrdiff_t>(i), parts[i]);
                parts[i].max[axis] = parts[i + 1].min[axis] = cut;
                ++i;
            }
        }
    }
    for (auto const& part : parts) {
        appendCells(g, part, depth + 1, cells);
    }
}

}  // namespace Quorvel::Dravik::Adt::Testing
