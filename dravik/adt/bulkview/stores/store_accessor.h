// SPDX-License-Identifier: Apache-2.0
#pragma once

// StoreAccessor: a store as the bottom of a chain, its bricks in a pool. Threads: one chain, one thread; clones may be
// used on other threads at the same time.

#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/bulkview/regions/region_access.h"
#include "dravik/adt/bulkview/stores/brick_pool.h"
#include "dravik/adt/bulkview/stores/brick_store.h"
#include "dravik/adt/export.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

namespace Quorvel::Dravik::Adt::BulkView {

/// Lends the bricks of a store, which its pool keeps.
///
/// Shares store and pool with its clones and with everybody else who makes an accessor of them: all see one set of
/// samples. A loan for reading is lent as such; any other access is granted ReadWrite, and the brick counts as written
/// until the pool has carried it down and no handle holds it. A box for which a read-only
/// store has no samples is lent without memory; one that can be written lends such a box with null values. Sends no
/// notifications: what is on loan stays.
/// @lifetime a loan keeps its samples, the store and what the pool needs to carry them down, past the accessor and the
/// pool
class DRAVIK_ADT_EXPORT StoreAccessor final : public IBufferAccessor, public IRegionAccess {
  public:
    /// Starts a task now, later or never.
    using Executor = std::function<void(std::function<void()>)>;

    /// With `prefetchOn`, a Prefetch hint has the missing bricks of its range read there, at most half the budget of
    /// the pool; CancelPrefetch, and the end of the accessor, drop what has not begun. Without it hints are no use.
    /// @throws std::invalid_argument for a null store or pool, a store without samples or of an unknown sample type
    /// @throws std::length_error for bricks of 2^31 samples or more
    static std::unique_ptr<IBufferAccessor> Make(
        std::shared_ptr<IBrickStore> store, std::shared_ptr<BrickPool> pool, Executor prefetchOn = {});

    ~StoreAccessor() override;

    /// @throws Exceptions::ObjectDisposedException after dispose, as getBuffer and createClone do
    FixedVector<4, int> getSize() override;
    void setClient(IClient* client) override;
    void setHint(HintType type, OpenEndedRange<4, int> const& range, float weight) override;
    /// @throws std::out_of_range for a position outside, Exceptions::NotSupportedException for writing into a store
    /// that cannot be written, and what the store throws when it reads this brick or writes another that has to make
    /// room; the handle is then as it was
    void getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) override;
    std::unique_ptr<IBufferAccessor> createClone() const override;
    /// Carries the written bricks of the store down and flushes it, then releases store and pool.
    /// @throws what the store throws; nothing has been let go of then, and another call tries again
    void dispose(bool flag) override;

    /// The store's own, with the brick that is lent as the natural block; all unknown after dispose.
    AccessTraits traits() const override;
    /// Bricks in the pool serve their samples. Others of which the region wants all, or of a store that serves parts,
    /// pass between the store and the array, several at a time, and are not kept; the rest are fetched into the pool.
    /// Bricks without a wanted sample are not read.
    /// @throws as getBuffer does; bricks that passed before the failure have been moved
    bool tryTransfer(RegionRequest const& request, RegionTransfer& transfer) override;
    /// Carries the written bricks of the store down and flushes it.
    /// @throws the store's first failure, once everything was tried; another call tries again
    void flush() override;

  private:
    class Shared;

    explicit StoreAccessor(std::shared_ptr<Shared const> shared);
    Shared const& shared() const;
    void prefetch(OpenEndedRange<4, int> range) const;

    std::shared_ptr<Shared const> shared_;               // null once disposed
    std::shared_ptr<std::atomic<std::uint64_t>> round_;  // of prefetches; those of earlier ones are dropped
};

}  // namespace Quorvel::Dravik::Adt::BulkView
