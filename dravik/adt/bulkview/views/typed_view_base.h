// SPDX-License-Identifier: Apache-2.0
#pragma once

// TypedViewBase: what typed views of every sample type and number of axes share. It owns its chain of accessors and one
// handle. Threads: one view, one thread; see the class for what other threads may do meanwhile.

#include "dravik/adt/bulkview/buffer_handle.h"
#include "dravik/adt/bulkview/detail/cancellation_hold.h"
#include "dravik/adt/bulkview/views/detail/held_block.h"
#include "dravik/adt/bulkview/views/typed_view_iterator.h"
#include "dravik/adt/bulkview/views/view_base.h"
#include "dravik/adt/bulkview/views/view_exceptions.h"
#include "dravik/adt/bulkview/write_back.h"
#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/core/range.h"
#include "dravik/adt/export.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <limits>
#include <memory>
#include <typeinfo>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView {

/// The traits of views that throw ViewBoundsException for an index outside.
struct DRAVIK_ADT_EXPORT BoundsCheckViewTraits {};

/// Reads and writes single samples of type T by index, out of one block that it holds on loan.
///
/// An index inside the block costs one range test and one multiply-add per axis, without call or lock, and is not
/// checked against the size: a block that reaches beyond the view serves what lies there. Any other index is checked
/// and has the accessor asked for the block around it. Where a block has no memory, reads give the null value (a quiet
/// NaN, or 0 where the type has none) and writes are absorbed.
/// Units: indices count from 0, sizes are samples. Copying clones the chain. Moving takes the chain and the block
/// along, and leaves a view as after `dispose`. Without an accessor, everything that needs one throws ViewException.
/// @threads Another thread may send bufferInvalidated, prepareBufferRelease and releaseBuffer at any moment: the view
/// asks again, and no sample comes from or goes to a wrong place. The memory of a block taken back has to stay until
/// the call in which it was in use returns, see BufferHandle. accessorUpdated and releaseAccessor must not overlap any
/// use of the view; no notification may overlap init, dispose, a move or the end of the view.
template <int N, class T, class Traits = BoundsCheckViewTraits>
class DRAVIK_ADT_EXPORT TypedViewBase : public ViewBase {
    static_assert(1 <= N && N <= 4);

  public:
    using Index = FixedVector<N, int>;
    using Iterator = TypedViewIterBase<N, T, Traits>;
    using Box = TypedViewBox<N, T, Traits>;

    static constexpr int ndims() noexcept { return N; }
    /// Samples along each axis, all 0 without an accessor.
    Index const& size() const noexcept { return size_; }
    int size(int axis) const noexcept { return size_.data()[axis]; }
    std::type_info const& valueType() const override { return typeid(T); }

    /// Carries back what is pending as dispose does, releases the block before the old chain is destroyed, then reads
    /// the new one's size. If that fails, the new chain stays and the size is the old one.
    /// @throws std::invalid_argument for a chain that tells another sample type, with the view as it was
    void init(std::unique_ptr<IBufferAccessor> accessor) override;
    /// Carries back first what the block's owner keeps of written samples.
    /// @throws what carrying back throws, with the view as it was and the samples kept for another try
    void dispose() override;

    /// The sample at `index`.
    /// @throws ViewBoundsException outside the view, ViewException without an accessor, and what the accessor throws
    /// @lifetime until the next access through this view, or until the accessor takes the block back
    T const& get(Index const& index) const { return block_.holds(index) ? block_.at(index) : getOnMiss(index); }

    /// Sets `iterator` before the first index of the box [start, start + count), or of the whole view.
    void getIterator(Iterator& iterator) const { getIterator(iterator, Index(), size_); }
    void getIterator(Iterator& iterator, Index const& start, Index const& count) const;

    /// The samples of the box [start, start + count), or of the whole view, last axis fastest, for a range-based loop.
    /// A box that leaves the view ends with the exception of the first sample outside.
    Box samples() const { return samples(Index(), size_); }
    Box samples(Index const& start, Index const& count) const { return Box(*this, block_, boxOf(start, count)); }

    /// Copies the `count` samples from `first` on along `axis` to `out`; none for a count of 0 or less.
    /// @pre 0 <= axis < N
    /// @throws as get does, with the samples of the blocks before already in `out`
    void trace(Index const& first, int axis, T* out, int count) const {
        // One look at the block for index, length and address: between two it may be another one.
        bool const isHeld = block_.holds(first) && count <= std::int64_t{block_.end(axis)} - first.data()[axis];
        isHeld ? Detail::copyRun(&block_.at(first), block_.stride(axis), count, out)
               : forEachRun(first, axis, count, [&out](T const* samples, std::int64_t stride, int taken) {
                     Detail::copyRun(samples, stride, taken, out);
                     out += taken;
                 });
    }

