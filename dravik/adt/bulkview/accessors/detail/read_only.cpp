// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/accessors/detail/read_only.h"

#include "dravik/adt/exceptions/simple_exception.h"

#include <sstream>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkView::Accessors::Detail {

void requireSize(char const* who, FixedVector<4, int> const& size) {
    if (!size.allGreaterEqual(FixedVector<4, int>::Filled(1))) {
        std::ostringstream text;
        text << "[" << who << "] Invalid argument: the size " << size << " is not positive on every axis.";
        throw std::invalid_argument(text.str());
    }
}

void refuseWriting(char const* who, AdtEnums::Access access) {
    if (access != AdtEnums::Read && access != AdtEnums::NoAccess) {
        throw Exceptions::NotSupportedException(who, "samples that are computed cannot be written.");
    }
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Accessors::Detail
