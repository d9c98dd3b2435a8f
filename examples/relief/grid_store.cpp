// SPDX-License-Identifier: Apache-2.0
#include "grid_store.h"

#include <utility>

namespace Relief {

BulkView::AccessTraits GridStore::traits() const {
    BulkView::AccessTraits traits;
    traits.fastestAxis = 3;
    traits.sampleType = &typeid(float);
    traits.bitSize = 32;
    traits.concurrency = BulkView::AccessTraits::Concurrency::PerClone;
    return traits;
}

CountedStore::CountedStore(
    std::shared_ptr<IBrickStore const> store, Position const& brick, std::shared_ptr<Traffic> traffic)
    : store_(std::move(store)), brick_(brick), traffic_(std::move(traffic)) {}

Position CountedStore::size() const {
    return store_->size();
}

BulkView::AccessTraits CountedStore::traits() const {
    auto traits = store_->traits();
    traits.naturalBlock = brick_;
    return traits;
}

void CountedStore::read(Box const& box, void* samples) const {
    store_->read(box, samples);
    traffic_->requests.fetch_add(1, std::memory_order_relaxed);
    traffic_->samples.fetch_add(box.pointCount(), std::memory_order_relaxed);
}

}  // namespace Relief
