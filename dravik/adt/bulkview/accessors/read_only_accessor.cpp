// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/accessors/read_only_accessor.h"

#include "dravik/adt/exceptions/simple_exception.h"

#include <sstream>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkView::Accessors {

ReadOnlyAccessor::~ReadOnlyAccessor() = default;

void ReadOnlyAccessor::setClient(IClient* /*client*/) {}

void ReadOnlyAccessor::setHint(HintType /*type*/, OpenEndedRange<4, int> const& /*range*/, float /*weight*/) {}

void ReadOnlyAccessor::getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) {
    if (access != AdtEnums::Read) {
        throw Exceptions::NotSupportedException("ReadOnlyAccessor", "its samples can be read alone.");
    }
    auto const size = getSize();
    if (!OpenEndedRange<4, int>::OfSize(size).contains(position)) {
        std::ostringstream text;
        text << "[ReadOnlyAccessor] Position " << position << " is outside the size " << size << ".";
        throw std::out_of_range(text.str());
    }
    lend(position, handle);
}

void ReadOnlyAccessor::dispose(bool /*flag*/) {}

}  // namespace Quorvel::Dravik::Adt::BulkView::Accessors