    /// Calls act(accessor) with the chain, for what a view itself does not do: whole regions. What is pending is
    /// carried back first, the view holds no block meanwhile and is the client again afterwards.
    template <class Act>
    void useAccessor(Act act) const;

    /// Hints that the box [start, start + count) will be read soon, clipped to the view; or no longer.
    void setPrefetchHint(Index const& start, Index const& count);
    void cancelPrefetch();
    /// Hints to keep the whole view at hand; or no longer.
    void setCacheHint(bool on);

  protected:
    TypedViewBase() noexcept = default;
    TypedViewBase(TypedViewBase const& other) : TypedViewBase() { *this = other; }
    TypedViewBase& operator=(TypedViewBase const& other);
    TypedViewBase(TypedViewBase&& other) noexcept : TypedViewBase() { take(other); }
    TypedViewBase& operator=(TypedViewBase&& other) noexcept;
    ~TypedViewBase() override;

    /// Stores `value` at `index`; exceptions as for get, with the access ReadWrite.
    void put(Index const& index, T const& value) {
        bool const held = block_.holds(index) && block_.isWritable();
        (held ? block_.writableAt(index) : writableOnMiss(index)) = value;
    }

    /// Calls take(first, stride, count) for each run of samples along `axis` that lies in one block.
    template <class Take>
    void forEachRun(Index index, int axis, int count, Take take) const;

    /// Whether the chain does not tell that it cannot be written.
    bool mayBeWritten() const;

    /// Fetches the block around an index.
    void getReadBuffer(Index const& index) const;
    /// As getReadBuffer, but stays with the block held if that was read by a loan that may be written as well.
    void getWriteBuffer(Index const& index);

    /// Samples from the start of the block's memory to the index on the axes given.
    template <int K>
    requires(K <= 4) std::int64_t offset(FixedVector<K, int> const& index)
    const noexcept { return heldBlock().offset(index); }
    std::int64_t offset(int i) const noexcept { return offset(FixedVector<1, int>(i)); }
    std::int64_t offset(int i, int j) const noexcept { return offset(FixedVector<2, int>(i, j)); }
    std::int64_t offset(int i, int j, int k) const noexcept { return offset(FixedVector<3, int>(i, j, k)); }
    std::int64_t offset(int i, int j, int k, int l) const noexcept { return offset(FixedVector<4, int>(i, j, k, l)); }

    /// The block that the last access was served from.
    Detail::HeldBlock<N, T> const& heldBlock() const noexcept {
        block_.complete();
        return block_;
    }

    void accessorUpdated() override;
    void bufferInvalidated(BufferHandle::Owner const* owner) override;
    bool prepareBufferRelease(void const* buffer, int& value) override;
    void releaseBuffer(void const* buffer, boost::intrusive_ptr<BufferHandle::Owner> owner) override;

  private:
    T const& getOnMiss(Index index) const;
    /// As get, with the view holding the block of the sample, copies and all, where get may only have glanced at it.
    T const& getAndHold(Index const& index) const;
    T& writableOnMiss(Index index);
    void checkInside(Index const& index, AdtEnums::Access access) const;
    [[noreturn]] void refuse(Index const& index, AdtEnums::Access access) const;
    T const& glance(Index const& index) const;
    void request(Index const& index, AdtEnums::Access access) const;
    bool stands(std::uint64_t notices) const;
    void writeBack() const;
    void readSize();
    void letGo() noexcept;
    void take(TypedViewBase& other) noexcept;
    OpenEndedRange<4, int> wholeBox() const noexcept;
    static OpenEndedRange<N, int> boxOf(Index const& start, Index const& count) noexcept;

    mutable Detail::HeldBlock<N, T> block_;
    Index size_;
};

namespace Detail {

/// The vector on four axes, `fill` on those it does not have; and its first N components.
template <int N>
FixedVector<4, int> widened(FixedVector<N, int> const& vector, int fill) noexcept {
    if constexpr (N == 4) {
        return vector;
    } else {
        return FixedVector<4, int>(vector, fill);
    }
}
template <int N>
FixedVector<N, int> narrowed(FixedVector<4, int> const& vector) noexcept {
    FixedVector<N, int> result;
    for (int axis = 0; axis < N; ++axis) {
        result.data()[axis] = vector.data()[axis];
    }
    return result;
}

}  // namespace Detail

template <int N, class T, class Traits>
TypedViewBase<N, T, Traits>::~TypedViewBase() {
    letGo();
}

template <int N, class T, class Traits>
TypedViewBase<N, T, Traits>& TypedViewBase<N, T, Traits>::operator=(TypedViewBase const& other) {
    if (this != &other) {
        writeBack();
        block_.release();
        ViewBase::operator=(other);
    }
    readSize();
    return *this;
}

