// SPDX-License-Identifier: Apache-2.0
#pragma once

// BufferHandle: a consumer's record of one lent block of samples. It borrows the samples and holds a counted reference
// to what keeps them alive. Threads: one consumer at a time; `invalidate` and `tryThreadSafeReset` from any thread.

#include "dravik/adt/bulkview/access.h"
#include "dravik/adt/bulkview/detail/counted_slot.h"
#include "dravik/adt/bulkview/detail/shared_word.h"
#include "dravik/adt/core/array_ref.h"
#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/core/range.h"
#include "dravik/adt/core/shared.h"
#include "dravik/adt/export.h"

#include <boost/noncopyable.hpp>
#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView {

/// Where the samples of one lent block are, how they are indexed, who keeps them alive, and whether the loan still
/// holds.
///
/// Empty (no buffer, NoAccess, not invalidated), lent (filled by a producer; the buffer is null for a block without
/// memory) or invalidated (until `reset` or `tryThreadSafeReset`; a producer that fills an invalidated handle leaves it
/// invalidated). The sample at index p is at buffer() + offset(p) samples; both sides know the sample type.
/// Positions and ranges are absolute indices; strides and offsets count samples.
/// @threads Every word is read and written atomically, so another thread may invalidate the handle or take its block
/// back at any moment: the consumer then asks again, and neither reads nor writes in a wrong place. What no atomic can
/// make safe is the memory: that of a block taken back has to stay until the consumer's call in which it was in use
/// returns. An owner with locking enabled whose lock the consumer holds around its calls is one way to wait for that.
class DRAVIK_ADT_EXPORT BufferHandle {
  public:
    class Owner;

    /// How a lent block is indexed.
    struct ArrayInfo {
        OpenEndedRange<4, int> range;  ///< indices the block covers
        FixedVector<4, int> strides;   ///< per axis, samples from one index to the next
        int offset = 0;                ///< samples from the buffer's start to the sample at range.min

        friend constexpr bool operator==(ArrayInfo const&, ArrayInfo const&) = default;

        /// Writes "[0,4)x[0,3)x[0,1)x[0,1) strides (3,1,0,0) offset 0".
        template <class Traits>
        friend std::basic_ostream<char, Traits>& operator<<(
            std::basic_ostream<char, Traits>& out, ArrayInfo const& info) {
            return out << info.range << " strides " << info.strides << " offset " << info.offset;
        }
    };

    /// All that a handle holds, as a plain record that keeps the owner.
    struct Loan {
        ArrayInfo info;
        void* buffer = nullptr;
        boost::intrusive_ptr<Owner> owner;
        AdtEnums::Access access = AdtEnums::NoAccess;
        bool invalidated = false;
    };

    BufferHandle() noexcept = default;
    BufferHandle(BufferHandle const& other) noexcept;
    /// Takes no lock, neither of the owner here before nor of the other's.
    BufferHandle& operator=(BufferHandle const& other) noexcept;
    ~BufferHandle() = default;

    // What the handle holds. None of these takes a lock.

    bool isNull() const noexcept { return buffer() == nullptr; }
    bool isInvalidated() const noexcept { return (Detail::loadAcquire(notices_) & (kMarked | kAllUnderWay)) != 0; }
    void* buffer() const noexcept { return Detail::loadRelaxed(buffer_); }
    AdtEnums::Access access() const noexcept { return Detail::loadRelaxed(access_); }
    /// The owner, borrowed: an intrusive_ptr made of it keeps it.
    Owner* owner() const noexcept { return owner_.peek(); }

    Loan loan() const noexcept;

    /// The description in place, read and written without regard to other threads. What a notification may overtake
    /// takes infoSnapshot, changes the copy and gives it back with relabel.
    ArrayInfo const& info() const noexcept { return info_; }
    ArrayInfo& info() noexcept { return info_; }
    [[gnu::always_inline]] ArrayInfo infoSnapshot() const noexcept {
        return {range4(), loadWords(info_.strides), Detail::loadRelaxed(info_.offset)};
    }
    [[gnu::always_inline]] OpenEndedRange<4, int> range4() const noexcept {
        // The lower end first: see storeRange.
        auto const min = loadWords(info_.range.min);
        return {min, loadWords(info_.range.max)};
    }
    /// info().range.max[0], which is 0 as soon as another thread has emptied the range.
    int rangeEnd() const noexcept { return Detail::loadRelaxed(info_.range.max.data()[0]); }

    /// Samples in the block: the product of (max - min) over the axes, wrapped to 32 bits. Means something while a
    /// block is lent.
    int sampleCount() const noexcept;

