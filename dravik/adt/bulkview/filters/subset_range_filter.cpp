// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/subset_range_filter.h"

#include "dravik/adt/bulkview/filters/detail/subset_block.h"
#include "dravik/adt/core/detail/saturated.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Filters {

using Adt::Detail::saturatedSum;

SubsetRangeFilter::SubsetRangeFilter(
    std::unique_ptr<IBufferAccessor> target, OpenEndedRange<4, int> const& range) noexcept
    : SubsetFilter(std::move(target)), range_(range) {}

SubsetRangeFilter::SubsetRangeFilter(SubsetRangeFilter const& other) = default;
SubsetRangeFilter& SubsetRangeFilter::operator=(SubsetRangeFilter const& other) = default;
SubsetRangeFilter::~SubsetRangeFilter() = default;

void SubsetRangeFilter::setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) {
    OpenEndedRange<4, int> wanted;
    for (int axis = 0; axis < 4; ++axis) {
        int const corner = range_.min.data()[axis];
        wanted.min.data()[axis] = saturatedSum(range.min.data()[axis], corner);
        wanted.max.data()[axis] = saturatedSum(range.max.data()[axis], corner);
    }
    targetAccessor().setHint(type, wanted, weight);
}

void SubsetRangeFilter::getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) {
    targetAccessor().getBuffer(position + range_.min, access, handle);
    Detail::SubsetBlock block(handle.infoSnapshot());
    for (int axis = 0; axis < 4; ++axis) {
        std::int64_t const corner = range_.min.data()[axis];
        std::int64_t const cut = std::max<std::int64_t>(corner - block.min(axis), 0);
        std::int64_t const end = std::min<std::int64_t>(block.max(axis), range_.max.data()[axis]);
        block.relabel(axis, cut, block.min(axis) + cut - corner, end - corner);
    }
    handle.relabel(block.info());
}

std::unique_ptr<IBufferAccessor> SubsetRangeFilter::createClone() const {
    return std::make_unique<SubsetRangeFilter>(*this);
}

ExtentK<4, int> SubsetRangeFilter::getSubset() const {
    return ExtentK<4, int>(range_);
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
