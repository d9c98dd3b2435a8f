// SPDX-License-Identifier: Apache-2.0
#include "counting_filter.h"

#include <utility>

namespace Relief {

using Quorvel::Dravik::Adt::FixedVector;
using Quorvel::Dravik::Adt::OpenEndedRange;

CountingFilter::CountingFilter(std::unique_ptr<BulkView::IBufferAccessor> target, std::shared_ptr<Count> count)
    : BufferAccessorFilter(std::move(target)), count_(std::move(count)) {}

FixedVector<4, int> CountingFilter::getSize() {
    return targetAccessor().getSize();
}

void CountingFilter::setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) {
    targetAccessor().setHint(type, range, weight);
}

void CountingFilter::getBuffer(
    FixedVector<4, int> position, BulkView::AdtEnums::Access access, BulkView::BufferHandle& handle) {
    count_->fetch_add(1, std::memory_order_relaxed);
    targetAccessor().getBuffer(position, access, handle);
}

std::unique_ptr<BulkView::IBufferAccessor> CountingFilter::createClone() const {
    // The base's copy constructor clones what is below.
    return std::make_unique<CountingFilter>(*this);
}

}  // namespace Relief