    /// Whether a request for `access` is served by this loan: any loan serves Read, every other access only its own.
    bool isCompatibleAccess(AdtEnums::Access access) const noexcept {
        return access == AdtEnums::Read || access == this->access();
    }

    /// Whether the block covers the index on the axes given; the others are not looked at.
    template <int K>
    [[gnu::always_inline]] bool contains(FixedVector<K, int> const& index) const noexcept requires(K <= 4) {
        return containsOn(index, std::make_integer_sequence<int, K>());
    }
    bool contains(int i) const noexcept { return contains(FixedVector<1, int>(i)); }
    bool contains(int i, int j) const noexcept { return contains(FixedVector<2, int>(i, j)); }
    bool contains(int i, int j, int k) const noexcept { return contains(FixedVector<3, int>(i, j, k)); }
    bool contains(int i, int j, int k, int l) const noexcept { return contains(FixedVector<4, int>(i, j, k, l)); }

    /// Whether min < range.max and range.min < max on every axis.
    bool intersects(OpenEndedRange<4, int> range) const noexcept;

    /// Samples from the buffer's start to the index on the axes given, the others at range.min. Checks no bounds.
    template <int K>
    [[gnu::always_inline]] std::int64_t offset(FixedVector<K, int> const& index) const noexcept requires(K <= 4) {
        return offsetOn(index, std::make_integer_sequence<int, K>());
    }
    std::int64_t offset(int i) const noexcept { return offset(FixedVector<1, int>(i)); }
    std::int64_t offset(int i, int j, int k, int l) const noexcept { return offset(FixedVector<4, int>(i, j, k, l)); }

    // Changes by a producer. Each but relabel is bracketed by the lock of the owner held on entry, where that enabled
    // locking; none clears the mark of an invalidation.
    // @throws what the owner's lock throws, with nothing changed

    void update(void* buffer, ArrayInfo const& info, AdtEnums::Access access) {
        // Without an owner there is no lock, and a producer whose blocks need none pays for the stores alone.
        owner() == nullptr ? store(buffer, info, access) : lend(buffer, info, access);
    }
    void update(ArrayRef<4> const& array, AdtEnums::Access access);
    /// Lends `array` for reading only.
    void updateRO(ArrayConstRef<4> const& array);
    /// As update, with an all-zero description.
    void updateBufferAndResetInfo(void* buffer, AdtEnums::Access access);
    /// Holds `owner`, possibly null, in place of the owner so far.
    void setOwner(Owner* owner);
    /// Describes the same samples anew, without a lock.
    void relabel(ArrayInfo const& info) noexcept { storeInfo(info); }

    /// Holds what `loan` says, the mark of an invalidation included, without a lock. The owner held so far comes back,
    /// for callers that must not drop a reference where they are.
    [[nodiscard]] boost::intrusive_ptr<Owner> replace(Loan loan) noexcept;

    // Changes by the consumer.

    /// A number that changes with every invalidation and every block taken back. Read before a block is asked for.
    std::uint64_t notices() const noexcept { return Detail::loadAcquire(notices_); }
    /// Whether the block that was asked for after `notices` was read is on loan still. A notification that overlaps
    /// this call either is seen here or sees what the consumer has written before it.
    bool standsSince(std::uint64_t notices) noexcept {
        return Detail::isInOrder(notices_, notices & ~(kMarked | kAllUnderWay));
    }

    /// Empties the handle, keeping the owner unless `releaseOwner`; brackets and failures as for a producer's change.
    /// Waits for the end of a change that another thread is in the middle of, which is a few instructions away.
    void reset(bool releaseOwner);
    /// Marks the loan as no longer valid; with `emptyRange` no index is contained any more.
    /// @threads any
    void invalidate(bool emptyRange) volatile noexcept;
    /// Empties the handle if it holds just this buffer with just this owner (both may be null), under the lock of
    /// `owner` where that enabled locking; false, and nothing changed, otherwise.
    /// @threads any
    bool tryThreadSafeReset(void const* buffer, boost::intrusive_ptr<Owner> owner) volatile;

  private:
    class OwnerLock;

    // Axis by axis without a loop: compilers leave loops over words of threads as they are.
    template <int K, int... Axis>
    [[gnu::always_inline]] bool containsOn(
        FixedVector<K, int> const& index, std::integer_sequence<int, Axis...>) const noexcept {
        return (containsOn(Axis, index.data()[Axis]) & ...) != 0;
    }
    [[gnu::always_inline]] int containsOn(int axis, int index) const noexcept {
        // The lower end first: see storeRange.
        int const min = Detail::loadAcquire(info_.range.min.data()[axis]);
        int const max = Detail::loadRelaxed(info_.range.max.data()[axis]);
        return static_cast<int>(min <= index) & static_cast<int>(index < max);
    }
    template <int K, int... Axis>
    [[gnu::always_inline]] std::int64_t offsetOn(
        FixedVector<K, int> const& index, std::integer_sequence<int, Axis...>) const noexcept {
        return (std::int64_t{Detail::loadRelaxed(info_.offset)} + ... + offsetOn(Axis, index.data()[Axis]));
    }
    [[gnu::always_inline]] std::int64_t offsetOn(int axis, int index) const noexcept {
        std::int64_t const steps = std::int64_t{index} - Detail::loadRelaxed(info_.range.min.data()[axis]);
        return steps * Detail::loadRelaxed(info_.strides.data()[axis]);
    }

