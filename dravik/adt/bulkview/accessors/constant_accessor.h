// SPDX-License-Identifier: Apache-2.0
#pragma once

// ConstantAccessor: one value in every sample. Threads: one chain, one thread; clones on threads of their own.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/bulkview/regions/region_access.h"
#include "dravik/adt/export.h"

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <memory>
#include <typeinfo>

namespace Quorvel::Dravik::Adt::BulkView::Accessors {

/// Lends one block as large as the data, which keeps a single sample in memory: its strides are 0. For reading alone.
/// Clones share the sample.
///
///     auto const land = ConstantAccessor::Make<unsigned char>({512, 512, 1, 1}, 1);
class DRAVIK_ADT_EXPORT ConstantAccessor final : public IBufferAccessor, public IRegionAccess {
  public:
    /// Copies the sample at `value`, of `bitSize` bits.
    /// @throws std::invalid_argument for a size that is not positive on every axis, for no value, and for a bit size
    /// that is neither 1 nor whole bytes
    ConstantAccessor(FixedVector<4, int> const& size, std::type_info const& sampleType, int bitSize, void const* value);
    template <class T>
    static std::unique_ptr<ConstantAccessor> Make(FixedVector<4, int> const& size, T const& value) {
        return std::make_unique<ConstantAccessor>(size, typeid(T), static_cast<int>(8 * sizeof(T)), &value);
    }

    ~ConstantAccessor() override;

    FixedVector<4, int> getSize() override;
    void setClient(IClient* client) override;
    void setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) override;
    /// @throws Exceptions::NotSupportedException for writing, with the handle unchanged
    void getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) override;
    std::unique_ptr<IBufferAccessor> createClone() const override;
    void dispose(bool flag) override;

    AccessTraits traits() const override;
    /// @throws Exceptions::NotSupportedException for writing
    bool tryTransfer(RegionRequest const& request, RegionTransfer& transfer) override;
    void flush() override;

  private:
    class Sample;

    ConstantAccessor(ConstantAccessor const& other);

    FixedVector<4, int> size_;
    std::type_info const* sampleType_;
    int bitSize_;
    boost::intrusive_ptr<Sample> sample_;
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Accessors
