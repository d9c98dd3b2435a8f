// SPDX-License-Identifier: Apache-2.0
#pragma once

// MemoryAccessor: lends an array that is in memory already. Shares the array's bytes with the maker. Threads: one
// chain, one thread; clones may be read from several threads at once, writers among them guard themselves.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/bulkview/regions/region_access.h"
#include "dravik/adt/core/shared_array.h"
#include "dravik/adt/export.h"

namespace Quorvel::Dravik::Adt::BulkView::Accessors {

/// Lends its whole array on every request, whatever the position; sends no notifications and ignores hints.
///
/// Copies and clones share the samples. An array without memory gets it with the first request that may write; until
/// then a reader is lent the block without memory, and holds on to it: a view that read first absorbs what it writes.
/// A clone made before that finds the memory with its own first writing request.
/// @lifetime the accessor keeps the bytes alive, not the loan
class DRAVIK_ADT_EXPORT MemoryAccessor : public IBufferAccessor, public IRegionAccess {
  public:
    /// Without data: getSize fails.
    MemoryAccessor() = default;
    explicit MemoryAccessor(SharedArray<4> const& array) : array_(array) {}
    explicit MemoryAccessor(SharedArray<2> const& array) : array_(array) {}
    explicit MemoryAccessor(SharedArray<3> const& array) : array_(array) {}

    /// The upper corner of the array's range.
    /// @throws std::runtime_error where the array has no storage
    FixedVector<4, int> getSize() override;
    void setClient(IClient* client) override;
    void setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) override;
    /// Lends for Read what was asked for Read, and for ReadWrite everything else. The handle's owner stays.
    /// @throws Exceptions::NotSupportedException for writing into memory that its owner calls read-only, and as
    /// SharedArray::allocate does; the handle is then unchanged
    void getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) override;
    std::unique_ptr<IBufferAccessor> createClone() const override;
    /// Releases the samples. A request that may write gets new ones.
    void dispose(bool flag) override;

    /// Any cut of the array is as good as another.
    AccessTraits traits() const override;
    /// Copies a region at once.
    /// @throws std::out_of_range for a region that reaches below the array's range; as SharedArray::allocate does
    bool tryTransfer(RegionRequest const& request, RegionTransfer& transfer) override;
    /// Nothing is ever held back.
    void flush() override;

    /// The array, sharing the samples: what views have written can be read there.
    SharedArray<4> data() const { return array_; }

  private:
    SharedArray<4> array_;
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Accessors