template <int N, class T, class Traits>
TypedViewBase<N, T, Traits>& TypedViewBase<N, T, Traits>::operator=(TypedViewBase&& other) noexcept {
    if (this != &other) {
        letGo();
        take(other);
    }
    return *this;
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::init(std::unique_ptr<IBufferAccessor> accessor) {
    if (accessor != nullptr) {
        expectSamples(*accessor, typeid(T), static_cast<int>(8 * sizeof(T)));
        // An owner may need the chain that lent it, to write back what is pending: first the block, then the chain.
        writeBack();
        block_.release();
    }
    ViewBase::init(std::move(accessor));
    readSize();
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::dispose() {
    writeBack();
    block_.release();
    ViewBase::dispose();
    readSize();
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::readSize() {
    block_.release();
    size_ = isNull() ? Index() : Detail::narrowed<N>(accessor().getSize());
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::writeBack() const {
    auto const owner = block_.handle().loan().owner;
    if (auto* const pending = dynamic_cast<IWriteBack*>(owner.get())) {
        pending->writeBack();
    }
}

// The end of a view, which must not fail: a block whose owner's lock throws goes without it. A failure to carry back
// has nobody to tell here; the owner of the block tries once more.
template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::letGo() noexcept {
    Detail::CancellationHold const hold;
    block_.abandon();
    destroyAccessor();
    size_ = Index();
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::take(TypedViewBase& other) noexcept {
    block_.takeFrom(other.block_, [&] { takeAccessor(other); });
    size_ = std::exchange(other.size_, Index());
    if (isNull()) {
        letGo();
    }
}

template <int N, class T, class Traits>
T const& TypedViewBase<N, T, Traits>::getOnMiss(Index index) const {
    return block_.isAtHand(index) && block_.complete() ? block_.at(index) : glance(index);
}

// In one piece with getOnMiss, as are its parts: where blocks change with every sample, calls are what that costs.
template <int N, class T, class Traits>
[[gnu::always_inline]] inline T const& TypedViewBase<N, T, Traits>::glance(Index const& index) const {
    T const* sample = nullptr;
    std::uint64_t notices = 0;
    bool isContained = true;
    do {
        checkInside(index, AdtEnums::Read);
        notices = block_.handle().notices();
        request(index, AdtEnums::Read);
        sample = block_.glance(index, notices);
        isContained = sample != nullptr || block_.adopt(index, /*forWriting=*/false);
    } while (!stands(notices));
    if (!isContained) {
        refuse(index, AdtEnums::Read);
    }
    return sample != nullptr ? *sample : block_.at(index);
}

template <int N, class T, class Traits>
T const& TypedViewBase<N, T, Traits>::getAndHold(Index const& index) const {
    bool const isHeld = block_.holds(index) || (block_.isAtHand(index) && block_.complete());
    if (!isHeld) {
        getReadBuffer(index);
    }
    return block_.at(index);
}

template <int N, class T, class Traits>
T& TypedViewBase<N, T, Traits>::writableOnMiss(Index index) {
    if (!block_.isWritable() || !block_.isAtHand(index)) {
        getWriteBuffer(index);
    }
    return block_.writableAt(index);
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::getReadBuffer(Index const& index) const {
    std::uint64_t notices = 0;
    bool isContained = false;
    do {
        checkInside(index, AdtEnums::Read);
        notices = block_.handle().notices();
        request(index, AdtEnums::Read);
        isContained = block_.adopt(index, /*forWriting=*/false);
    } while (!stands(notices));
    if (!isContained) {
        refuse(index, AdtEnums::Read);
    }
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::getWriteBuffer(Index const& index) {
    std::uint64_t notices = 0;
    bool isContained = false;
    do {
        accessor();
        notices = block_.handle().notices();
        if (!block_.isWritableAsHeld(index)) {
            checkInside(index, AdtEnums::ReadWrite);
            request(index, AdtEnums::ReadWrite);
        }
        isContained = block_.adopt(index, /*forWriting=*/true);
    } while (!stands(notices));
    if (!isContained) {
        refuse(index, AdtEnums::ReadWrite);
    }
}

template <int N, class T, class Traits>
[[gnu::always_inline]] inline void TypedViewBase<N, T, Traits>::checkInside(
    Index const& index, AdtEnums::Access access) const {
    accessor();
    bool inside = true;
    for (int axis = 0; axis < N; ++axis) {
        inside = inside && static_cast<unsigned>(index.data()[axis]) < static_cast<unsigned>(size_.data()[axis]);
    }
    if (!inside) {
        refuse(index, access);
    }
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::refuse(Index const& index, AdtEnums::Access access) const {
    throw ViewBoundsException(Detail::widened(index, 0), Detail::widened(size_, 0), N, access);
}

template <int N, class T, class Traits>
[[gnu::always_inline]] inline void TypedViewBase<N, T, Traits>::request(
    Index const& index, AdtEnums::Access access) const {
    // Whatever becomes of the request, the block held is another one.
    block_.distrust();
    accessor().getBuffer(Detail::widened(index, 0), access, block_.handle());
}

// A block that was taken back or invalidated since `notices` were read goes; the caller asks again.
template <int N, class T, class Traits>
bool TypedViewBase<N, T, Traits>::stands(std::uint64_t notices) const {
    if (block_.handle().standsSince(notices)) {
        return true;
    }
    block_.distrust();
    block_.handle().reset(/*releaseOwner=*/true);
    return false;
}

template <int N, class T, class Traits>
template <class Act>
void TypedViewBase<N, T, Traits>::useAccessor(Act act) const {
    auto& chain = accessor();
    writeBack();
    block_.release();
    auto* const client = const_cast<TypedViewBase*>(this);
    try {
        act(chain);
    } catch (...) {
        try {
            chain.setClient(client);
        } catch (std::exception const&) {  // the caller gets the failure of the work
        }
        throw;
    }
    chain.setClient(client);
}

template <int N, class T, class Traits>
template <class Take>
void TypedViewBase<N, T, Traits>::forEachRun(Index index, int axis, int count, Take take) const {
    int& along = index.data()[axis];
    while (count > 0) {
        T const* const first = &getAndHold(index);
        // At least the sample that was just served, whatever the block claims to hold.
        std::int64_t const left = std::max<std::int64_t>(std::int64_t{block_.end(axis)} - along, 1);
        int const taken = static_cast<int>(std::min<std::int64_t>(left, count));
        take(first, block_.stride(axis), taken);
        along += taken;
        count -= taken;
    }
}

template <int N, class T, class Traits>
bool TypedViewBase<N, T, Traits>::mayBeWritten() const {
    return isNull() || chainMayBeWritten();
}

template <int N, class T, class Traits>
OpenEndedRange<4, int> TypedViewBase<N, T, Traits>::wholeBox() const noexcept {
    return {FixedVector<4, int>(), Detail::widened(size_, 1)};
}

// [start, start + count), as far as indices go.
template <int N, class T, class Traits>
OpenEndedRange<N, int> TypedViewBase<N, T, Traits>::boxOf(Index const& start, Index const& count) noexcept {
    OpenEndedRange<N, int> box{start, start};
    for (int axis = 0; axis < N; ++axis) {
        std::int64_t const end = std::int64_t{start.data()[axis]} + count.data()[axis];
        constexpr std::int64_t kLowest = std::numeric_limits<int>::min();
        constexpr std::int64_t kHighest = std::numeric_limits<int>::max();
        box.max.data()[axis] = static_cast<int>(end > kHighest ? kHighest : end < kLowest ? kLowest : end);
    }
    return box;
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::setPrefetchHint(Index const& start, Index const& count) {
    OpenEndedRange<4, int> box{Detail::widened(start, 0), Detail::widened(boxOf(start, count).max, 1)};
    box.intersect(wholeBox());
    accessor().setHint(IBufferAccessor::Prefetch, box, 1.0f);
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::cancelPrefetch() {
    accessor().setHint(IBufferAccessor::CancelPrefetch, {}, 1.0f);
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::setCacheHint(bool on) {
    accessor().setHint(IBufferAccessor::Cache, on ? wholeBox() : OpenEndedRange<4, int>(), 1.0f);
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::getIterator(Iterator& iterator, Index const& start, Index const& count) const {
    iterator = Iterator(*this, block_, boxOf(start, count));
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::accessorUpdated() {
    IBufferAccessor& target = accessor();
    try {
        size_ = Detail::narrowed<N>(target.getSize());
    } catch (...) {
        // A failure leaves the size as it was; the block is of a layout that is gone.
        TypedViewBase::bufferInvalidated(block_.handle().owner());
        throw;
    }
    TypedViewBase::bufferInvalidated(block_.handle().owner());
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::bufferInvalidated(BufferHandle::Owner const* owner) {
    BufferHandle& handle = block_.handle();
    if (owner != handle.owner()) {
        return;
    }
    handle.invalidate(/*emptyRange=*/false);
    // A view that shows the null value keeps showing it; one that reads memory must ask again.
    handle.invalidate(/*emptyRange=*/block_.showsMemory());
}

template <int N, class T, class Traits>
bool TypedViewBase<N, T, Traits>::prepareBufferRelease(void const* buffer, int& value) {
    if (buffer != block_.handle().buffer()) {
        return false;
    }
    value = value > 10000 ? value : 10000;
    block_.handle().invalidate(/*emptyRange=*/true);
    return true;
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::releaseBuffer(void const* buffer, boost::intrusive_ptr<BufferHandle::Owner> owner) {
    block_.handle().tryThreadSafeReset(buffer, std::move(owner));
}

}  // namespace Quorvel::Dravik::Adt::BulkView
