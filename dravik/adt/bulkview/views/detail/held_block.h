// SPDX-License-Identifier: Apache-2.0
#pragma once

// HeldBlock: the one block that a view holds on loan, and where its samples are. Owns a handle. Threads: as
// BufferHandle.

#include "dravik/adt/bulkview/buffer_handle.h"
#include "dravik/adt/bulkview/views/detail/index_window.h"
#include "dravik/adt/bulkview/views/detail/null_sample.h"
#include "dravik/adt/core/fixed_vector.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

/// Copies samples that lie `stride` apart.
template <class T>
void copyRun(T const* first, std::int64_t stride, int count, T* out) noexcept {
    if (stride == 1) {
        std::copy_n(first, count > 0 ? count : 0, out);
        return;
    }
    // One at a time: the processor has more of them under way than an unrolled loop.
    for (std::int64_t place = 0; count > 0; --count, place += stride) {
        *out++ = first[place];
    }
}

/// A handle, and copies of what it held when the block was adopted, by which single samples are found without a call.
///
/// Another thread may change the handle's range, access, owner and mark meanwhile; the copies it does not touch, and
/// the window joins both: it admits indices of the block as long as the handle still holds it. Where the block has no
/// memory, every index is the null value to readers, and a sample of this object to writers.
template <int N, class T>
class HeldBlock {
  public:
    using Index = FixedVector<N, int>;

    /// By this an iterator knows whether the block that it walks is held still.
    struct Tag {
        std::uint64_t fetches = 0;
        int rangeEnd = 0;

        friend bool operator==(Tag const&, Tag const&) = default;
    };

    HeldBlock() noexcept = default;
    HeldBlock(HeldBlock const&) = delete;
    HeldBlock& operator=(HeldBlock const&) = delete;

    BufferHandle& handle() noexcept { return handle_; }
    BufferHandle const& handle() const noexcept { return handle_; }

    /// Whether the block is known to hold the index: one test, and no more than that.
    bool holds(Index const& index) const noexcept { return window_.admits(index, handle_.rangeEnd()); }
    /// The same for blocks that no window is opened for.
    bool holdsOnSecondLook(Index const& index) const noexcept { return isAdopted_ && handle_.contains(index); }
    bool isWritable() const noexcept { return writeOrigin_ != 0; }
    /// Whether the block was adopted for reading and may be written without asking for it again.
    bool isWritableAsHeld(Index const& index) const noexcept {
        return !isWritable() && holdsOnSecondLook(index) && handle_.access() == AdtEnums::ReadWrite;
    }

    /// The sample at an index that the block holds.
    T const& at(Index const& index) const noexcept { return *reinterpret_cast<T const*>(address(readOrigin_, index)); }
    /// @pre isWritable()
    T& writableAt(Index const& index) noexcept { return *reinterpret_cast<T*>(address(writeOrigin_, index)); }
    /// The address of the sample, there or not.
    std::uintptr_t addressOf(Index const& index) const noexcept { return address(readOrigin_, index); }

    /// Samples from one index to the next, and the exclusive end of the block's indices on an axis.
    std::int64_t stride(int axis) const noexcept { return strides_[axis]; }
    int end(int axis) const noexcept { return ends_[axis]; }
    /// Samples from the start of the memory to the index on the axes given.
    template <int K>
    std::int64_t offset(FixedVector<K, int> const& index) const noexcept {
        std::int64_t position = originOffset_;
        for (int axis = 0; axis < K; ++axis) {
            position += index.data()[axis] * strides_[axis];
        }
        return position;
    }

    Tag tag() const noexcept { return {fetches_, window_.word()}; }
    bool isTagged(Tag const& tag) const noexcept {
        return ((fetches_ ^ tag.fetches) | static_cast<unsigned>(handle_.rangeEnd() ^ tag.rangeEnd)) == 0;
    }

    /// The copies no longer tell what the handle holds; nobody who walks the block does, either.
    void distrust() noexcept {
        ++fetches_;
        window_.close();
        isAdopted_ = false;
    }
    /// Lets the block go.
    /// @throws what its owner's lock throws; nothing is adopted then, and the handle is as it was
    void release() {
        distrust();
        handle_.reset(/*releaseOwner=*/true);
        forget();
    }

