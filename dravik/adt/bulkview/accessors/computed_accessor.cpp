// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/accessors/computed_accessor.h"

#include "dravik/adt/bulkview/accessors/detail/read_only.h"
#include "dravik/adt/bulkview/regions/region_transfer.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkView::Accessors {

namespace {

constexpr std::int64_t kSamplesAtOnce = 1 << 16;

// Of samples in C order.
BufferHandle::ArrayInfo denseInfo(OpenEndedRange<4, int> const& box) {
    BufferHandle::ArrayInfo info{box, {}, 0};
    std::int64_t stride = 1;
    for (int axis = 3; axis >= 0; --axis) {
        info.strides[axis] = box.size(axis) > 1 ? static_cast<int>(stride) : 0;
        stride *= box.size(axis);
    }
    return info;
}

}  // namespace

// Keeps the samples of one block.
class ComputedAccessor::Block final : public BufferHandle::Owner {
  public:
    Block(std::int64_t samples, int byteSize)
        : memory(new std::byte[static_cast<std::size_t>(samples) * static_cast<std::size_t>(byteSize)]) {}

    std::unique_ptr<std::byte[]> memory;
};

ComputedAccessor::ComputedAccessor(
    FixedVector<4, int> const& size, FixedVector<4, int> const& block, std::type_info const& sampleType, int byteSize)
    : size_(size), block_(block), sampleType_(&sampleType), byteSize_(byteSize) {
    Detail::requireSize("ComputedAccessor", size);
    Detail::requireSize("ComputedAccessor", block);
}

ComputedAccessor::ComputedAccessor(ComputedAccessor const&) = default;
ComputedAccessor::~ComputedAccessor() = default;

FixedVector<4, int> ComputedAccessor::getSize() {
    return size_;
}

void ComputedAccessor::setClient(IClient*) {}

void ComputedAccessor::setHint(HintType, OpenEndedRange<4, int> const&, float) {}

void ComputedAccessor::dispose(bool) {}

void ComputedAccessor::getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) {
    Detail::refuseWriting("ComputedAccessor", access);
    OpenEndedRange<4, int> box;
    if (!OpenEndedRange<4, int>::OfSize(size_).contains(position)) {
        std::ostringstream text;
        text << "[ComputedAccessor] The position " << position << " is outside the size " << size_ << ".";
        throw std::out_of_range(text.str());
    }
    for (int axis = 0; axis < 4; ++axis) {
        box.min[axis] = position[axis] / block_[axis] * block_[axis];
        box.max[axis] =
            static_cast<int>(std::min<std::int64_t>(std::int64_t{box.min[axis]} + block_[axis], size_[axis]));
    }
    boost::intrusive_ptr<Block> const block(new Block(box.pointCount(), byteSize_));
    compute(ExtentK<4, int>(box), block->memory.get());
    handle.setOwner(block.get());
    handle.update(block->memory.get(), denseInfo(box), AdtEnums::Read);
}

AccessTraits ComputedAccessor::traits() const {
    AccessTraits traits;
    traits.naturalBlock = block_;
    traits.fastestAxis = 3;
    while (traits.fastestAxis > 0 && block_[traits.fastestAxis] == 1) {
        --traits.fastestAxis;
    }
    traits.sampleType = sampleType_;
    traits.bitSize = 8 * byteSize_;
    return traits;
}

bool ComputedAccessor::tryTransfer(RegionRequest const& request, RegionTransfer& transfer) {
    Detail::refuseWriting("ComputedAccessor", request.access);
    auto places = request;
    OpenEndedRange<4, int> box;
    for (int axis = 0; axis < 4; ++axis) {
        box.max[axis] = request.region[axis].count;
        places.region[axis] = {0, 1, box.max[axis]};
    }
    // Slabs along the first axis of more than one index, of few samples each as far as that axis allows.
    int axis = 0;
    while (axis < 3 && box.max[axis] == 1) {
        ++axis;
    }
    int const end = box.max[axis];
    std::int64_t const perIndex = box.pointCount() / end;
    int const atOnce = static_cast<int>(std::clamp<std::int64_t>(kSamplesAtOnce / perIndex, 1, end));
    Block const slab(atOnce * perIndex, byteSize_);
    for (int first = 0; first < end; first = box.max[axis]) {
        transfer.stop();
        box.min[axis] = first;
        box.max[axis] = std::min(end - first, atOnce) + first;
        compute(request.region.composed(ExtentK<4, int>(box)), slab.memory.get());
        BufferHandle handle;
        handle.update(slab.memory.get(), denseInfo(box), AdtEnums::Read);
        transfer.copy(places, handle, box);
        transfer.moved(box.pointCount());
    }
    return true;
}

void ComputedAccessor::flush() {}

}  // namespace Quorvel::Dravik::Adt::BulkView::Accessors
