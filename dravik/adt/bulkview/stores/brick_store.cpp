// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/stores/brick_store.h"

#include "dravik/adt/exceptions/simple_exception.h"

namespace Quorvel::Dravik::Adt::BulkView {

IBrickStore::~IBrickStore() = default;

void IBrickStore::write(OpenEndedRange<4, int> const& /*box*/, void const* /*samples*/) {
    throw Exceptions::NotSupportedException("IBrickStore::write", "the store is read-only.");
}

void IBrickStore::flush() {}

bool IBrickStore::hasSamples(OpenEndedRange<4, int> const& /*box*/) const {
    return true;
}

bool IBrickStore::servesParts() const {
    return false;
}

bool IBrickStore::servesSteps() const {
    return false;
}

void IBrickStore::readSteps(ExtentK<4, int> const& /*region*/, void* /*samples*/) const {
    throw Exceptions::NotSupportedException("IBrickStore::readSteps", "the store is read by boxes.");
}

}  // namespace Quorvel::Dravik::Adt::BulkView