    /// As release, where nothing may fail: what its owner's lock throws is dropped, and the block goes without it.
    void abandon() noexcept {
        try {
            release();
        } catch (...) {
            auto const dropped = handle_.replace({});
            forget();
        }
    }

    /// Takes what the handle holds as it is now; false if that has memory, but not of `index`. The caller asks the
    /// handle afterwards whether the block stands.
    bool adopt(Index const& index, bool forWriting) noexcept;

    /// Holds the other's block, which the other lets go. `act` is called in between, with both holding it.
    /// @pre neither is used meanwhile, and no notification is on its way to the other
    template <class Act>
    void takeFrom(HeldBlock& other, Act act) noexcept;

    /// Whether readers are shown the block's memory: called by notifications on any thread.
    bool showsMemory() const noexcept { return loadRelaxed(shown_) == handle_.buffer(); }

  private:
    void forget() noexcept {
        distrust();
        storeRelaxed<void const*>(shown_, nullptr);
        readOrigin_ = writeOrigin_ = 0;
        originOffset_ = 0;
    }

    // Integers throughout: the origin may lie far outside the block, where a pointer must not point.
    std::uintptr_t address(std::uintptr_t origin, Index const& index) const noexcept {
        std::uint64_t samples = 0;
        for (int axis = 0; axis < N; ++axis) {
            samples += static_cast<std::uint64_t>(index.data()[axis] * strides_[axis]);
        }
        return origin + samples * sizeof(T);
    }
    std::uintptr_t originOf(void const* memory) const noexcept {
        return reinterpret_cast<std::uintptr_t>(memory) + static_cast<std::uint64_t>(originOffset_) * sizeof(T);
    }

    BufferHandle handle_;
    IndexWindow<N> window_;
    std::int64_t strides_[4] = {};
    std::uintptr_t readOrigin_ = 0;   // address of the sample at index 0, there or not
    std::uintptr_t writeOrigin_ = 0;  // the same for writing; 0 where the block may only be read
    std::int64_t originOffset_ = 0;   // samples from the start of the memory to index 0
    std::uint64_t fetches_ = 0;
    int ends_[N] = {};
    bool isAdopted_ = false;       // the copies describe what the handle holds, or held until a notification
    void const* shown_ = nullptr;  // the memory that readers are shown
    T absorbed_{};                 // what was written where the block has no memory
};

template <int N, class T>
bool HeldBlock<N, T>::adopt(Index const& index, bool forWriting) noexcept {
    void* const buffer = handle_.buffer();
    auto info = handle_.infoSnapshot();
    void const* const shown = buffer == nullptr ? &nullSample<T>() : buffer;
    bool contains = true;
    originOffset_ = buffer == nullptr ? 0 : info.offset;
    for (int axis = 0; axis < 4; ++axis) {
        // Every index of a block without memory is the one sample.
        strides_[axis] = buffer == nullptr && axis < N ? 0 : info.strides.data()[axis];
    }
    for (int axis = 0; axis < N; ++axis) {
        int const min = info.range.min.data()[axis];
        ends_[axis] = info.range.max.data()[axis];
        originOffset_ -= strides_[axis] * min;
        contains = contains && min <= index.data()[axis] && index.data()[axis] < ends_[axis];
    }
    readOrigin_ = originOf(shown);
    writeOrigin_ = buffer == nullptr ? originOf(&absorbed_) : forWriting ? originOf(buffer) : 0;
    ++fetches_;
    isAdopted_ = true;
    window_.open(info.range);
    // Before the handle is asked whether the block stands: a notification that comes too late to be seen there sees
    // this pointer and empties the range.
    storeRelaxed(shown_, shown);
    return contains || buffer == nullptr;
}

template <int N, class T>
template <class Act>
void HeldBlock<N, T>::takeFrom(HeldBlock& other, Act act) noexcept {
    bool const isAdopted = other.isAdopted_;
    bool const wasWritable = other.isWritable();
    auto const notices = other.handle_.notices();
    handle_ = other.handle_;
    act();
    if (!other.handle_.standsSince(notices)) {
        handle_.invalidate(/*emptyRange=*/true);
    } else if (isAdopted) {
        adopt(Index(), wasWritable);
    }
    auto const held = other.handle_.replace({});
    other.forget();
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
