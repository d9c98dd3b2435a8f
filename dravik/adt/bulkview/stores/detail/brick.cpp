// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/stores/detail/brick.h"

#include "dravik/adt/bulkview/stores/detail/brick_table.h"

#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

std::size_t hashOf(BrickKey const& key) noexcept {
    // Neighbouring bricks spread over shards and buckets: multiplication by 2^64 over the golden ratio, high bits down.
    auto mixed = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(key.store));
    for (int axis = 0; axis < 4; axis += 2) {
        auto const high = static_cast<std::uint64_t>(static_cast<std::uint32_t>(key.corner.data()[axis]));
        mixed ^= high << 32 | static_cast<std::uint32_t>(key.corner.data()[axis + 1]);
        mixed *= 0x9e3779b97f4a7c15u;
        mixed ^= mixed >> 32;
    }
    return mixed;
}

FixedVector<4, int> denseStrides(OpenEndedRange<4, int> const& box) noexcept {
    FixedVector<4, int> strides;
    std::int64_t stride = 1;
    for (int axis = 3; axis >= 0; --axis) {
        strides.data()[axis] = static_cast<int>(stride);
        stride *= box.size(axis);
    }
    return strides;
}

Brick::Brick(
    std::shared_ptr<BrickTable> table, std::shared_ptr<PooledStore> store, OpenEndedRange<4, int> const& box,
    Memory memory)
    : table_(std::move(table)),
      store_(std::move(store)),
      info_{box, denseStrides(box), /*offset=*/0},
      byteSize_(memory == Memory::kNone ? 0 : (box.pointCount() * store_->traits().bitSize + 7) / 8),
      samples_(std::make_unique_for_overwrite<std::byte[]>(static_cast<std::size_t>(byteSize_))) {}

boost::intrusive_ptr<Brick> Brick::share(Brick& brick) {
    // What the table keeps cannot go meanwhile: its mutex is held.
    return brick.kept != nullptr ? brick.kept : boost::static_pointer_cast<Brick>(tryCreateFromPointer(&brick));
}

void Brick::dispose() {
    table_->forget(*this);
}

void Brick::writeAtLast() noexcept {
    if (std::exchange(isWritten, false)) {
        store_->writeAtLast(box(), samples_.get());
    }
}

// Whoever still held the brick when its pool was destroyed may have written into it since.
Brick::~Brick() {
    if (isWritten) {
        writeAtLast();
        store_->flushAtLast();
    }
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
