// SPDX-License-Identifier: Apache-2.0
#pragma once

// readPadded: regions that reach outside the accessor. Threads: as the accessor.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/bulkview/regions/transfer_options.h"
#include "dravik/adt/core/array_ref.h"
#include "dravik/adt/core/extent.h"
#include "dravik/adt/export.h"

namespace Quorvel::Dravik::Adt::BulkView {

/// What stands for the samples outside, along each axis of size n.
enum class Boundary {
    Constant,  ///< what the array holds already
    Nearest,   ///< the sample at the edge: index 0 or n - 1
    Reflect,   ///< mirrored at the edge sample, which is not repeated: -1 shows 1, n shows n - 2
    Wrap,      ///< the axis repeated: -1 shows n - 1, n shows 0
};

/// As readRegion for a `region` that may reach outside, to any distance. Each sample inside is read once, into memory
/// of its own that holds the smallest box of all that are shown.
/// @throws as readRegion, but for a region that reaches outside; std::bad_alloc and what SharedArray::Make throws
DRAVIK_ADT_EXPORT void readPadded(
    IBufferAccessor& accessor, ExtentK<4, int> const& region, ArrayRef<4> const& destination, Boundary boundary,
    TransferOptions const& options = {});

}  // namespace Quorvel::Dravik::Adt::BulkView
