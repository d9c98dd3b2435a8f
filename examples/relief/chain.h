// SPDX-License-Identifier: Apache-2.0
#pragma once

// What stands between the storage and the view of the demo.

#include "counting_filter.h"
#include "grid.h"
#include "grid_store.h"
#include "options.h"

#include <dravik/adt/bulkdef/view_def.h>
#include <dravik/adt/bulkview/filters/proxy_filter.h>
#include <dravik/adt/core/extent.h>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <memory>
#include <vector>

namespace Relief {

/// A chain of accessors, from the storage up: the bricks, a proxy under which they can be exchanged, a cache that keeps
/// two rows of bricks, the part of the grid that is looked at.
struct Chain {
    using Exchange = BulkView::Filters::ProxyFilter::ProxyTargetController;

    std::unique_ptr<BulkView::IBufferAccessor> top;
    boost::shared_ptr<Exchange> exchange;
    std::shared_ptr<Traffic> read;                 ///< what reached the storage
    std::shared_ptr<CountingFilter::Count> asked;  ///< what reached the cache
};

/// A chain over `grid` that shows `view` of it.
/// @throws as FilterFactory::MakeView does
Chain makeChain(Grid const& grid, BrickShape brick, BulkDef::ViewDef const& view);

/// Puts another grid under a chain, whoever is using it.
/// @pre the grid has the size of the first
void exchangeGrid(Chain const& chain, Grid const& grid, BrickShape brick);

/// What to look at: the whole grid with north at the top, and of that the rows and columns in `subset` (none, rows, or
/// rows and columns).
/// @throws std::runtime_error where that is nothing
boost::shared_ptr<BulkDef::ViewDef const> viewOf(Grid const& grid, std::vector<Adt::ExtentImpl<int>> const& subset);

}  // namespace Relief