    // The word of the notices: the mark of an invalidation; how many threads are in the middle of a change; how many
    // changes there were.
    static constexpr std::uint64_t kMarked = 1;
    static constexpr std::uint64_t kUnderWay = 2;
    static constexpr std::uint64_t kOneMore = std::uint64_t{1} << 24;
    static constexpr std::uint64_t kAllUnderWay = kOneMore - kUnderWay;

    // Component by component and without a loop: compilers leave what a loop over words of threads fills in memory.
    [[gnu::always_inline]] static FixedVector<4, int> loadWords(FixedVector<4, int> const& words) noexcept {
        int const* const from = words.data();
        return {
            Detail::loadAcquire(from[0]), Detail::loadAcquire(from[1]), Detail::loadAcquire(from[2]),
            Detail::loadAcquire(from[3])};
    }
    [[gnu::always_inline]] static void storeWords(
        FixedVector<4, int>& words, FixedVector<4, int> const& values) noexcept {
        int const* const from = values.data();
        int* const to = words.data();
        Detail::storeRelease(to[0], from[0]);
        Detail::storeRelease(to[1], from[1]);
        Detail::storeRelease(to[2], from[2]);
        Detail::storeRelease(to[3], from[3]);
    }

    // A thread that empties the range writes every upper end before a lower one, and `contains` reads the lower end
    // first: so a consumer that meets half of the change finds an index outside, or inside the block as it was lent.
    void storeRange(OpenEndedRange<4, int> const& range) noexcept {
        storeWords(info_.range.max, range.max);
        storeWords(info_.range.min, range.min);
    }
    void storeInfo(ArrayInfo const& info) noexcept {
        storeWords(info_.strides, info.strides);
        Detail::storeRelaxed(info_.offset, info.offset);
        storeRange(info.range);
    }
    void store(void* buffer, ArrayInfo const& info, AdtEnums::Access access) noexcept {
        Detail::storeRelaxed(buffer_, buffer);
        Detail::storeRelaxed(access_, access);
        storeInfo(info);
    }
    // By value: what update is given need not be in memory as long as no reference to it is passed on.
    void lend(void* buffer, ArrayInfo info, AdtEnums::Access access);
    void mark(bool invalidated) noexcept;
    void empty() noexcept;

    ArrayInfo info_;
    void* buffer_ = nullptr;
    Detail::CountedSlot<Owner> owner_;
    AdtEnums::Access access_ = AdtEnums::NoAccess;
    // What a change stores late must not end up in a loan that was fetched after it had begun, and found to stand.
    std::uint64_t notices_ = 0;
};

/// Stands for the memory behind a loan: a producer attaches it to the handles it fills, and the memory stays while one
/// of them holds it. Starts unreferenced.
/// @threads references from any thread; the rest as the derived owner says
class DRAVIK_ADT_EXPORT BufferHandle::Owner : public Shared, private boost::noncopyable {
  public:
    /// The tag by which the producer recognises its own owners; not owned.
    void const* getUserData() const noexcept { return userData_; }

  protected:
    explicit Owner(void const* userData = nullptr) noexcept : userData_(userData) {}
    ~Owner() override;

    /// From now on every change of a handle that holds this owner is bracketed by lock and unlock.
    void enableLocking() noexcept { lockingEnabled_ = true; }
    bool lockingEnabled() const noexcept { return lockingEnabled_; }

  private:
    friend class BufferHandle;

    /// Brackets a change of a handle; called only once locking is enabled, and does nothing here. A thread may come
    /// back to an owner that it has locked already.
    virtual void lock();
    virtual void unlock();

    void const* userData_;
    bool lockingEnabled_ = false;
};

}  // namespace Quorvel::Dravik::Adt::BulkView

template <>
struct std::hash<Quorvel::Dravik::Adt::BulkView::BufferHandle::ArrayInfo> {
    std::size_t operator()(Quorvel::Dravik::Adt::BulkView::BufferHandle::ArrayInfo const& info) const {
        return Quorvel::Dravik::Adt::Detail::hashOf(info.range, info.strides, info.offset);
    }
};
