// SPDX-License-Identifier: Apache-2.0
#pragma once

// CacheFilter: keeps the blocks that its target lent and serves requests inside them without asking the target again.
// Threads: requests and notifications from any of them at once, as far as the target allows it.

#include "dravik/adt/bulkview/filters/detail/brief_mutex.h"
#include "dravik/adt/bulkview/filters/detail/cache_index.h"
#include "dravik/adt/bulkview/filters/stateful_buffer_accessor_filter.h"
#include "dravik/adt/bulkview/regions/region_access.h"
#include "dravik/adt/export.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView::Filters {

/// Grows block by block until a new block breaks a limit; then all blocks go but that one.
///
/// A kept block is a hold on the owner that the target lent it with, so its samples stay valid while it is kept. A
/// request is served by the first kept block that contains the position and was lent for the same access, or for any
/// access where the request is for reading. Blocks go when the target takes them back, declares them invalid or
/// changes altogether. Two threads that miss the same block at once may both keep it.
///
/// A converting filter belongs above a cache, never below: it stops what its target says about its blocks, and its runs
/// overlap. See docs/concepts/caching.md.
///
///     chain = CacheFilter::Apply(std::move(chain), 64 << 20, CacheFilter::kNever, CacheFilter::kNever);
/// @lifetime kept blocks are let go before the target, in dispose(flag) and at the end
/// @threads A block is not served any more once the client has been told that it is no longer valid. No lock is held
/// while the target, the client or an owner is called, and none while memory is got or given back.
class DRAVIK_ADT_EXPORT CacheFilter : public StatefulBufferAccessorFilter, public IRegionAccess {
  public:
    static constexpr int kNever = -1;  ///< a limit that is never reached

    /// A cache above `target`, or `target` itself where it has fewer than 2 samples along each of the axes 1, 2 and 3.
    ///
    /// All blocks but the newest go when they hold more than `sampleBudget` samples together; when there were at least
    /// `fullDensityThreshold` blocks and they do not fill their bounding box; when there were at least
    /// `halfDensityThreshold` and those before the newest do not fill half of it. Limits below 0 are never reached.
    /// @throws std::invalid_argument for a null target; what the target's getSize throws
    static std::unique_ptr<IBufferAccessor> Apply(
        std::unique_ptr<IBufferAccessor> target, int sampleBudget, int halfDensityThreshold, int fullDensityThreshold);

    ~CacheFilter() override;

    FixedVector<4, int> getSize() override;
    void setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) override;
    void dispose(bool flag) override;

    void accessorUpdated() override;
    void bufferInvalidated(BufferHandle::Owner const* owner) override;
    bool prepareBufferRelease(void const* buffer, int& value) override;
    void releaseBuffer(void const* buffer, boost::intrusive_ptr<BufferHandle::Owner> owner) override;

    AccessTraits traits() const override;
    /// False: regions go by blocks, so that kept ones serve and none that is kept goes stale.
    bool tryTransfer(RegionRequest const& request, RegionTransfer& transfer) override;
    void flush() override;

  protected:
    using Limits = Detail::CacheIndex::Limits;

    /// Looks at the first `axes` axes of positions and blocks.
    CacheFilter(std::unique_ptr<IBufferAccessor> target, int axes, Limits const& limits);
    /// Over a clone of the target, with the same limits and nothing kept.
    CacheFilter(CacheFilter const& other);

    /// What there was of notifications when a block was asked for.
    struct Moment {
        std::uint64_t notices = 0;   ///< to the handle
        std::uint64_t removals = 0;  ///< about kept blocks
    };

    /// Makes `handle` a copy of the kept block that serves the request, if there is one.
    template <int N>
    bool tryServe(FixedVector<4, int> const& position, AdtEnums::Access access, BufferHandle& handle, Moment& moment);

    /// Keeps what `handle` holds. It serves no request if there was a notification since `moment`.
    /// @throws std::bad_alloc, with nothing changed
    void store(BufferHandle& handle, Moment const& moment);

    /// Drops the blocks at `buffer`; false if there were none.
    bool removeBuffer(void const* buffer) noexcept;

  private:
    using Loans = std::vector<BufferHandle::Loan>;

    template <class IsGone>
    void bar(IsGone isGone) noexcept;
    template <class IsGone>
    bool remove(IsGone isGone) noexcept;
    template <class IsGone, class Dropped>
    void takeOut(IsGone isGone, Dropped& dropped) noexcept;
    void removeAll() noexcept;
    void reserve();
    std::size_t tryStore(BufferHandle& handle, Moment const& moment, Loans& loans, Detail::CacheIndex& index) noexcept;

    Detail::BriefMutex mutex_;  // of all below
    Loans loans_;               // the entries of index_
    std::uint64_t removals_ = 0;
    Detail::CacheIndex index_;
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
