// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/stateful_buffer_accessor_filter.h"

#include <utility>

namespace Quorvel::Dravik::Adt::BulkView {

StatefulBufferAccessorFilter::StatefulBufferAccessorFilter(std::unique_ptr<IBufferAccessor> target) noexcept
    : BufferAccessorFilter(std::move(target)) {}

StatefulBufferAccessorFilter::StatefulBufferAccessorFilter(StatefulBufferAccessorFilter const& other)
    : BufferAccessorFilter(other), IClient(other) {}

StatefulBufferAccessorFilter::~StatefulBufferAccessorFilter() = default;

void StatefulBufferAccessorFilter::setClient(IClient* client) {
    IClient* const former = client_.exchange(client, std::memory_order_acq_rel);
    try {
        BufferAccessorFilter::setClient(client == nullptr ? nullptr : this);
    } catch (...) {
        client_.store(former, std::memory_order_release);
        throw;
    }
}

void StatefulBufferAccessorFilter::dispose(bool flag) {
    BufferAccessorFilter::dispose(flag);
    client_.store(nullptr, std::memory_order_release);
}

void StatefulBufferAccessorFilter::dispose() noexcept {
    BufferAccessorFilter::dispose();
    client_.store(nullptr, std::memory_order_release);
}

std::unique_ptr<IBufferAccessor> StatefulBufferAccessorFilter::releaseAccessor() {
    return relay(&IClient::releaseAccessor);
}

std::unique_ptr<IBufferAccessor> StatefulBufferAccessorFilter::replaceTargetAccessor(
    std::unique_ptr<IBufferAccessor> target) {
    BufferAccessorFilter::dispose(/*flag=*/false);
    auto former = BufferAccessorFilter::replaceTargetAccessor(std::move(target));
    if (clientPtr() != nullptr) {
        BufferAccessorFilter::setClient(this);
    }
    return former;
}

}  // namespace Quorvel::Dravik::Adt::BulkView
