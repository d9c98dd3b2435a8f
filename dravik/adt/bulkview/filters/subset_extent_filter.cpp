// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/subset_extent_filter.h"

#include "dravik/adt/bulkview/filters/detail/subset_block.h"
#include "dravik/adt/core/detail/saturated.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Filters {

namespace {

using Adt::Detail::saturated;

std::int64_t floorOfQuotient(std::int64_t dividend, std::int64_t divisor) {
    return dividend / divisor - (dividend % divisor < 0 ? 1 : 0);
}

/// Half-open interval of places in an extent.
struct Places {
    std::int64_t first = 0;
    std::int64_t end = 0;
};

/// Where in `extent` its indices of [low, high) stand; [0, 0) if it has none there.
Places placesWithin(ExtentImpl<int> const& extent, std::int64_t low, std::int64_t high) {
    // Distances from the origin in the direction of the extent: near is the first index that counts, far the last.
    std::int64_t const near = extent.step < 0 ? extent.origin - (high - 1) : low - extent.origin;
    std::int64_t const far = extent.step < 0 ? extent.origin - low : high - 1 - extent.origin;
    std::int64_t const step = std::max<std::int64_t>(std::abs(std::int64_t{extent.step}), 1);
    std::int64_t const first = std::max<std::int64_t>(-floorOfQuotient(-near, step), 0);
    std::int64_t const end = std::min<std::int64_t>(floorOfQuotient(far, step) + 1, extent.count);
    return first < end ? Places{first, end} : Places();
}

}  // namespace

SubsetExtentFilter::SubsetExtentFilter(std::unique_ptr<IBufferAccessor> target, ExtentK<4, int> const& extent) noexcept
    : SubsetFilter(std::move(target)), extent_(extent) {}

SubsetExtentFilter::SubsetExtentFilter(SubsetExtentFilter const& other) = default;
SubsetExtentFilter& SubsetExtentFilter::operator=(SubsetExtentFilter const& other) = default;
SubsetExtentFilter::~SubsetExtentFilter() = default;

void SubsetExtentFilter::setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) {
    OpenEndedRange<4, int> wanted;
    for (int axis = 0; axis < 4; ++axis) {
        auto const& [origin, step, count] = extent_.data()[axis];
        std::int64_t const first = origin + std::int64_t{step} * range.min.data()[axis];
        std::int64_t const last = origin + std::int64_t{step} * (std::int64_t{range.max.data()[axis]} - 1);
        wanted.min.data()[axis] = saturated<int>(step < 1 ? last : first);
        wanted.max.data()[axis] = saturated<int>((step < 1 ? first : last) + 1);
    }
    targetAccessor().setHint(type, wanted, weight);
}

void SubsetExtentFilter::getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) {
    targetAccessor().getBuffer(extent_.at(position), access, handle);

    Detail::SubsetBlock block(handle.infoSnapshot());
    for (int axis = 0; axis < 4; ++axis) {
        ExtentImpl<int> const& extent = extent_.data()[axis];
        Places const places = placesWithin(extent, block.min(axis), block.max(axis));
        std::int64_t const firstIndex = extent.origin + places.first * extent.step;
        block.relabel(axis, firstIndex - block.min(axis), places.first, places.end);
        block.decimate(axis, extent.step);
    }
    handle.relabel(block.info());
}

std::unique_ptr<IBufferAccessor> SubsetExtentFilter::createClone() const {
    return std::make_unique<SubsetExtentFilter>(*this);
}

ExtentK<4, int> SubsetExtentFilter::getSubset() const {
    return extent_;
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
