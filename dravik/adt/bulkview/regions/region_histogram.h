// SPDX-License-Identifier: Apache-2.0
#pragma once

// addRegion: counts the samples of a region in a histogram. Threads: those of the options' executor.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/bulkview/regions/transfer_options.h"
#include "dravik/adt/core/extent.h"
#include "dravik/adt/export.h"
#include "dravik/adt/statistics/histogram.h"

namespace Quorvel::Dravik::Adt::BulkView {

/// Adds the samples of `region`, as float, to `histogram`, which stays as it was if that fails. Of a fixed range every
/// worker counts in a histogram of its own; a flexible one follows the samples in order, so one worker counts.
/// @throws as readRegion
DRAVIK_ADT_EXPORT void addRegion(
    Histogram& histogram, IBufferAccessor& accessor, ExtentK<4, int> const& region,
    TransferOptions const& options = {});

}  // namespace Quorvel::Dravik::Adt::BulkView
