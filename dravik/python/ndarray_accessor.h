// SPDX-License-Identifier: Apache-2.0
#pragma once

// NdarrayAccessor: samples in memory with any strides, as the bottom of a chain. Threads: each clone on its own.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/bulkview/regions/region_access.h"

#include <array>
#include <cstdint>
#include <memory>
#include <typeinfo>

namespace Quorvel::Dravik::Python {

/// Memory of somebody else, kept by `keeper` for as long as a chain or a loan needs it.
struct Ndarray {
    char* samples = nullptr;  ///< the one at index 0 of every axis
    Adt::FixedVector<4, int> size;
    std::array<std::int64_t, 4> strides{};  ///< samples, of either sign
    std::type_info const* sampleType = &typeid(void);
    int bitSize = 0;
    bool writable = false;
    std::shared_ptr<void const> keeper;
};

/// Lends the memory itself: all of it, or the largest aligned part whose positions fit 31 bits.
class NdarrayAccessor final : public Adt::BulkView::IBufferAccessor, public Adt::BulkView::IRegionAccess {
  public:
    explicit NdarrayAccessor(Ndarray array);

    Adt::FixedVector<4, int> getSize() override;
    void setClient(IClient* client) override;
    void setHint(HintType type, Adt::OpenEndedRange<4, int> const& range, float weight) override;
    void getBuffer(
        Adt::FixedVector<4, int> position, Adt::BulkView::AdtEnums::Access access,
        Adt::BulkView::BufferHandle& handle) override;
    std::unique_ptr<IBufferAccessor> createClone() const override;
    void dispose(bool flag) override;

    Adt::BulkView::AccessTraits traits() const override;
    bool tryTransfer(Adt::BulkView::RegionRequest const& request, Adt::BulkView::RegionTransfer& transfer) override;
    void flush() override;

  private:
    class Keeper;

    Ndarray array_;
    Adt::FixedVector<4, int> block_;  // samples per axis of what is lent at once
    boost::intrusive_ptr<Adt::BulkView::BufferHandle::Owner> owner_;
};

}  // namespace Quorvel::Dravik::Python
