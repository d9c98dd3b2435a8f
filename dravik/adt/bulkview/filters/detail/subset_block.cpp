// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/detail/subset_block.h"

#include <algorithm>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkView::Filters::Detail {

namespace {

/// `value` as an int, cut where it does not fit and nothing `dependsOnIt`.
int fitted(std::int64_t value, bool dependsOnIt) {
    int const cut = Adt::Detail::saturated<int>(value);
    if (dependsOnIt && cut != value) {
        throw std::length_error("[SubsetFilter::getBuffer] The subset lies too far into the lent block.");
    }
    return cut;
}

}  // namespace

SubsetBlock::SubsetBlock(BufferHandle::ArrayInfo const& info) noexcept : offset_(info.offset) {
    for (int axis = 0; axis < 4; ++axis) {
        axes_[axis] = {info.range.min.data()[axis], info.range.max.data()[axis], info.strides.data()[axis]};
    }
}

void SubsetBlock::relabel(int axis, std::int64_t indices, std::int64_t min, std::int64_t max) noexcept {
    auto const advance = static_cast<std::uint64_t>(indices) * static_cast<std::uint64_t>(axes_[axis].stride);
    offset_ = static_cast<std::int64_t>(static_cast<std::uint64_t>(offset_) + advance);
    axes_[axis].min = min;
    axes_[axis].max = max;
}

BufferHandle::ArrayInfo SubsetBlock::info() const {
    bool const isEmpty = std::any_of(axes_, axes_ + 4, [](Axis const& axis) { return axis.max <= axis.min; });
    BufferHandle::ArrayInfo info;
    for (int axis = 0; axis < 4; ++axis) {
        Axis const& wide = axes_[axis];
        info.range.min.data()[axis] = fitted(wide.min, /*dependsOnIt=*/false);
        info.range.max.data()[axis] = fitted(wide.max, /*dependsOnIt=*/false);
        info.strides.data()[axis] = fitted(wide.stride, /*dependsOnIt=*/!isEmpty && wide.max - wide.min > 1);
    }
    info.offset = fitted(offset_, /*dependsOnIt=*/!isEmpty);
    return info;
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters::Detail
