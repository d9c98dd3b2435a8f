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
///
/// The copies are made when the block serves its second access: they cost as much as fetching the block, and in random
/// order hardly a block serves twice in a row.
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
    /// Whether the block holds the index though no window is open: there are no copies yet, or none can be opened.
    bool isAtHand(Index const& index) const noexcept {
        return (copies_ == Copies::kNotYet || copies_ == Copies::kWithoutWindow) && handle_.contains(index);
    }
    bool isWritable() const noexcept { return writeOrigin_ != 0; }
    /// Whether the block was fetched for reading and may be written without asking for it again.
    bool isWritableAsHeld(Index const& index) const noexcept {
        return !isWritable() && copies_ != Copies::kNone && handle_.contains(index) &&
               handle_.access() == AdtEnums::ReadWrite;
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
        copies_ = Copies::kNone;
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

    /// The sample at `index`, out of what the handle holds as it is now; null if that has no memory, or none of
    /// `index`. Makes no copies yet. The caller asks the handle afterwards whether the block stands since `notices`.
    T const* glance(Index const& index, std::uint64_t notices) noexcept;

    /// Makes the copies that a glance left out; false if the block does not stand any more, and it is distrusted then.
    bool complete() noexcept;

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
    /// What the copies below are of.
    enum class Copies : unsigned char {
        kNone,           ///< of nothing that can be relied on
        kNotYet,         ///< the handle holds a block, of which there are no copies
        kWithoutWindow,  ///< of the block, but no window admits its indices
        kOfBlock,        ///< of what the handle holds, or held until a notification
    };

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
    std::uint64_t notices_ = 0;  // to the handle, before the block was asked for; until there are copies
    Copies copies_ = Copies::kNone;
    void const* shown_ = nullptr;  // the memory that readers are shown
    T absorbed_{};                 // what was written where the block has no memory
};

template <int N, class T>
[[gnu::always_inline]] inline T const* HeldBlock<N, T>::glance(Index const& index, std::uint64_t notices) noexcept {
    void const* const buffer = handle_.buffer();
    if (buffer == nullptr || !handle_.contains(index)) {
        return nullptr;
    }
    auto const place = static_cast<std::uint64_t>(handle_.offset(index));
    writeOrigin_ = 0;
    notices_ = notices;
    copies_ = Copies::kNotYet;
    // As in adopt: before the handle is asked.
    storeRelaxed(shown_, buffer);
    return reinterpret_cast<T const*>(reinterpret_cast<std::uintptr_t>(buffer) + place * sizeof(T));
}

template <int N, class T>
bool HeldBlock<N, T>::complete() noexcept {
    if (copies_ != Copies::kNotYet) {
        return true;
    }
    adopt(Index(), /*forWriting=*/false);
    bool const stands = handle_.standsSince(notices_);
    if (!stands) {
        distrust();
    }
    return stands;
}

template <int N, class T>
bool HeldBlock<N, T>::adopt(Index const& index, bool forWriting) noexcept {
    void* const buffer = handle_.buffer();
    auto info = handle_.infoSnapshot();
    void const* const shown = buffer == nullptr ? &nullSample<T>() : buffer;
    if (buffer == nullptr) {
        // Every index of a block without memory is the one sample.
        info.offset = 0;
        Adt::Detail::forAxes<N>([&](int axis) { info.strides.data()[axis] = 0; });
    }
    bool contains = true;
    originOffset_ = info.offset;
    Adt::Detail::forAxes<N>([&](int axis) {
        int const min = info.range.min.data()[axis];
        ends_[axis] = info.range.max.data()[axis];
        originOffset_ -= std::int64_t{info.strides.data()[axis]} * min;
        contains = contains && min <= index.data()[axis] && index.data()[axis] < ends_[axis];
    });
    Adt::Detail::forAxes<4>([&](int axis) { strides_[axis] = info.strides.data()[axis]; });
    readOrigin_ = originOf(shown);
    writeOrigin_ = buffer == nullptr ? originOf(&absorbed_) : forWriting ? originOf(buffer) : 0;
    ++fetches_;
    copies_ = window_.open(info.range) ? Copies::kOfBlock : Copies::kWithoutWindow;
    // Before the handle is asked whether the block stands: a notification that comes too late to be seen there sees
    // this pointer and empties the range.
    storeRelaxed(shown_, shown);
    return contains || buffer == nullptr;
}

template <int N, class T>
template <class Act>
void HeldBlock<N, T>::takeFrom(HeldBlock& other, Act act) noexcept {
    bool const isFetched = other.copies_ != Copies::kNone;
    bool const wasWritable = other.isWritable();
    auto const notices = other.handle_.notices();
    handle_ = other.handle_;
    act();
    if (!other.handle_.standsSince(notices)) {
        handle_.invalidate(/*emptyRange=*/true);
    } else if (isFetched) {
        adopt(Index(), wasWritable);
    }
    auto const held = other.handle_.replace({});
    other.forget();
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
