// SPDX-License-Identifier: Apache-2.0
#include "brick_accessor.h"

#include <dravik/adt/exceptions/simple_exception.h>

#include <algorithm>
#include <cstddef>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace Relief {
namespace {

// The samples of one brick, the last axis fastest, alive while a handle refers to them.
class Brick final : public BulkView::BufferHandle::Owner {
  public:
    explicit Brick(Box const& box)
        : box_(box), samples_(std::make_unique_for_overwrite<float[]>(static_cast<std::size_t>(box.pointCount()))) {}

    float* samples() noexcept { return samples_.get(); }

    BulkView::BufferHandle::ArrayInfo info() const {
        BulkView::BufferHandle::ArrayInfo info{box_, {}, /*offset=*/0};
        std::int64_t stride = 1;
        for (int axis = 3; axis >= 0; --axis) {
            info.strides[axis] = static_cast<int>(stride);
            stride *= box_.size(axis);
        }
        return info;
    }

  private:
    // Nothing here changes once it is lent, so there is nothing to lock: enableLocking is never called.
    void lock() override {}
    void unlock() override {}

    Box box_;
    std::unique_ptr<float[]> samples_;
};

}  // namespace

BrickAccessor::BrickAccessor(
    std::shared_ptr<BrickSource const> source, Position const& brickSize, std::shared_ptr<Traffic> traffic)
    : source_(std::move(source)),
      brickSize_(brickSize),
      traffic_(traffic ? std::move(traffic) : std::make_shared<Traffic>()) {
    if (!source_) {
        throw std::invalid_argument("[BrickAccessor] Invalid argument: source is null.");
    }
    if (!brickSize.allGreaterEqual(Position::Filled(1))) {
        throw std::invalid_argument("[BrickAccessor] Invalid argument: brick is empty.");
    }
}

Position BrickAccessor::getSize() {
    return source().size();
}

void BrickAccessor::setClient(IClient* /*client*/) {}

void BrickAccessor::setHint(HintType /*hint*/, Box const& /*range*/, float /*weight*/) {}

void BrickAccessor::getBuffer(Position position, BulkView::AdtEnums::Access access, BulkView::BufferHandle& handle) {
    using BulkView::AdtEnums;
    if (AdtEnums::isWriteAccess(access) || AdtEnums::isPopulateAccess(access)) {
        throw Adt::Exceptions::NotSupportedException("BrickAccessor", "the grid is read-only.");
    }
    Box const box = brickAround(position, source().size());
    // Whatever can fail comes before the handle is touched.
    boost::intrusive_ptr<Brick> const brick(new Brick(box));
    source().read(box, brick->samples());
    handle.setOwner(brick.get());
    handle.update(brick->samples(), brick->info(), AdtEnums::Read);
    traffic_->requests.fetch_add(1, std::memory_order_relaxed);
    traffic_->samples.fetch_add(box.pointCount(), std::memory_order_relaxed);
}

std::unique_ptr<BulkView::IBufferAccessor> BrickAccessor::createClone() const {
    return std::unique_ptr<IBufferAccessor>(new BrickAccessor(*this));
}

void BrickAccessor::dispose(bool /*flag*/) {
    source_.reset();
}

BrickSource const& BrickAccessor::source() const {
    if (!source_) {
        throw Adt::Exceptions::ObjectDisposedException("BrickAccessor");
    }
    return *source_;
}

Box BrickAccessor::brickAround(Position const& position, Position const& size) const {
    if (!Box::OfSize(size).contains(position)) {
        std::ostringstream text;
        text << "[BrickAccessor] Position " << position << " is outside the grid of " << size << " samples.";
        throw std::out_of_range(text.str());
    }
    Box box;
    for (int axis = 0; axis < 4; ++axis) {
        box.min[axis] = position[axis] - position[axis] % brickSize_[axis];
        // In this order nothing passes the end of int.
        box.max[axis] = box.min[axis] + std::min(brickSize_[axis], size[axis] - box.min[axis]);
    }
    return box;
}

}  // namespace Relief
