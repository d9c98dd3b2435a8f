// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/accessors/memory_accessor.h"

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

}  // namespace Quorvel::Dravik::Adt::BulkView::Accessors
