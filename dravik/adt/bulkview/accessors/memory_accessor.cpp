// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/accessors/memory_accessor.h"

#include "dravik/adt/bulkview/regions/region_transfer.h"
#include "dravik/adt/exceptions/simple_exception.h"

#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkView::Accessors {

FixedVector<4, int> MemoryAccessor::getSize() {
    if (array_.buffer().isNull()) {
        throw std::runtime_error("[MemoryAccessor] Accessor does not have any data.");
    }
    return array_.range().max;
}

void MemoryAccessor::setClient(IClient*) {}

void MemoryAccessor::setHint(HintType, OpenEndedRange<4, int> const&, float) {}

void MemoryAccessor::getBuffer(FixedVector<4, int>, AdtEnums::Access access, BufferHandle& handle) {
    if (access == AdtEnums::Read) {
        handle.updateRO(array_);
        return;
    }
    if (array_.buffer().isReadOnly()) {
        throw Exceptions::NotSupportedException("MemoryAccessor", "the memory of the array is read-only.");
    }
    array_.ensureAllocated(/*wanted=*/true);
    handle.update(array_, AdtEnums::ReadWrite);
}

std::unique_ptr<IBufferAccessor> MemoryAccessor::createClone() const {
    return std::make_unique<MemoryAccessor>(*this);
}

void MemoryAccessor::dispose(bool) {
    array_.setData(nullptr);
    array_.setBuffer(SharedBuffer());
}

AccessTraits MemoryAccessor::traits() const {
    AccessTraits traits;
    for (int axis = 0; axis < 4; ++axis) {
        if (array_.range().size(axis) > 1 && std::abs(array_.strides()[axis]) == 1) {
            traits.fastestAxis = axis;
        }
    }
    traits.sampleType = &array_.valueType();
    traits.bitSize = array_.bitSize();
    traits.concurrency = AccessTraits::Concurrency::PerClone;
    traits.writable = !array_.buffer().isReadOnly();
    return traits;
}

bool MemoryAccessor::tryTransfer(RegionRequest const& request, RegionTransfer& transfer) {
    auto const min = array_.range().min;
    if (!request.region.lowCorner().allGreaterEqual(min)) {
        std::ostringstream text;
        text << "[MemoryAccessor] The region " << request.region << " reaches below the range " << array_.range()
             << " of the array.";
        throw std::out_of_range(text.str());
    }
    BufferHandle handle;
    getBuffer(min, request.access, handle);
    transfer.copy(request, handle);
    return true;
}

void MemoryAccessor::flush() {}

}  // namespace Quorvel::Dravik::Adt::BulkView::Accessors
