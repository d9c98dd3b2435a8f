// SPDX-License-Identifier: Apache-2.0
#include "chain.h"

#include <dravik/adt/bulkdef/view/array_subset_def.h>
#include <dravik/adt/bulkdef/view/complete_view_def.h>
#include <dravik/adt/bulkdef/view/composite_view_def.h>
#include <dravik/adt/bulkview/filters/cache_filter.h>
#include <dravik/adt/bulkview/filters/filter_factory.h>
#include <dravik/adt/bulkview/stores/store_accessor.h>

#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <stdexcept>
#include <utility>

namespace Relief {
namespace {

using BulkDef::View::ArraySubsetDef;
using BulkDef::View::CompleteViewDef;
using BulkDef::View::CompositeViewDef;
using BulkView::Filters::CacheFilter;
using BulkView::Filters::FilterFactory;
using BulkView::Filters::ProxyFilter;
using Extent = Adt::ExtentImpl<int>;

std::unique_ptr<BulkView::IBufferAccessor> bricksOf(
    Grid const& grid, BrickShape brick, std::shared_ptr<Traffic> traffic) {
    auto store =
        std::make_shared<CountedStore>(grid.store, Position(brick.rows, brick.columns, 1, 1), std::move(traffic));
    // The pool lends and keeps nothing: the cache filter above does.
    return BulkView::StoreAccessor::Make(std::move(store), std::make_shared<BulkView::BrickPool>(0));
}

// Rows are read one after the other, so two rows of bricks answer nearly all but the first request for each of them.
int samplesInTwoRowsOfBricks(Grid const& grid, BrickShape brick) {
    std::int64_t const columns = std::int64_t{grid.columns()} + brick.columns;
    return static_cast<int>(std::min<std::int64_t>(2 * columns * brick.rows, INT_MAX));
}

}  // namespace

Chain makeChain(Grid const& grid, BrickShape brick, BulkDef::ViewDef const& view) {
    Chain chain{
        nullptr, boost::make_shared<Chain::Exchange>(), std::make_shared<Traffic>(),
        std::make_shared<CountingFilter::Count>(0)};
    chain.top = ProxyFilter::MakeProxy(bricksOf(grid, brick, chain.read), chain.exchange);
    chain.top = CacheFilter::Apply(
        std::move(chain.top), samplesInTwoRowsOfBricks(grid, brick), CacheFilter::kNever, CacheFilter::kNever);
    chain.top = std::make_unique<CountingFilter>(std::move(chain.top), chain.asked);
    chain.top = FilterFactory::MakeView(std::move(chain.top), view);
    return chain;
}

void exchangeGrid(Chain const& chain, Grid const& grid, BrickShape brick) {
    chain.exchange->setTarget(bricksOf(grid, brick, chain.read));
}

boost::shared_ptr<BulkDef::ViewDef const> viewOf(Grid const& grid, std::vector<Extent> const& subset) {
    Extent const allRows{0, 1, grid.rows()};
    Extent const allColumns{0, 1, grid.columns()};
    boost::shared_ptr<BulkDef::ViewDef const> northUp = CompleteViewDef::Instance();
    if (grid.rowsGoNorth) {
        northUp = boost::make_shared<ArraySubsetDef<2>>(Adt::ExtentK<2, int>{allRows.reversed(), allColumns});
    }
    Extent const rows = subset.empty() ? allRows : subset[0];
    Extent const columns = subset.size() < 2 ? allColumns : subset[1];
    if (rows.intersection(allRows).isEmpty() || columns.intersection(allColumns).isEmpty()) {
        throw std::runtime_error("nothing of " + grid.name + " lies in that subset");
    }
    return CompositeViewDef::compose(*northUp, ArraySubsetDef<2>({rows, columns}));
}

}  // namespace Relief
