// SPDX-License-Identifier: Apache-2.0
#pragma once

// SubsetBlock: a lent block on its way from the labels of a target to those of a subset. Threads: as `int`.

#include "dravik/adt/bulkview/buffer_handle.h"

#include <cstdint>

namespace Quorvel::Dravik::Adt::BulkView::Filters::Detail {

/// The description of a block, in 64 bits while it is rewritten axis by axis.
///
/// Positions that leave 64 bits wrap. Threads: as `int`.
class SubsetBlock {
  public:
    explicit SubsetBlock(BufferHandle::ArrayInfo const& info) noexcept;

    std::int64_t min(int axis) const noexcept { return axes_[axis].min; }
    std::int64_t max(int axis) const noexcept { return axes_[axis].max; }

    /// Lets the block start `indices` later along `axis`, and label what is left [min, max).
    void relabel(int axis, std::int64_t indices, std::int64_t min, std::int64_t max) noexcept;
    /// Takes every `step`-th sample along `axis` only; its labels stay.
    void decimate(int axis, int step) noexcept { axes_[axis].stride *= step; }

    /// The description in 32 bits. Of an empty block, and of an axis of one index, what does not fit is cut: nothing is
    /// read with it.
    /// @throws std::length_error if a non-empty block needs an offset or a stride beyond `int`
    BufferHandle::ArrayInfo info() const;

  private:
    struct Axis {
        std::int64_t min;
        std::int64_t max;
        std::int64_t stride;
    };
    Axis axes_[4];
    std::int64_t offset_;
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters::Detail
