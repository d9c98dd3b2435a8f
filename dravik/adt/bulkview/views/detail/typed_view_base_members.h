// SPDX-License-Identifier: Apache-2.0
#pragma once

// The members of TypedViewBase beside the fast paths.

#include "dravik/adt/bulkview/views/typed_view_base.h"
#include "dravik/adt/bulkview/views/typed_view_iterator.h"
#include "dravik/adt/bulkview/views/view_exceptions.h"
#include "dravik/adt/bulkview/write_back.h"

#include <algorithm>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView {

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
    std::copy_n(vector.begin(), N, result.begin());
    return result;
}

}  // namespace Detail

template <int N, class T, class Traits>
TypedViewBase<N, T, Traits>::~TypedViewBase() {
    // Here a failure to carry back has nobody to tell; the block's owner tries once more.
    resetBlock();
    ViewBase::dispose();
}

template <int N, class T, class Traits>
TypedViewBase<N, T, Traits>& TypedViewBase<N, T, Traits>::operator=(TypedViewBase const& other) {
    if (this != &other) {
        writeBack();
        resetBlock();
        ViewBase::operator=(other);
    }
    updateRedundant();
    return *this;
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::init(std::unique_ptr<IBufferAccessor> accessor) {
    if (accessor != nullptr) {
        // An owner may need the chain that lent it, to write back what is pending: first the block, then the chain.
        writeBack();
        resetBlock();
    }
    ViewBase::init(std::move(accessor));
    updateRedundant();
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::dispose() {
    writeBack();
    resetBlock();
    ViewBase::dispose();
    updateRedundant();
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::updateRedundant() {
    resetBlock();
    size_ = isNull() ? Index() : Detail::narrowed<N>(accessor().getSize());
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::writeBack() const {
    auto const owner = handle_.loan().owner;
    if (auto* const pending = dynamic_cast<IWriteBack*>(owner.get())) {
        pending->writeBack();
    }
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::resetBlock() const {
    window_.close();
    inStep_ = false;
    handle_.reset(/*releaseOwner=*/true);
    Detail::storeRelaxed<T const*>(readPointer_, nullptr);
    writePointer_ = nullptr;
    readOrigin_ = writeOrigin_ = 0;
    originOffset_ = 0;
}

template <int N, class T, class Traits>
T const& TypedViewBase<N, T, Traits>::getOnMiss(Index index) const {
    // The window is not open for every block that the handle may hold.
    if (!inStep_ || !handle_.contains(index)) {
        getReadBuffer(index);
    }
    return *reinterpret_cast<T const*>(address(readOrigin_, index));
}

template <int N, class T, class Traits>
T& TypedViewBase<N, T, Traits>::writableOnMiss(Index index) {
    if (!inStep_ || writePointer_ == nullptr || !handle_.contains(index)) {
        getWriteBuffer(index);
    }
    return *reinterpret_cast<T*>(address(writeOrigin_, index));
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::getReadBuffer(Index const& index) const {
    do {
        checkInside(index, AdtEnums::Read);
        request(index, AdtEnums::Read);
        adoptForReading();
    } while (resetIfInvalidated());
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::getWriteBuffer(Index const& index) {
    do {
        accessor();
        // In step, since a request that failed may leave a handle behind whose samples were never read.
        bool const readByLoanForBoth =
            inStep_ && writePointer_ == nullptr && handle_.contains(index) && handle_.access() == AdtEnums::ReadWrite;
        if (!readByLoanForBoth) {
            checkInside(index, AdtEnums::ReadWrite);
            request(index, AdtEnums::ReadWrite);
        }
        adoptForWriting();
    } while (resetIfInvalidated());
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::checkInside(Index const& index, AdtEnums::Access access) const {
    accessor();
    bool inside = true;
    for (int axis = 0; axis < N; ++axis) {
        inside = inside && static_cast<unsigned>(index.data()[axis]) < static_cast<unsigned>(size_.data()[axis]);
    }
    if (!inside) {
        throw ViewBoundsException(Detail::widened(index, 0), Detail::widened(size_, 0), N, access);
    }
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::request(Index const& index, AdtEnums::Access access) const {
    // Whatever becomes of the request, the copies no longer tell what the handle holds.
    window_.close();
    inStep_ = false;
    accessor().getBuffer(Detail::widened(index, 0), access, handle_);
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::adoptForReading() const {
    auto const* const buffer = static_cast<T const*>(handle_.buffer());
    buffer == nullptr ? adopt(&Detail::nullSample<T>(), &scratch_) : adopt(buffer, nullptr);
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::adoptForWriting() const {
    auto* const buffer = static_cast<T*>(handle_.buffer());
    buffer == nullptr ? adopt(&Detail::nullSample<T>(), &scratch_) : adopt(buffer, buffer);
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::adopt(T const* readPointer, T* writePointer) const {
    auto info = handle_.infoSnapshot();
    if (writePointer == &scratch_) {
        // Every index of a block without memory maps onto the one sample.
        std::fill_n(info.strides.begin(), N, 0);
        info.offset = 0;
    }
    adoptStrides(info);
    writePointer_ = writePointer;
    readOrigin_ = reinterpret_cast<std::uintptr_t>(readPointer) + static_cast<std::uint64_t>(originOffset_) * sizeof(T);
    writeOrigin_ = writePointer == nullptr ? 0
                                           : reinterpret_cast<std::uintptr_t>(writePointer) +
                                                 static_cast<std::uint64_t>(originOffset_) * sizeof(T);
    lastAxisEnd_ = info.range.max.data()[N - 1];
    ++fetchCount_;
    inStep_ = true;
    window_.open(info.range);
    // Before the handle is asked whether the loan stands: a notification that comes too late to be seen there sees this
    // pointer and empties the range.
    Detail::storeRelaxed(readPointer_, readPointer);
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::adoptStrides(BufferHandle::ArrayInfo const& info) const noexcept {
    originOffset_ = info.offset;
    for (int axis = 0; axis < 4; ++axis) {
        strides_[axis] = info.strides.data()[axis];
        originOffset_ -= axis < N ? strides_[axis] * info.range.min.data()[axis] : 0;
    }
}

template <int N, class T, class Traits>
bool TypedViewBase<N, T, Traits>::resetIfInvalidated() const {
    if (handle_.confirm()) {
        return false;
    }
    window_.close();
    inStep_ = false;
    handle_.reset(/*releaseOwner=*/true);
    return true;
}

template <int N, class T, class Traits>
OpenEndedRange<4, int> TypedViewBase<N, T, Traits>::wholeBox() const noexcept {
    return {FixedVector<4, int>(), Detail::widened(size_, 1)};
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::setPrefetchHint(Index const& start, Index const& count) {
    OpenEndedRange<4, int> box{Detail::widened(start, 0), Detail::widened(start + count, 1)};
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
    iterator = Iterator(*this, {start, start + count});
}

template <int N, class T, class Traits>
TypedViewBox<N, T> TypedViewBase<N, T, Traits>::samples(Index const& start, Index const& count) const {
    return TypedViewBox<N, T>(*this, {start, start + count});
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::accessorUpdated() {
    IBufferAccessor& target = accessor();
    try {
        size_ = Detail::narrowed<N>(target.getSize());
    } catch (...) {
        // A failure leaves the size as it was; the block is of a layout that is gone.
        TypedViewBase::bufferInvalidated(handle_.owner());
        throw;
    }
    TypedViewBase::bufferInvalidated(handle_.owner());
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::bufferInvalidated(BufferHandle::Owner const* owner) {
    if (owner != handle_.owner()) {
        return;
    }
    handle_.invalidate(/*emptyRange=*/false);
    // A view that shows the null value goes on showing it; one that reads memory must ask again.
    handle_.invalidate(/*emptyRange=*/Detail::loadRelaxed(readPointer_) == handle_.buffer());
}

template <int N, class T, class Traits>
bool TypedViewBase<N, T, Traits>::prepareBufferRelease(void const* buffer, int& value) {
    if (buffer != handle_.buffer()) {
        return false;
    }
    value = std::max(value, 10000);
    handle_.invalidate(/*emptyRange=*/true);
    return true;
}

template <int N, class T, class Traits>
void TypedViewBase<N, T, Traits>::releaseBuffer(void const* buffer, boost::intrusive_ptr<BufferHandle::Owner> owner) {
    handle_.tryThreadSafeReset(buffer, std::move(owner));
}

}  // namespace Quorvel::Dravik::Adt::BulkView
