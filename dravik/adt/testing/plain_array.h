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
    FixedVector<4, int> p;
    for (p[0] = box.min[0]; p[0] < box.max[0]; ++p[0]) {
        for (p[1] = box.min[1]; p[1] < box.max[1]; ++p[1]) {
            for (p[2] = box.min[2]; p[2] < box.max[2]; ++p[2]) {
                for (p[3] = box.min[3]; p[3] < box.max[3]; ++p[3]) {
                    if (!visit(static_cast<FixedVector<4, int> const&>(p))) {
                        return;
                    }
                }
            }
        }
    }
}

/// Whether two samples have the same bits, as any two quiet NaNs of ours have.
template <class T>
bool sameSample(T const& left, T const& right) {
    return std::memcmp(&left, &right, sizeof(T)) == 0;
}

}  // namespace Quorvel::Dravik::Adt::Testing
