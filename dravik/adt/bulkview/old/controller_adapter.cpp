// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/old/controller_adapter.h"

#include "dravik/adt/bulkview/write_back.h"
#include "dravik/adt/exceptions/plain_exception.h"

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Old {
namespace {

void requireAccessor(IBufferAccessor const* accessor) {
    if (accessor == nullptr) {
        throw std::invalid_argument("[ControllerAdapter] Accessor is null.");
    }
}

}  // namespace

ControllerAdapter::ControllerAdapter(std::unique_ptr<IBufferAccessor> accessor, int valueSize)
    : accessor_(std::move(accessor)), valueSize_(valueSize) {
    requireAccessor(accessor_.get());
    auto const size = accessor_->getSize();
    size_ = {size[0], size[1], size[2]};
}

int ControllerAdapter::open() {
    if (opened_ || accessor_ == nullptr) {
        throw Exceptions::PlainException(
            "[ControllerAdapter::open] ControllerAdapter instances may only be used by a single view.");
    }
    opened_ = true;
    constexpr std::int64_t kMost = std::numeric_limits<int>::max();
    std::int64_t const layer = std::int64_t{size_[0]} * size_[1];
    if (layer > kMost || layer * size_[2] > kMost) {
        throw Exceptions::PlainException(
            "The controller adapter only supports small datasets, and should be phased out.");
    }
    return 0;
}

void ControllerAdapter::close(int) {
    if (auto* const pending = dynamic_cast<IWriteBack*>(handle_.owner())) {
        pending->writeBack();
    }
    opened_ = false;
    handle_.reset(/*releaseOwner=*/true);
    accessor_.reset();
}

int ControllerAdapter::brick(int, int x, int y, int z) {
    // Unsigned, so that the product may leave the range for positions and sizes that make no sense.
    auto const wide = [](int value) { return static_cast<std::uint64_t>(value); };
    return static_cast<int>(wide(x) + wide(size_[0]) * (wide(y) + wide(size_[1]) * wide(z)));
}

int ControllerAdapter::offset(int, int, int, int) {
    return 0;
}

FixedVector<3, int> ControllerAdapter::brickPos(int brick) const {
    std::int64_t const row = size_[0];
    std::int64_t const layer = row * size_[1];
    if (brick < 0 || row <= 0 || layer <= 0 || brick / layer >= size_[2]) {
        throw std::invalid_argument("[ControllerAdapter::buffer] Invalid argument: brick number is out of bounds.");
    }
    return {static_cast<int>(brick % row), static_cast<int>(brick % layer / row), static_cast<int>(brick / layer)};
}

void ControllerAdapter::request(FixedVector<3, int> const& position, AdtEnums::Access access) {
    try {
        for (bool stands = false; !stands;) {
            auto const notices = handle_.notices();
            accessor_->getBuffer(FixedVector<4, int>(position, 0), access, handle_);
            stands = handle_.standsSince(notices);
            stands ? void() : handle_.reset(/*releaseOwner=*/true);
        }
    } catch (...) {
        // What a failed request left there is not served. Its owner stays: samples that it could not write back are
        // pending, and the next request tries again.
        auto const owner = handle_.loan().owner;
        handle_ = BufferHandle();
        handle_.setOwner(owner.get());
        throw;
    }
}

void* ControllerAdapter::buffer(int, MemoryModel model, void*, int brick, AdtEnums::Access access) {
    if (model != Addressed) {
        return nullptr;
    }
    requireAccessor(accessor_.get());
    auto const position = brickPos(brick);
    if (!handle_.contains(position) || handle_.access() != access) {
        request(position, access);
    }
    if (handle_.isNull()) {
        return nullptr;
    }
    return static_cast<char*>(handle_.buffer()) + valueSize_ * handle_.offset(position);
}

void ControllerAdapter::bufferAndLinearInfo(
    int, MemoryModel, void*, int, int, int, AdtEnums::Access, void*& buffer, int&, int&, int&, int&, int&, int&, int&,
    int&, int&) {
    buffer = nullptr;
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Old
