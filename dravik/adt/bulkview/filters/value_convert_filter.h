// SPDX-License-Identifier: Apache-2.0
#pragma once

// ValueConvertFilter: an accessor of one sample type shown as one of another. Threads: as the chain it is part of; its
// handles, copies included, belong to the thread of the chain.

#include "dravik/adt/bulkview/filters/stateful_buffer_accessor_filter.h"
#include "dravik/adt/bulkview/regions/region_access.h"
#include "dravik/adt/converters/value_converter.h"
#include "dravik/adt/export.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView::Filters {

/// Converts, on every request, one run of samples along one axis of the target's block into memory of its own and lends
/// that.
///
/// The axis is the last of the axes 2, 1 and 0 along which the block has more than one sample; axis 3 never is. A run
/// is the whole row of the block if that has at most 100 samples or the block was first asked for at the row's start,
/// and 64 samples from the position on otherwise. The handle's owner holds the target's block meanwhile and asks for
/// another one only for a position outside, or to write where the block was lent for reading.
///
/// A run lent for writing is converted back whole when the handle makes its next request, lets the owner go or the
/// filter is disposed or destroyed; until then the target has the old samples. Where the way back loses precision, the
/// neighbours of a written sample lose it as well. Without an inverse converter what is written is lost. A request that
/// fails leaves the handle empty, with its owner; one that fails in carrying a run back leaves it as it was, and the
/// next one tries again. A failure in carrying back inside a destructor is dropped, since it cannot be reported.
///
/// accessorUpdated is relayed, and blocks lent before are not used for reading any more. What was written reaches them
/// still, if an owner keeps them in memory. bufferInvalidated ends here, except while a region passes, whose transfer
/// holds blocks of the target.
///
/// For the blocks that it holds the filter answers prepareBufferRelease itself, with true. A block without an owner is
/// written to, if a run is pending, and let go before the answer; one with an owner is let go by the next request of
/// the handle, which carries the run back to it. The client is notified that the run's memory is taken back, so its
/// next access is such a request. releaseBuffer does the same for a block without a prepareBufferRelease before.
///
/// A region is asked of the target, with the converter in the request's. What clients wrote into runs is carried down
/// before, and stays pending, since they may go on writing. To write a region takes back the runs that show a sample of
/// it: what is written into them later is lost, and the client receives bufferInvalidated for each, whatever becomes of
/// the rest.
///
/// @threads Another thread may send bufferInvalidated, and for blocks that an owner keeps in memory
/// prepareBufferRelease and releaseBuffer, at any moment. For a block without an owner these two must come on the
/// chain's thread or while neither the chain nor a handle is used, since the memory goes; so must accessorUpdated and
/// releaseAccessor.
///
///     auto const forward = ValueConverterFactory::getTypeConverter(typeid(float), typeid(short));
///     auto const inverse = ValueConverterFactory::getTypeConverter(typeid(short), typeid(float));
///     chain = ValueConvertFilter::Apply(std::move(chain), sizeof(short), forward, inverse);
/// @lifetime A handle may outlive the filter: what is pending is carried back with the filter's end, and the run stays
class DRAVIK_ADT_EXPORT ValueConvertFilter final : public StatefulBufferAccessorFilter, public IRegionAccess {
  public:
    using ConverterPtr = IValueConverter::ConstPtr;

    /// A filter above `target`, or `target` itself without a `forward` converter. `forward` goes from the target's
    /// sample type to the one shown, whose samples take `sampleSize` bytes; `inverse`, possibly null, goes back. The
    /// size of a type that TypeRegister does not know is the caller's word.
    /// @throws std::invalid_argument for a null target, a size that is not positive or not that of the type shown, and
    /// an inverse whose types are not those of `forward` the other way round; the text names them
    static std::unique_ptr<IBufferAccessor> Apply(
        std::unique_ptr<IBufferAccessor> target, int sampleSize, ConverterPtr const& forward,
        ConverterPtr const& inverse);

    ~ValueConvertFilter() override;

    FixedVector<4, int> getSize() override;
    void setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) override;
    /// @throws what the target and the converters throw; std::runtime_error where a block is addressed 2^31 samples or
    /// more from its buffer's start and TypeRegister does not know its sample type
    void getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) override;
    /// Over a clone of the target, with the same converters. What is pending here is not in the clone.
    std::unique_ptr<IBufferAccessor> createClone() const override;
    /// Carries back what is pending, then passes the call on.
    /// @throws what the inverse converter throws, with nothing passed on
    void dispose(bool flag) override;

    /// The target's, with the sample type shown.
    AccessTraits traits() const override;
    /// @throws Exceptions::NotSupportedException for writing without an inverse converter; std::invalid_argument for an
    /// array of another sample size than the one shown, without a converter; what carrying runs down throws. Nothing is
    /// moved then
    bool tryTransfer(RegionRequest const& request, RegionTransfer& transfer) override;
    /// Carries down what is written into runs, which stay pending.
    void flush() override;

  private:
    class TempBufferOwner;
    using Owners = std::vector<boost::intrusive_ptr<TempBufferOwner>>;

    ValueConvertFilter(
        std::unique_ptr<IBufferAccessor> target, int sampleSize, ConverterPtr const& forward,
        ConverterPtr const& inverse);
    ValueConvertFilter(ValueConvertFilter const& other);

    template <class Predicate>
    std::vector<void const*> invalidateBlocks(Predicate const& isMeant);
    int bitSize() const;
    bool knowsSampleSizes() const;
    bool tryPass(RegionRequest const& request, RegionTransfer& transfer);
    void carryDown() const;
    Owners showing(ExtentK<4, int> const& region) const;
    void tellOfOverwritten(Owners const& owners) const;
    TempBufferOwner* borrowerOf(void const* buffer);
    void giveBack(void const* buffer);

    void accessorUpdated() override;
    void bufferInvalidated(BufferHandle::Owner const* owner) override;
    bool prepareBufferRelease(void const* buffer, int& value) override;
    void releaseBuffer(void const* buffer, boost::intrusive_ptr<BufferHandle::Owner> owner) override;

    int sampleSize_;  // bytes
    ConverterPtr forward_;
    ConverterPtr inverse_;
    // While a region passes, the client holds blocks of the target and receives their notifications.
    std::atomic<bool> isPassing_ = false;
    // Guards the list and what notifications read of its owners. Never held while foreign code runs.
    std::mutex mutex_;
    TempBufferOwner* owners_ = nullptr;  // those that handles hold, a list through their own links
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
