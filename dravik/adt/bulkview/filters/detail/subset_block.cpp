// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/detail/subset_block.h"

#include "dravik/adt/core/detail/saturated.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string>

namespace Quorvel::Dravik::Adt::BulkView::Filters::Detail {

namespace {

using Adt::Detail::saturated;

/// `samples` as an int.
/// @throws std::length_error if they do not fit
int narrowed(std::int64_t samples, char const* what) {
    if (samples != saturated<int>(samples)) {
        throw std::length_error(
            "[SubsetFilter::getBuffer] The subset lies too far into the lent block: " + std::string(what) + " of " +
            std::to_string(samples) + " samples, at most " + std::to_string(std::numeric_limits<int>::max()) +
            ". Let the target lend smaller blocks.");
    }
    return static_cast<int>(samples);
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
        bool const isStridden = !isEmpty && wide.max - wide.min > 1;
        info.range.min.data()[axis] = saturated<int>(wide.min);
        info.range.max.data()[axis] = saturated<int>(wide.max);
        info.strides.data()[axis] = isStridden ? narrowed(wide.stride, "a stride") : saturated<int>(wide.stride);
    }
    info.offset = isEmpty ? saturated<int>(offset_) : narrowed(offset_, "an offset");
    return info;
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters::Detail
