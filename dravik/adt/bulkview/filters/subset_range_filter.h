// SPDX-License-Identifier: Apache-2.0
#pragma once

// SubsetRangeFilter: a box of an accessor as an accessor of its own. Threads: as the chain it is part of.

#include "dravik/adt/bulkview/filters/subset_filter.h"
#include "dravik/adt/core/range.h"
#include "dravik/adt/export.h"

#include <memory>

namespace Quorvel::Dravik::Adt::BulkView::Filters {

/// Shows the box `range` of its target: index 0 is the target's range.min.
class DRAVIK_ADT_EXPORT SubsetRangeFilter : public SubsetFilter {
  public:
    /// Trusts `range`; MakeSubset is the way to a filter that is known to fit.
    SubsetRangeFilter(std::unique_ptr<IBufferAccessor> target, OpenEndedRange<4, int> const& range) noexcept;
    SubsetRangeFilter(SubsetRangeFilter const& other);
    SubsetRangeFilter& operator=(SubsetRangeFilter const& other);
    ~SubsetRangeFilter() override;

    void setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) override;
    /// @throws std::length_error if the subset starts 2^31 samples or more into the block that the target lent; the
    /// handle is then as the target left it
    void getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) override;
    std::unique_ptr<IBufferAccessor> createClone() const override;
    ExtentK<4, int> getSubset() const override;

  private:
    OpenEndedRange<4, int> range_;
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
