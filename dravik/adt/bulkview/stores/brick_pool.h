// SPDX-License-Identifier: Apache-2.0
#pragma once

// BrickPool: the bricks of many stores in memory, under one budget. It owns their samples. Threads: any number, on
// every member.

#include "dravik/adt/export.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace Quorvel::Dravik::Adt::BulkView {

namespace Detail {
class BrickTable;
}

/// Keeps bricks that chains have asked for, up to a budget in bytes, for as many chains and stores as share it.
///
/// A brick is read once, however many threads ask for it meanwhile. What has not been asked for since the last look
/// goes first; bricks on loan count and stay. A brick larger than a quarter of the budget is not kept once no handle
/// holds it, unless it has been written. No lock is held while a store reads or writes.
///
/// Written bricks belong to the pool. They reach their store when it is flushed, and when they have to make room. A
/// write that fails keeps the brick and throws to the caller; the next flush tries again. A pool that is destroyed
/// with written bricks tries once more and tells what is lost to the diagnostics.
/// @threads samples of a brick that is lent for writing while it is written back may reach the store half old, half
/// new; the brick counts as written until no handle holds it, so the next flush carries the rest
class DRAVIK_ADT_EXPORT BrickPool {
  public:
    /// Receives one line of text for each brick whose samples are lost. Called on the thread that loses it.
    using Diagnostics = std::function<void(std::string const&)>;

    /// What a pool did and holds. Bytes are of samples alone.
    struct Counters {
        std::int64_t hits = 0;            ///< requests served by a brick in memory
        std::int64_t misses = 0;          ///< requests for which a store was read
        std::int64_t readsWaitedFor = 0;  ///< requests that waited for another thread's reading
        std::int64_t evictions = 0;       ///< bricks dropped to make room
        std::int64_t writtenBack = 0;     ///< bricks handed to a store
        std::int64_t bytesKept = 0;       ///< of all bricks kept now
        std::int64_t bytesLent = 0;       ///< of the bricks that handles hold now
    };

    /// Without `diagnostics` each loss is one line on standard error.
    /// @throws std::invalid_argument for a negative budget
    explicit BrickPool(std::int64_t byteBudget, Diagnostics diagnostics = {});
    BrickPool(BrickPool const&) = delete;
    BrickPool& operator=(BrickPool const&) = delete;
    ~BrickPool();

    std::int64_t byteBudget() const noexcept;
    Counters counters() const;

    /// Carries the written bricks of every store down and flushes the stores.
    /// @throws the first failure, once everything was tried; what failed stays written
    void flush();

    /// Carries written bricks down and drops all bricks that no handle holds. Failures as in `flush`; what failed
    /// stays.
    void clear();

  private:
    friend class StoreAccessor;

    std::shared_ptr<Detail::BrickTable> table_;
};

}  // namespace Quorvel::Dravik::Adt::BulkView
