// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/permute_filter.h"

#include "dravik/adt/bulkview/regions/region_transfer.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Filters {

namespace {

using Index = FixedVector<4, int>;

constexpr Index kUnchanged{0, 1, 2, 3};

// What stands at axis order[a], at axis a.
Index shown(Index const& below, Index const& order) {
    Index above;
    for (int axis = 0; axis < 4; ++axis) {
        above.data()[axis] = below.data()[order.data()[axis]];
    }
    return above;
}

// What stands at axis a, at axis order[a].
Index hidden(Index const& above, Index const& order) {
    Index below;
    for (int axis = 0; axis < 4; ++axis) {
        below.data()[order.data()[axis]] = above.data()[axis];
    }
    return below;
}

}  // namespace

std::unique_ptr<IBufferAccessor> PermuteFilter::Apply(std::unique_ptr<IBufferAccessor> target, Index const& order) {
    if (target == nullptr) {
        throw std::invalid_argument("[PermuteFilter::Apply] Invalid argument: target is null.");
    }
    if (!std::is_permutation(order.begin(), order.end(), kUnchanged.begin())) {
        std::ostringstream text;
        text << "[PermuteFilter::Apply] Invalid argument: " << order << " is no order of the axes 0 to 3.";
        throw std::invalid_argument(text.str());
    }
    if (auto* const inner = dynamic_cast<PermuteFilter*>(target.get())) {
        auto const both = shown(inner->order_, order);
        return Apply(inner->releaseTargetAccessor(), both);
    }
    if (order == kUnchanged) {
        return target;
    }
    return std::unique_ptr<IBufferAccessor>(new PermuteFilter(std::move(target), order));
}

PermuteFilter::PermuteFilter(std::unique_ptr<IBufferAccessor> target, Index const& order) noexcept
    : BufferAccessorFilter(std::move(target)), order_(order) {}

PermuteFilter::PermuteFilter(PermuteFilter const& other) = default;
PermuteFilter& PermuteFilter::operator=(PermuteFilter const& other) = default;
PermuteFilter::~PermuteFilter() = default;

FixedVector<4, int> PermuteFilter::getSize() {
    return shown(targetAccessor().getSize(), order_);
}

void PermuteFilter::setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) {
    targetAccessor().setHint(type, {hidden(range.min, order_), hidden(range.max, order_)}, weight);
}

void PermuteFilter::getBuffer(Index position, AdtEnums::Access access, BufferHandle& handle) {
    targetAccessor().getBuffer(hidden(position, order_), access, handle);
    auto const info = handle.infoSnapshot();
    handle.relabel(
        {{shown(info.range.min, order_), shown(info.range.max, order_)}, shown(info.strides, order_), info.offset});
}

std::unique_ptr<IBufferAccessor> PermuteFilter::createClone() const {
    return std::make_unique<PermuteFilter>(*this);
}

AccessTraits PermuteFilter::traits() const {
    auto traits = targetTraits();
    traits.naturalBlock = shown(traits.naturalBlock, order_);
    traits.blockOrigin = shown(traits.blockOrigin, order_);
    if (traits.fastestAxis >= 0) {
        auto const* const found = std::find(order_.begin(), order_.end(), traits.fastestAxis);
        traits.fastestAxis = static_cast<int>(found - order_.begin());
    }
    return traits;
}

bool PermuteFilter::tryTransfer(RegionRequest const& request, RegionTransfer& transfer) {
    auto below = request;
    for (int axis = 0; axis < 4; ++axis) {
        below.region.data()[order_.data()[axis]] = request.region.data()[axis];
    }
    auto const& array = request.array;
    below.array = ArrayRef<4>(
        {hidden(array.range().min, order_), hidden(array.range().max, order_)}, hidden(array.strides(), order_),
        array.data(), array.bufferOffset(), array.valueType(), array.bitSize());
    transfer.run(targetAccessor(), below);
    return true;
}

void PermuteFilter::flush() {
    flushTarget();
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
