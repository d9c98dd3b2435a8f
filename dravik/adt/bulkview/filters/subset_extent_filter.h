// SPDX-License-Identifier: Apache-2.0
#pragma once

// SubsetExtentFilter: a decimated or reversed part of an accessor as an accessor of its own. Threads: as the chain it
// is part of.

#include "dravik/adt/bulkview/filters/subset_filter.h"
#include "dravik/adt/export.h"

#include <memory>

namespace Quorvel::Dravik::Adt::BulkView::Filters {

/// Shows the indices of `extent` of its target, in the extent's order: index k along an axis is the target's
/// origin + k * step.
class DRAVIK_ADT_EXPORT SubsetExtentFilter : public SubsetFilter {
  public:
    /// Trusts `extent`; MakeSubset is the way to a filter that is known to fit.
    SubsetExtentFilter(std::unique_ptr<IBufferAccessor> target, ExtentK<4, int> const& extent) noexcept;
    SubsetExtentFilter(SubsetExtentFilter const& other);
    SubsetExtentFilter& operator=(SubsetExtentFilter const& other);
    ~SubsetExtentFilter() override;

    /// Passes on the smallest box of the target that holds the indices of `range`; an empty range becomes a box whose
    /// corners may stand the wrong way round.
    void setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) override;
    /// @throws std::length_error if the subset starts 2^31 samples or more into the block that the target lent, or its
    /// samples lie that far apart; the handle is then as the target left it
    void getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) override;
    std::unique_ptr<IBufferAccessor> createClone() const override;
    ExtentK<4, int> getSubset() const override;

  private:
    ExtentK<4, int> extent_;
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
