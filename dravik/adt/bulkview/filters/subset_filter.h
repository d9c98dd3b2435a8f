// SPDX-License-Identifier: Apache-2.0
#pragma once

// SubsetFilter: a part of an accessor, possibly decimated or reversed, as an accessor of its own. Threads: as the chain
// it is part of.

#include "dravik/adt/bulkview/filters/buffer_accessor_filter.h"
#include "dravik/adt/bulkview/regions/region_access.h"
#include "dravik/adt/core/extent.h"
#include "dravik/adt/export.h"

#include <memory>

namespace Quorvel::Dravik::Adt::BulkView::Filters {

/// Base of the filters that show a regular part of their target, with indices that start at 0.
///
/// Samples are not touched: the blocks that the target lends are handed up where they are, under the subset's labels
/// and never reaching outside it. The client is registered right at the target.
///
///     // Every second row, last one first, of a grid of 480 rows.
///     auto rows = SubsetFilter::MakeSubset(std::move(grid), extent);  // extent[0] = {479, -2, 240}
class DRAVIK_ADT_EXPORT SubsetFilter : public BufferAccessorFilter, public IRegionAccess {
  public:
    /// The cheapest accessor that shows `extent` of `target`: the target itself where the extent is all of it, else one
    /// filter over the innermost accessor, subsets of subsets being folded into one.
    /// @throws std::invalid_argument for a null target, for an extent that is empty or not inside the target, and for a
    /// step of 0 with more than one index; the target is gone then
    static std::unique_ptr<IBufferAccessor> MakeSubset(std::unique_ptr<IBufferAccessor> target, ExtentK<4, int> extent);

    SubsetFilter(SubsetFilter const& other);
    SubsetFilter& operator=(SubsetFilter const& other);
    ~SubsetFilter() override;

    /// The counts of the subset.
    FixedVector<4, int> getSize() override;

    /// The subset in indices of the target.
    virtual ExtentK<4, int> getSubset() const = 0;

    /// The target's, in indices of the subset; of a decimated axis the natural block is what is left of it, at least 1.
    AccessTraits traits() const override;
    /// Passes the request on, its region in indices of the target.
    bool tryTransfer(RegionRequest const& request, RegionTransfer& transfer) override;
    void flush() override;

  protected:
    explicit SubsetFilter(std::unique_ptr<IBufferAccessor> target) noexcept;
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
