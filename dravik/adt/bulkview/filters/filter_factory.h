// SPDX-License-Identifier: Apache-2.0
#pragma once

// FilterFactory: from a view definition to the accessor that shows the view. Stateless. Threads: any.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/export.h"

#include <memory>

namespace Quorvel::Dravik::Adt::BulkDef {
class ViewDef;
}

namespace Quorvel::Dravik::Adt::BulkView::Filters {

/// Makes accessors that show a view of another accessor.
class FilterFactory {
  public:
    /// What `view` shows of `target`: the target itself for a complete view, or for an array view that comes to the
    /// same; else a subset filter, a permute filter, or one over the other.
    ///
    /// The view may reverse or decimate the target and exchange its axes, but its own indices run 0, 1, 2 … on every
    /// axis. What it shows beyond the target's end is left out.
    /// @throws std::invalid_argument for a null target, and as SubsetFilter::MakeSubset does
    /// @throws Exceptions::PlainException for a view that is neither complete nor an array view, that does not show
    /// each axis once, or whose indices do not run from 0 without gaps; the target is gone then
    DRAVIK_ADT_EXPORT static std::unique_ptr<IBufferAccessor> MakeView(
        std::unique_ptr<IBufferAccessor> target, BulkDef::ViewDef const& view);
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
