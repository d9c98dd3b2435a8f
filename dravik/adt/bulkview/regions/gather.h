// SPDX-License-Identifier: Apache-2.0
#pragma once

// gatherSamples: single samples from all over an accessor, as of a horizon, a polyline or a set of points. Threads: as
// the accessor.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/bulkview/regions/transfer_options.h"
#include "dravik/adt/core/array_ref.h"
#include "dravik/adt/export.h"

#include <span>

namespace Quorvel::Dravik::Adt::BulkView {

/// Copies the sample at the n-th of `indices` to the n-th sample of `destination`, whatever its range starts at.
/// Indices may come in any order and repeat. On a regular bricking every brick that holds one is asked for once.
/// @throws as readRegion, std::out_of_range for the first index outside, with nothing asked
DRAVIK_ADT_EXPORT void gatherSamples(
    IBufferAccessor& accessor, std::span<FixedVector<4, int> const> indices, ArrayRef<1> const& destination,
    TransferOptions const& options = {});

}  // namespace Quorvel::Dravik::Adt::BulkView
