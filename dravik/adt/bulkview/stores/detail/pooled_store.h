// SPDX-License-Identifier: Apache-2.0
#pragma once

// PooledStore: a store as a pool uses it. Threads: any number, on every member.

#include "dravik/adt/bulkview/stores/brick_pool.h"
#include "dravik/adt/bulkview/stores/brick_store.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

/// Shares a store, lets a serial one be used by one thread at a time, and reports losses.
class PooledStore {
  public:
    using Box = OpenEndedRange<4, int>;
    using Diagnostics = std::shared_ptr<BrickPool::Diagnostics const>;

    PooledStore(std::shared_ptr<IBrickStore> store, Diagnostics diagnostics);

    IBrickStore* identity() const noexcept { return store_.get(); }
    AccessTraits const& traits() const noexcept { return traits_; }
    FixedVector<4, int> const& size() const noexcept { return size_; }

    void read(Box const& box, void* samples) const;
    void write(Box const& box, void const* samples);
    void flush();
    bool hasSamples(Box const& box) const;
    bool servesParts() const noexcept { return servesParts_; }
    bool servesSteps() const noexcept { return servesSteps_; }
    void readSteps(ExtentK<4, int> const& region, void* samples) const;

    // As write and flush, where no caller is left to throw to: a failure goes to the diagnostics.

    void writeAtLast(Box const& box, void const* samples) noexcept;
    /// Does nothing where nothing was written since the last flush.
    void flushAtLast() noexcept;

  private:
    template <class Act, class What>
    void tryAtLast(Act act, What what) const noexcept;
    std::unique_lock<std::mutex> turn() const;

    std::shared_ptr<IBrickStore> store_;
    AccessTraits traits_;
    FixedVector<4, int> size_;
    bool servesParts_;
    bool servesSteps_;
    Diagnostics diagnostics_;
    mutable std::mutex serial_;
    std::atomic<bool> isFlushed_{true};
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
