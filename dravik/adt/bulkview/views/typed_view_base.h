// SPDX-License-Identifier: Apache-2.0
#pragma once

// TypedViewBase: what typed views of every sample type and number of axes share. It owns its chain of accessors and one
// handle. Threads: one view, one thread; see the class for what other threads may do meanwhile.

#include "dravik/adt/bulkview/buffer_handle.h"
#include "dravik/adt/bulkview/views/detail/index_window.h"
#include "dravik/adt/bulkview/views/detail/null_sample.h"
#include "dravik/adt/bulkview/views/view_base.h"
#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/core/range.h"
#include "dravik/adt/export.h"

#include <cstdint>
#include <memory>
#include <typeinfo>

namespace Quorvel::Dravik::Adt::BulkView {

/// The traits of views that throw ViewBoundsException for an index outside.
struct DRAVIK_ADT_EXPORT BoundsCheckViewTraits {};

template <int N, class T>
class TypedViewIterBase;
template <int N, class T>
class TypedViewBox;

/// Reads and writes single samples of type T by index, out of one block that it holds on loan.
///
/// An index inside the block costs one range test and one multiply-add per axis, without call or lock, and is not
/// checked against the size: a block that reaches beyond the view serves what lies there. Any other index is checked
/// and has the accessor asked for the block around it. Where a block has no memory, reads give the null value (a quiet
/// NaN, or 0 where the type has none) and writes are absorbed.
/// Units: indices count from 0, sizes are samples. Copying clones the chain. Without an accessor, everything that needs
/// one throws ViewException.
/// @threads Another thread may send bufferInvalidated and prepareBufferRelease at any moment, and releaseBuffer while
/// the view is not used; accessorUpdated and releaseAccessor must not overlap any use of the view.
template <int N, class T, class Traits = BoundsCheckViewTraits>
class DRAVIK_ADT_EXPORT TypedViewBase : public ViewBase {
    static_assert(1 <= N && N <= 4);

  public:
    using Index = FixedVector<N, int>;
    using Iterator = TypedViewIterBase<N, T>;

    static constexpr int ndims() noexcept { return N; }
    /// Samples along each axis, all 0 without an accessor.
    Index const& size() const noexcept { return size_; }
    int size(int axis) const noexcept { return size_.data()[axis]; }
    std::type_info const& valueType() const override { return typeid(T); }

    /// Carries back what is pending as dispose does, lets go of the block before the old chain is destroyed, then reads
    /// the new one's size. If that fails, the new chain stays and the size is the old one.
    void init(std::unique_ptr<IBufferAccessor> accessor) override;
    /// Carries back first what the block's owner keeps of written samples.
    /// @throws what carrying back throws, with the view as it was and the samples kept for another try
    void dispose() override;

    /// The sample at `index`.
    /// @throws ViewBoundsException outside the view, ViewException without an accessor, and what the accessor throws
    /// @lifetime until the next access through this view, or until the accessor takes the block back
    T const& get(Index const& index) const {
        return holds(index) ? *reinterpret_cast<T const*>(address(readOrigin_, index)) : getOnMiss(index);
    }

    /// Sets `iterator` before the first index of the box [start, start + count), or of the whole view.
    void getIterator(Iterator& iterator) const { getIterator(iterator, Index(), size_); }
    void getIterator(Iterator& iterator, Index const& start, Index const& count) const;

    /// The samples of the box [start, start + count), or of the whole view, last axis fastest, for a range-based loop.
    TypedViewBox<N, T> samples() const { return samples(Index(), size_); }
    TypedViewBox<N, T> samples(Index const& start, Index const& count) const;

    /// Hints that the box [start, start + count) will be read soon, clipped to the view; or no longer.
    void setPrefetchHint(Index const& start, Index const& count);
    void cancelPrefetch();
    /// Hints to keep the whole view at hand; or no longer.
    void setCacheHint(bool on);

  protected:
    TypedViewBase() noexcept = default;
    TypedViewBase(TypedViewBase const& other) : TypedViewBase() { *this = other; }
    TypedViewBase& operator=(TypedViewBase const& other);
    ~TypedViewBase() override;

    /// Stores `value` at `index`; exceptions as for get, with the access ReadWrite.
    void put(Index const& index, T const& value) {
        bool const held = holds(index) && writeOrigin_ != 0;
        (held ? *reinterpret_cast<T*>(address(writeOrigin_, index)) : writableOnMiss(index)) = value;
    }

