// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/proxy_filter.h"

#include "dravik/adt/bulkview/detail/clone_of.h"
#include "dravik/adt/bulkview/regions/region_transfer.h"

#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>
#include <mutex>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView::Filters {

std::unique_ptr<IBufferAccessor> ProxyFilter::MakeProxy(
    std::unique_ptr<IBufferAccessor> target, boost::shared_ptr<ProxyTargetController> controller) {
    if (target == nullptr) {
        throw std::invalid_argument("[ProxyFilter::MakeProxy] Invalid argument: target is null.");
    }
    return std::unique_ptr<IBufferAccessor>(new ProxyFilter(std::move(target), std::move(controller)));
}

ProxyFilter::ProxyFilter(std::unique_ptr<IBufferAccessor> target, boost::shared_ptr<ProxyTargetController> controller)
    : StatefulBufferAccessorFilter(std::move(target)), controller_(std::move(controller)) {
    attach();
}

ProxyFilter::ProxyFilter(ProxyFilter const& other)
    : StatefulBufferAccessorFilter(other), controller_(other.controller_) {
    attach();
}

ProxyFilter::~ProxyFilter() {
    if (controller_ != nullptr) {
        controller_->detachFilter(*this);
        controller_.reset();
    }
    StatefulBufferAccessorFilter::dispose();
}

void ProxyFilter::attach() {
    if (controller_ != nullptr) {
        controller_->attachFilter(*this);
    }
}

FixedVector<4, int> ProxyFilter::getSize() {
    return targetAccessor().getSize();
}

void ProxyFilter::setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) {
    targetAccessor().setHint(type, range, weight);
}

void ProxyFilter::getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) {
    targetAccessor().getBuffer(position, access, handle);
}

std::unique_ptr<IBufferAccessor> ProxyFilter::createClone() const {
    return std::unique_ptr<IBufferAccessor>(new ProxyFilter(*this));
}

void ProxyFilter::accessorUpdated() {
    relay(&IClient::accessorUpdated);
}

void ProxyFilter::bufferInvalidated(BufferHandle::Owner const* owner) {
    relay(&IClient::bufferInvalidated, owner);
}

bool ProxyFilter::prepareBufferRelease(void const* buffer, int& value) {
    return relay(&IClient::prepareBufferRelease, buffer, value);
}

void ProxyFilter::releaseBuffer(void const* buffer, boost::intrusive_ptr<BufferHandle::Owner> owner) {
    relay(&IClient::releaseBuffer, buffer, std::move(owner));
}

AccessTraits ProxyFilter::traits() const {
    return targetTraits();
}

bool ProxyFilter::tryTransfer(RegionRequest const& request, RegionTransfer& transfer) {
    transfer.run(targetAccessor(), request);
    return true;
}

void ProxyFilter::flush() {
    flushTarget();
}

void ProxyFilter::setTarget(std::unique_ptr<IBufferAccessor> target) {
    std::unique_ptr<IBufferAccessor> former;
    try {
        former = replaceTargetAccessor(std::move(target));
    } catch (...) {
        // A partial exchange counts as an exchange: what the former target has lent may be gone.
        accessorUpdated();
        throw;
    }
    accessorUpdated();
    // The client may have destroyed this proxy; the former target goes with the end of this scope.
}

ProxyFilter::Error::Error(std::string const& message) : SimpleException(message) {}

ICloneableException::ConstPtr ProxyFilter::Error::clone() const {
    return boost::make_shared<Error>(*this);
}

void ProxyFilter::Error::throwClone() const {
    throw Error(*this);
}

ProxyFilter::ProxyTargetController::ProxyTargetController() = default;

ProxyFilter::ProxyTargetController::~ProxyTargetController() = default;

void ProxyFilter::ProxyTargetController::attachFilter(ProxyFilter& filter) {
    std::lock_guard const lock(mutex_);
    filters_.insert(&filter);
}

void ProxyFilter::ProxyTargetController::detachFilter(ProxyFilter& filter) {
    std::lock_guard const lock(mutex_);
    filters_.erase(&filter);
    pending_.erase(&filter);
}

void ProxyFilter::ProxyTargetController::setTarget(std::unique_ptr<IBufferAccessor> target) {
    std::lock_guard const lock(mutex_);
    if (filters_.empty()) {
        return;
    }
    auto const isTargetOf = [&](ProxyFilter* filter) { return &filter->targetAccessor() == target.get(); };
    if (std::any_of(filters_.begin(), filters_.end(), isTargetOf)) {
        static_cast<void>(target.release());  // the proxy owns it already
        return;
    }
    if (target == nullptr) {
        throw Error("[ProxyFilter::setTarget] target is null");
    }
    std::vector<std::unique_ptr<IBufferAccessor>> targets;
    targets.push_back(std::move(target));
    while (targets.size() < filters_.size()) {
        targets.push_back(Detail::cloneOf(*targets.front()));
    }
    // Whoever is told of an exchange may destroy and make proxies, and even set the next target: then nothing is
    // pending any more when that is done.
    pending_ = filters_;
    for (auto next = targets.begin(); !pending_.empty(); ++next) {
        ProxyFilter* const filter = *pending_.begin();
        pending_.erase(pending_.begin());
        filter->setTarget(std::move(*next));
    }
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
