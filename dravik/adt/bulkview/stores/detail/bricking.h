// SPDX-License-Identifier: Apache-2.0
#pragma once

// Bricking: how a data set is cut into bricks. Threads: as `int`.

#include "dravik/adt/bulkview/regions/access_traits.h"
#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/core/range.h"

namespace Quorvel::Dravik::Adt::BulkView::Detail {

/// Bricks of one size laid out from an origin and cut at the data set's ends.
class Bricking {
  public:
    using Index = FixedVector<4, int>;
    using Box = OpenEndedRange<4, int>;

    /// The natural block of `traits` is the brick. Where that leaves an axis open, the brick grows along the last axes
    /// to about 2^16 samples.
    /// @throws std::invalid_argument for an empty size, std::length_error for bricks of 2^31 samples or more
    Bricking(Index const& size, AccessTraits const& traits);

    Index const& size() const noexcept { return size_; }
    Index const& brick() const noexcept { return brick_; }

    /// The brick around an index.
    Box boxAround(Index const& index) const noexcept;

    /// Calls visit(box) for each brick that meets `range`, the last axis fastest, until it returns false.
    template <class Visit>
    void forEachBrick(Box const& range, Visit visit) const {
        Index at = range.min;
        for (bool isMore = !range.isEmpty(); isMore;) {
            Box const box = boxAround(at);
            if (!visit(box)) {
                return;
            }
            int axis = 3;
            while (axis >= 0 && box.max.data()[axis] >= range.max.data()[axis]) {
                at.data()[axis] = range.min.data()[axis];
                --axis;
            }
            isMore = axis >= 0;
            if (isMore) {
                at.data()[axis] = box.max.data()[axis];
            }
        }
    }

  private:
    int origin(int axis) const noexcept { return origin_.data()[axis]; }

    Index size_;
    Index brick_;
    Index origin_;  // in (-brick, 0]: where the first brick would begin, were it not cut
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
