// SPDX-License-Identifier: Apache-2.0
#pragma once

// ComputedAccessor: samples that a derived class computes, block by block. Threads: as the derived class says.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/bulkview/regions/region_access.h"
#include "dravik/adt/core/extent.h"
#include "dravik/adt/export.h"

#include <typeinfo>

namespace Quorvel::Dravik::Adt::BulkView::Accessors {

/// Computes each block anew into memory of its own, which lives as long as the loan, and of a region no other samples
/// than those asked for. For reading alone; put a cache above where blocks are asked for again.
class DRAVIK_ADT_EXPORT ComputedAccessor : public IBufferAccessor, public IRegionAccess {
  public:
    ~ComputedAccessor() override;

    FixedVector<4, int> getSize() override;
    void setClient(IClient* client) override;
    void setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) override;
    /// @throws Exceptions::NotSupportedException for writing; std::out_of_range for a position outside; what computing
    /// throws; the handle is then unchanged
    void getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) override;
    void dispose(bool flag) override;

    /// The natural block is that of the constructor.
    AccessTraits traits() const override;
    /// @throws Exceptions::NotSupportedException for writing; what computing throws
    bool tryTransfer(RegionRequest const& request, RegionTransfer& transfer) override;
    void flush() override;

  protected:
    /// `byteSize` bytes per sample; `block` samples per axis in a block, cut at the end.
    /// @throws std::invalid_argument for a size or a block that is not positive on every axis
    ComputedAccessor(
        FixedVector<4, int> const& size, FixedVector<4, int> const& block, std::type_info const& sampleType,
        int byteSize);
    ComputedAccessor(ComputedAccessor const&);
    ComputedAccessor& operator=(ComputedAccessor const&) = delete;

    /// Writes the samples of `region`, whose steps may be of any sign, to `memory` in C order, one beside the other.
    virtual void compute(ExtentK<4, int> const& region, void* memory) const = 0;

  private:
    class Block;

    FixedVector<4, int> size_;
    FixedVector<4, int> block_;
    std::type_info const* sampleType_;
    int byteSize_;
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Accessors
