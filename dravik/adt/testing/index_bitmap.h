// SPDX-License-Identifier: Apache-2.0
#pragma once

// The plain model of an index set: one flag per point of a small universe. One object belongs to one thread.

#include "dravik/adt/core/range.h"

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Quorvel::Dravik::Adt::Testing {

/// Calls `visit` with every point of the box, the last axis fastest.
template <int N, std::invocable<FixedVector<N, int> const&> Visit>
void forEachPoint(OpenEndedRange<N, int> const& box, Visit visit) {
    FixedVector<N, int> point = box.min;
    int axis = box.isEmpty() ? -1 : N - 1;
    while (axis >= 0) {
        visit(point);
        for (axis = N - 1; axis >= 0 && ++point[axis] == box.max[axis]; --axis) {
            point[axis] = box.min[axis];
        }
    }
}

/// A set of points within a universe; what lies outside is passed over.
template <int N>
class IndexBitmap {
  public:
    using Point = FixedVector<N, int>;
    using Box = OpenEndedRange<N, int>;

    explicit IndexBitmap(Box const& universe)
        : universe_(universe), flags_(static_cast<std::size_t>(universe.pointCount())) {}

    Box const& universe() const { return universe_; }
    bool contains(Point const& point) const { return universe_.contains(point) && flags_[place(point)] != 0; }

    void set(Box box, bool value) {
        box.intersect(universe_);
        forEachPoint(box, [&](Point const& point) { flags_[place(point)] = value; });
    }

    /// Keeps or drops, point by point, by what `other` has there.
    void combine(IndexBitmap const& other, auto const& operation) {
        std::transform(flags_.begin(), flags_.end(), other.flags_.begin(), flags_.begin(), operation);
    }

    std::int64_t size() const { return std::count(flags_.begin(), flags_.end(), 1); }

    /// The tight box around the points, or the empty box at the origin.
    Box bounds() const {
        Box all;
        forEachPoint(universe_, [&](Point const& point) {
            if (contains(point)) {
                all = all.isEmpty() ? Box{point, point} : all;
                for (int axis = 0; axis < N; ++axis) {
                    all.min[axis] = std::min(all.min[axis], point[axis]);
                    all.max[axis] = std::max(all.max[axis], point[axis] + 1);
                }
            }
        });
        return all;
    }

    /// How many points of the box, which lies in the universe, are in the set.
    std::int64_t countIn(Box const& box) const {
        std::int64_t count = 0;
        forEachPoint(box, [&](Point const& point) { count += contains(point); });
        return count;
    }

    friend bool operator==(IndexBitmap const&, IndexBitmap const&) = default;

  private:
    std::size_t place(Point const& point) const {
        std::size_t place = 0;
        for (int axis = 0; axis < N; ++axis) {
            place = place * static_cast<std::size_t>(universe_.size(axis)) +
                    static_cast<std::size_t>(point[axis] - universe_.min[axis]);
        }
        return place;
    }

    Box universe_;
    std::vector<unsigned char> flags_;
};

}  // namespace Quorvel::Dravik::Adt::Testing
