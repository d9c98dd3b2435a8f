// SPDX-License-Identifier: Apache-2.0
#pragma once

// BoxMeanFilter: a coarser level of a data set, each sample the mean of a box. Stateless. Threads: any.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/bulkview/stores/brick_pool.h"
#include "dravik/adt/export.h"

#include <memory>

namespace Quorvel::Dravik::Adt::BulkView {

/// Makes accessors of box means, for pictures of what is larger than the screen.
class BoxMeanFilter {
  public:
    /// A read-only accessor in which each sample is the mean of `factor` samples of `target` along each axis, or of as
    /// many as there are at the end of an axis, in the same type and rounded to the nearest. Not-a-number is left out;
    /// a box of nothing else is not-a-number. Blocks are computed once they are asked for, on clones of the target
    /// where these may work at the same time, and kept by `pool`: what changes in the target afterwards is not seen.
    /// @throws std::invalid_argument for a null target or pool, a factor below 1, and samples that are unknown or no
    /// numbers
    DRAVIK_ADT_EXPORT static std::unique_ptr<IBufferAccessor> Apply(
        std::unique_ptr<IBufferAccessor> target, int factor, std::shared_ptr<BrickPool> pool);
};

}  // namespace Quorvel::Dravik::Adt::BulkView
