// SPDX-License-Identifier: Apache-2.0
#pragma once

// cloneOf: clones an accessor that somebody else may have written. Threads: as the accessor's createClone.

#include "dravik/adt/bulkview/buffer_accessor.h"

#include <memory>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

/// A clone of `accessor`, never null.
/// @throws std::logic_error where createClone returns null; what createClone throws
inline std::unique_ptr<IBufferAccessor> cloneOf(IBufferAccessor const& accessor) {
    auto clone = accessor.createClone();
    if (clone == nullptr) {
        throw std::logic_error("[IBufferAccessor::createClone] The clone is null.");
    }
    return clone;
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
