// SPDX-License-Identifier: Apache-2.0
#pragma once

// CheckFilter: finds the faults of an accessor under development. Threads: as the chain it is part of.

#include "dravik/adt/bulkview/filters/stateful_buffer_accessor_filter.h"
#include "dravik/adt/bulkview/regions/region_access.h"
#include "dravik/adt/export.h"

#include <atomic>
#include <memory>
#include <string>
#include <thread>

namespace Quorvel::Dravik::Adt::BulkView::Filters {

/// Holds every answer of its target to the protocol and passes it on unchanged.
///
/// Throws std::logic_error for an answer that breaks a rule; the text names the accessor, the rule and the numbers:
/// - the size is positive on every axis, and the same until accessorUpdated is sent;
/// - a request fills the handle, which is emptied before and keeps its owner;
/// - the block contains the position asked for;
/// - the access granted covers the one asked for;
/// - the address of no sample of the block leaves 64 bits, and no sample lies before the memory;
/// - a block that may be written has a place for each sample along an axis;
/// - a clone is not null and has the same size;
/// - accessorUpdated does not come during a request;
/// - bufferInvalidated and releaseBuffer name an owner where every block had one, and none where none had;
/// - no two threads are in the chain at once.
/// A block may reach beyond the size and may have no memory. A loan that was invalidated or taken back during the
/// request is not looked at, since the consumer asks again. After the exception the handle holds what the target put
/// there.
///
///     Typed2dRoView<float> view(Filters::CheckFilter::Apply(std::make_unique<MyAccessor>()));
class DRAVIK_ADT_EXPORT CheckFilter final : public StatefulBufferAccessorFilter, public IRegionAccess {
  public:
    /// @throws std::invalid_argument for a null target
    static std::unique_ptr<IBufferAccessor> Apply(std::unique_ptr<IBufferAccessor> target);

    ~CheckFilter() override;

    FixedVector<4, int> getSize() override;
    void setClient(IClient* client) override;
    void setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) override;
    void getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) override;
    std::unique_ptr<IBufferAccessor> createClone() const override;
    void dispose(bool flag) override;

    AccessTraits traits() const override;
    /// False: regions go by blocks, each of which is checked.
    bool tryTransfer(RegionRequest const& request, RegionTransfer& transfer) override;
    void flush() override;

  private:
    class Call;

    explicit CheckFilter(std::unique_ptr<IBufferAccessor> target) noexcept;
    CheckFilter(CheckFilter const& other);

    void accessorUpdated() override;
    void bufferInvalidated(BufferHandle::Owner const* owner) override;
    bool prepareBufferRelease(void const* buffer, int& value) override;
    void releaseBuffer(void const* buffer, boost::intrusive_ptr<BufferHandle::Owner> owner) override;

    void checkSize(FixedVector<4, int> const& size) const;
    void checkOwner(char const* notification, BufferHandle::Owner const* owner) const;
    void checkLayout(BufferHandle::ArrayInfo const& info, bool isWritable) const;
    void check(FixedVector<4, int> const& position, AdtEnums::Access access, BufferHandle::Loan const& loan) const;
    [[noreturn]] void refuse(std::string const& broken) const;

    mutable std::atomic<std::thread::id> caller_;  // the thread in the chain
    std::atomic<bool> isAsking_ = false;
    std::atomic<bool> hasOwners_ = false, hasOwnerless_ = false;  // of the blocks lent so far
    std::atomic<bool> isSizeKnown_ = false;
    FixedVector<4, int> size_;
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