    /// Fetches the block around an index.
    void getReadBuffer(Index const& index) const;
    /// As getReadBuffer, but stays with the block held if that was read by a loan that may be written as well.
    void getWriteBuffer(Index const& index);

    /// Samples from the start of the block's memory to the index on the axes given.
    template <int K>
    requires(K <= 4) std::int64_t offset(FixedVector<K, int> const& index)
    const noexcept {
        std::int64_t position = originOffset_;
        for (int axis = 0; axis < K; ++axis) {
            position += index.data()[axis] * strides_[axis];
        }
        return position;
    }
    std::int64_t offset(int i) const noexcept { return offset(FixedVector<1, int>(i)); }
    std::int64_t offset(int i, int j) const noexcept { return offset(FixedVector<2, int>(i, j)); }
    std::int64_t offset(int i, int j, int k) const noexcept { return offset(FixedVector<3, int>(i, j, k)); }
    std::int64_t offset(int i, int j, int k, int l) const noexcept { return offset(FixedVector<4, int>(i, j, k, l)); }

    /// Whether `count` samples from `index` on along the last axis are held and adjacent in memory.
    bool holdsDenseRun(Index const& index, int count) const noexcept {
        return holds(index) && strides_[N - 1] == 1 &&
               count <= std::int64_t{lastAxisEnd_} - std::int64_t{index.data()[N - 1]};
    }

    /// Of the block that the last access was served from: samples from one index to the next, and the exclusive end.
    std::int64_t blockStride(int axis) const noexcept { return strides_[axis]; }
    int lastAxisEnd() const noexcept { return lastAxisEnd_; }

    void accessorUpdated() override;
    void bufferInvalidated(BufferHandle::Owner const* owner) override;
    bool prepareBufferRelease(void const* buffer, int& value) override;
    void releaseBuffer(void const* buffer, boost::intrusive_ptr<BufferHandle::Owner> owner) override;

  private:
    friend class TypedViewIterBase<N, T>;

    bool holds(Index const& index) const noexcept { return window_.admits(index, handle_.firstAxisEnd()); }

    // Integers throughout: the origin may lie far outside the block, where a pointer must not point.
    std::uintptr_t address(std::uintptr_t origin, Index const& index) const noexcept {
        std::uint64_t samples = 0;
        for (int axis = 0; axis < N; ++axis) {
            samples += static_cast<std::uint64_t>(index.data()[axis] * strides_[axis]);
        }
        return origin + samples * sizeof(T);
    }

    T const& getOnMiss(Index index) const;
    T& writableOnMiss(Index index);
    void checkInside(Index const& index, AdtEnums::Access access) const;
    void request(Index const& index, AdtEnums::Access access) const;
    void adoptForReading() const;
    void adoptForWriting() const;
    void adopt(T const* readPointer, T* writePointer) const;
    void adoptStrides(BufferHandle::ArrayInfo const& info) const noexcept;
    bool resetIfInvalidated() const;
    void writeBack() const;
    void resetBlock() const;
    void updateRedundant();
    OpenEndedRange<4, int> wholeBox() const noexcept;

    // What is known of the block on loan. The handle's range, access, owner and mark may change under the hands of this
    // thread; the copies beside it do not, and the window joins both.
    mutable BufferHandle handle_;
    mutable Detail::IndexWindow<N> window_;
    mutable std::int64_t strides_[4] = {};
    mutable std::uintptr_t readOrigin_ = 0;   // address of the sample at index 0, there or not
    mutable std::uintptr_t writeOrigin_ = 0;  // the same for writing; 0 where the block may only be read
    mutable std::int64_t originOffset_ = 0;
    mutable T const* readPointer_ = nullptr;  // read by notifications too
    mutable T* writePointer_ = nullptr;
    mutable std::uint64_t fetchCount_ = 0;
    mutable int lastAxisEnd_ = 0;
    mutable bool inStep_ = false;  // the copies describe what the handle holds, or held until a notification
    Index size_;
    mutable T scratch_{};
};

}  // namespace Quorvel::Dravik::Adt::BulkView

#include "dravik/adt/bulkview/views/detail/typed_view_base_members.h"
