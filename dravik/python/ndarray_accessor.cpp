// SPDX-License-Identifier: Apache-2.0
#include "dravik/python/ndarray_accessor.h"

#include "dravik/adt/exceptions/simple_exception.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace Quorvel::Dravik::Python {

using namespace Adt::BulkView;

class NdarrayAccessor::Keeper final : public BufferHandle::Owner {
  public:
    explicit Keeper(std::shared_ptr<void const> keeper) : keeper_(std::move(keeper)) {}

  private:
    std::shared_ptr<void const> keeper_;
};

NdarrayAccessor::NdarrayAccessor(Ndarray array) : array_(std::move(array)), owner_(new Keeper(array_.keeper)) {
    // From the axis along which neighbours are closest, as many indices as the reach allows.
    std::array<int, 4> axes{0, 1, 2, 3};
    std::stable_sort(axes.begin(), axes.end(), [&](int a, int b) {
        return std::llabs(array_.strides[static_cast<std::size_t>(a)]) <
               std::llabs(array_.strides[static_cast<std::size_t>(b)]);
    });
    std::int64_t room = INT_MAX - 1;
    for (int const axis : axes) {
        std::int64_t const stride = std::llabs(array_.strides[static_cast<std::size_t>(axis)]);
        std::int64_t const most = stride == 0 ? INT_MAX : room / stride + 1;
        block_[axis] = static_cast<int>(std::clamp<std::int64_t>(array_.size[axis], 1, most));
        room -= stride * (block_[axis] - 1);
    }
}

Adt::FixedVector<4, int> NdarrayAccessor::getSize() {
    return array_.size;
}

void NdarrayAccessor::setClient(IClient* /*client*/) {}

void NdarrayAccessor::setHint(HintType /*type*/, Adt::OpenEndedRange<4, int> const& /*range*/, float /*weight*/) {}

void NdarrayAccessor::getBuffer(Adt::FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) {
    if (!Adt::OpenEndedRange<4, int>::OfSize(array_.size).contains(position)) {
        throw std::out_of_range("index outside the array");
    }
    if (access != AdtEnums::Read && !array_.writable) {
        throw Adt::Exceptions::NotSupportedException("Array", "its memory is read-only.");
    }
    BufferHandle::ArrayInfo info;
    char* start = array_.samples;
    std::int64_t low = 0;
    for (int axis = 0; axis < 4; ++axis) {
        std::int64_t const stride = array_.strides[static_cast<std::size_t>(axis)];
        info.range.min[axis] = position[axis] - position[axis] % block_[axis];
        info.range.max[axis] = static_cast<int>(
            std::min<std::int64_t>(std::int64_t{info.range.min[axis]} + block_[axis], array_.size[axis]));
        std::int64_t const steps = std::int64_t{info.range.max[axis]} - info.range.min[axis] - 1;
        info.strides[axis] = steps == 0 ? 0 : static_cast<int>(stride);
        start += info.range.min[axis] * stride * (array_.bitSize / 8);
        low += std::min<std::int64_t>(steps * stride, 0);
    }
    info.offset = static_cast<int>(-low);
    handle.setOwner(owner_.get());
    handle.update(start + low * (array_.bitSize / 8), info, access == AdtEnums::Read ? access : AdtEnums::ReadWrite);
}

std::unique_ptr<IBufferAccessor> NdarrayAccessor::createClone() const {
    return std::make_unique<NdarrayAccessor>(array_);
}

void NdarrayAccessor::dispose(bool /*flag*/) {}

AccessTraits NdarrayAccessor::traits() const {
    AccessTraits traits;
    for (int axis = 0; axis < 4; ++axis) {
        traits.naturalBlock[axis] = block_[axis] < array_.size[axis] ? block_[axis] : 0;
        if (std::llabs(array_.strides[static_cast<std::size_t>(axis)]) == 1) {
            traits.fastestAxis = axis;
        }
    }
    traits.sampleType = array_.sampleType;
    traits.bitSize = array_.bitSize;
    traits.concurrency = AccessTraits::Concurrency::PerClone;
    traits.writable = array_.writable;
    return traits;
}

bool NdarrayAccessor::tryTransfer(RegionRequest const& /*request*/, RegionTransfer& /*transfer*/) {
    return false;
}

void NdarrayAccessor::flush() {}

}  // namespace Quorvel::Dravik::Python
