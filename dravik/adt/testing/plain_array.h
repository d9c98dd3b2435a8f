// SPDX-License-Identifier: Apache-2.0
#pragma once

// PlainArray: the model that accessors and views are compared with. A value that owns its samples. Threads: as
// std::vector.

#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/core/range.h"
#include "dravik/adt/testing/random.h"

#include <cstddef>
#include <cstring>
#include <vector>

namespace Quorvel::Dravik::Adt::Testing {

/// Samples on four axes in one vector, last axis fastest; nothing clever.
template <class T>
class PlainArray {
  public:
    using Index = FixedVector<4, int>;
    using Box = OpenEndedRange<4, int>;

    explicit PlainArray(Index const& size)
        : box_(Box::OfSize(size)), samples_(static_cast<std::size_t>(box_.pointCount())) {}

    Index const& size() const { return box_.max; }
    Box const& box() const { return box_; }
    T& at(Index const& index) { return samples_.at(place(index)); }
    T const& at(Index const& index) const { return samples_.at(place(index)); }
    std::vector<T>& samples() { return samples_; }
    std::vector<T> const& samples() const { return samples_; }

    /// Whole numbers from 0 to `highest` in every sample.
    void fill(Random& random, int highest) {
        for (T& sample : samples_) {
            sample = static_cast<T>(random.between(0, highest));
        }
    }

    Index randomIndex(Random& random) const {
        Index index;
        for (int axis = 0; axis < 4; ++axis) {
            index[axis] = random.chance(40) ? random.oneOf({0, size()[axis] - 1}) : random.between(0, size()[axis] - 1);
        }
        return index;
    }

  private:
    std::size_t place(Index const& index) const {
        std::size_t place = 0;
        for (int axis = 0; axis < 4; ++axis) {
            place = place * static_cast<std::size_t>(size()[axis]) + static_cast<std::size_t>(index[axis]);
        }
        return place;
    }

    Box box_;
    std::vector<T> samples_;
};

/// Calls visit(index) for every index of a box, last axis fastest, until it returns false.
template <class Visit>
void forEachIndex(OpenEndedRange<4, int> const& box, Visit visit) {
    FixedVector<4, int> p = box.min;
    int axis = box.isEmpty() ? -1 : 3;
    while (axis >= 0 && visit(static_cast<FixedVector<4, int> const&>(p))) {
        for (axis = 3; axis >= 0 && ++p[axis] == box.max[axis]; --axis) {
            p[axis] = box.min[axis];
        }
    }
}

/// Whether two samples have the same bits, as any two quiet NaNs of ours have.
template <class T>
bool sameSample(T const& left, T const& right) {
    return std::memcmp(&left, &right, sizeof(T)) == 0;  // NOLINT(bugprone-suspicious-memory-comparison)
}

}  // namespace Quorvel::Dravik::Adt::Testing
