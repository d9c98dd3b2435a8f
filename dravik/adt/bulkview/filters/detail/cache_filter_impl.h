// SPDX-License-Identifier: Apache-2.0
#pragma once

// CacheFilterImpl: the cache filter for data of N axes. Made by CacheFilter::Apply. Threads: as CacheFilter.

#include "dravik/adt/bulkview/filters/cache_filter.h"

namespace Quorvel::Dravik::Adt::BulkView::Filters {

/// Looks at the first N axes of positions and blocks; the target has size 1 along the others. Compiled for N = 2, 3, 4.
template <int N>
class DRAVIK_ADT_EXPORT CacheFilterImpl final : public CacheFilter {
  public:
    /// @pre `target` is not null
    CacheFilterImpl(
        std::unique_ptr<IBufferAccessor> target, int sampleBudget, int halfDensityThreshold, int fullDensityThreshold);

    /// @throws what the target's getBuffer throws, and nothing is kept; std::bad_alloc after the target answered
    void getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) override;
    /// Over a clone of the target, with the same limits and nothing kept.
    std::unique_ptr<IBufferAccessor> createClone() const override;
};

extern template class CacheFilterImpl<2>;
extern template class CacheFilterImpl<3>;
extern template class CacheFilterImpl<4>;

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
