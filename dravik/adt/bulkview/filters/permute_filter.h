// SPDX-License-Identifier: Apache-2.0
#pragma once

// PermuteFilter: an accessor with its axes in another order. Threads: as the chain it is part of.

#include "dravik/adt/bulkview/filters/buffer_accessor_filter.h"
#include "dravik/adt/bulkview/regions/region_access.h"
#include "dravik/adt/export.h"

#include <memory>

namespace Quorvel::Dravik::Adt::BulkView::Filters {

/// Shows axis order[a] of its target as axis a.
///
/// Samples are not touched: the blocks that the target lends are handed up where they are, their axes relabelled. The
/// client is registered right at the target.
///
///     // Time slices of a cube as its first axis.
///     cube = PermuteFilter::Apply(std::move(cube), {2, 0, 1, 3});
class DRAVIK_ADT_EXPORT PermuteFilter final : public BufferAccessorFilter, public IRegionAccess {
  public:
    /// A filter above `target`, or `target` itself where the order changes nothing. Over another one both become one,
    /// or none where they cancel each other.
    /// @throws std::invalid_argument for a null target, and unless each axis from 0 to 3 is in `order` once; the target
    /// is gone then
    static std::unique_ptr<IBufferAccessor> Apply(
        std::unique_ptr<IBufferAccessor> target, FixedVector<4, int> const& order);

    PermuteFilter(PermuteFilter const& other);
    PermuteFilter& operator=(PermuteFilter const& other);
    ~PermuteFilter() override;

    FixedVector<4, int> const& order() const noexcept { return order_; }

    FixedVector<4, int> getSize() override;
    void setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) override;
    void getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) override;
    std::unique_ptr<IBufferAccessor> createClone() const override;

    AccessTraits traits() const override;
    /// Passes the request on, its axes and those of its array in the target's order.
    bool tryTransfer(RegionRequest const& request, RegionTransfer& transfer) override;
    void flush() override;

  private:
    PermuteFilter(std::unique_ptr<IBufferAccessor> target, FixedVector<4, int> const& order) noexcept;

    FixedVector<4, int> order_;
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
