// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/buffer_accessor_filter.h"

#include "dravik/adt/bulkview/detail/clone_of.h"
#include "dravik/adt/bulkview/regions/region_access.h"

#include <utility>

namespace Quorvel::Dravik::Adt::BulkView {

BufferAccessorFilter::BufferAccessorFilter(std::unique_ptr<IBufferAccessor> target) noexcept
    : target_(std::move(target)) {}

BufferAccessorFilter::BufferAccessorFilter(BufferAccessorFilter const& other)
    : IBufferAccessor(other), target_(other.target_ == nullptr ? nullptr : Detail::cloneOf(*other.target_)) {}

BufferAccessorFilter& BufferAccessorFilter::operator=(BufferAccessorFilter const& other) {
    if (this != &other) {
        target_ = other.target_ == nullptr ? nullptr : Detail::cloneOf(*other.target_);
    }
    return *this;
}

BufferAccessorFilter::~BufferAccessorFilter() = default;

void BufferAccessorFilter::setClient(IClient* client) {
    if (target_ != nullptr) {
        target_->setClient(client);
    }
}

void BufferAccessorFilter::dispose(bool flag) {
    if (target_ != nullptr) {
        target_->dispose(flag);
    }
}

AccessTraits BufferAccessorFilter::targetTraits() const {
    auto const* const regions = dynamic_cast<IRegionAccess const*>(&targetAccessor());
    return regions == nullptr ? AccessTraits() : regions->traits();
}

void BufferAccessorFilter::flushTarget() {
    if (auto* const regions = dynamic_cast<IRegionAccess*>(&targetAccessor())) {
        regions->flush();
    }
}

void BufferAccessorFilter::dispose() noexcept {
    target_.reset();
}

std::unique_ptr<IBufferAccessor> BufferAccessorFilter::releaseTargetAccessor() {
    return std::move(target_);
}

std::unique_ptr<IBufferAccessor> BufferAccessorFilter::replaceTargetAccessor(std::unique_ptr<IBufferAccessor> target) {
    return std::exchange(target_, std::move(target));
}

}  // namespace Quorvel::Dravik::Adt::BulkView
