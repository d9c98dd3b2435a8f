// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/subset_filter.h"

#include "dravik/adt/bulkview/filters/subset_extent_filter.h"
#include "dravik/adt/bulkview/filters/subset_range_filter.h"

#include "dravik/adt/bulkview/regions/region_transfer.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Filters {

namespace {

using Extent1 = ExtentImpl<int>;
using Extent4 = ExtentK<4, int>;

[[noreturn]] void refuse(std::string const& reason) {
    throw std::invalid_argument("[SubsetFilter::MakeSubset] Invalid argument: " + reason);
}

bool isInside(ExtentImpl<int> const& extent, int size) {
    std::int64_t const origin = extent.origin;
    std::int64_t const last = origin + (std::int64_t{extent.count} - 1) * extent.step;
    return std::min(origin, last) >= 0 && std::max(origin, last) < size;
}

void requireValid(Extent4 const& extent, FixedVector<4, int> const& size) {
    auto const refuseAxis = [&](int axis, char const* reason) {
        std::ostringstream text;
        text << reason << " Extent " << extent[axis] << " on axis " << axis << " of size " << size[axis] << ".";
        refuse(text.str());
    };
    auto const requireOnEachAxis = [&](auto isGood, char const* otherwise) {
        for (int axis = 0; axis < 4; ++axis) {
            isGood(extent[axis], size[axis]) ? void() : refuseAxis(axis, otherwise);
        }
    };
    requireOnEachAxis([](Extent1 const& axis, int) { return !axis.isEmpty(); }, "subset is empty.");
    requireOnEachAxis(isInside, "subset exceeds size of target accessor.");
    requireOnEachAxis(
        [](Extent1 const& axis, int) { return axis.step != 0 || axis.count == 1; }, "subset has a step of zero.");
}

}  // namespace

SubsetFilter::SubsetFilter(std::unique_ptr<IBufferAccessor> target) noexcept
    : BufferAccessorFilter(std::move(target)) {}

SubsetFilter::SubsetFilter(SubsetFilter const& other) = default;
SubsetFilter& SubsetFilter::operator=(SubsetFilter const& other) = default;
SubsetFilter::~SubsetFilter() = default;

std::unique_ptr<IBufferAccessor> SubsetFilter::MakeSubset(std::unique_ptr<IBufferAccessor> target, Extent4 extent) {
    if (target == nullptr) {
        refuse("target is null.");
    }
    auto size = target->getSize();
    requireValid(extent, size);
    while (auto* const inner = dynamic_cast<SubsetFilter*>(target.get())) {
        // Of more than one index every product lies inside the innermost target; of one index the step does not matter.
        extent = inner->getSubset().composed(extent);
        target = inner->releaseTargetAccessor();
        size = target->getSize();
    }
    if (std::any_of(extent.data(), extent.data() + 4, [](auto const& axis) { return axis.step != 1; })) {
        return std::make_unique<SubsetExtentFilter>(std::move(target), extent);
    }
    auto const range = extent.bounds();
    if (range == OpenEndedRange<4, int>::OfSize(size)) {
        return target;
    }
    return std::make_unique<SubsetRangeFilter>(std::move(target), range);
}

FixedVector<4, int> SubsetFilter::getSize() {
    auto const subset = getSubset();
    FixedVector<4, int> size;
    std::transform(subset.data(), subset.data() + 4, size.begin(), [](auto const& axis) { return axis.count; });
    return size;
}

AccessTraits SubsetFilter::traits() const {
    auto traits = targetTraits();
    auto const subset = getSubset();
    for (int axis = 0; axis < 4; ++axis) {
        auto const& along = subset[axis];
        int& block = traits.naturalBlock[axis];
        int& start = traits.blockOrigin[axis];
        if (block == 0) {
            continue;
        }
        std::int64_t const step = along.step == 0 ? 1 : along.step;
        // Backwards, a block starts with its last index.
        std::int64_t const first = step < 0 ? std::int64_t{start} + block - 1 : start;
        start = static_cast<int>((first - along.origin) / step % block);
        block = std::max(static_cast<int>(block / std::abs(step)), 1);
    }
    return traits;
}

bool SubsetFilter::tryTransfer(RegionRequest const& request, RegionTransfer& transfer) {
    auto below = request;
    below.region = getSubset().composed(request.region);
    transfer.run(targetAccessor(), below);
    return true;
}

void SubsetFilter::flush() {
    flushTarget();
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
