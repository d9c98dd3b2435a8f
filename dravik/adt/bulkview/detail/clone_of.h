// SPDX-License-Identifier: Apache-2.0
#pragma once

// cloneOf: clones an accessor that may be foreign code. Threads: as the accessor's createClone.

#include "dravik/adt/bulkview/buffer_accessor.h"

#include <boost/core/demangle.hpp>

#include <memory>
#include <stdexcept>
#include <typeinfo>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

/// A clone of `accessor`, never null.
/// @throws std::logic_error, which names the accessor's type, where createClone returns null; what createClone throws
inline std::unique_ptr<IBufferAccessor> cloneOf(IBufferAccessor const& accessor) {
    auto clone = accessor.createClone();
    if (clone == nullptr) {
        throw std::logic_error(
            "[IBufferAccessor::createClone] " + boost::core::demangle(typeid(accessor).name()) +
            ": the clone is null.");
    }
    return clone;
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
