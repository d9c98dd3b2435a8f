// SPDX-License-Identifier: Apache-2.0
#pragma once

// BrickTable: which bricks a pool holds. Bricks on loan keep it. Threads: any number, on every member.

#include "dravik/adt/bulkview/access.h"
#include "dravik/adt/bulkview/stores/brick_pool.h"
#include "dravik/adt/bulkview/stores/detail/brick.h"

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <list>
#include <memory>
#include <mutex>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

/// Bricks by key, in shards with a mutex each. The mutex of a shard is held for a few lines at a time: never while a
/// store works, memory comes or goes, or a reference that may be the last is dropped.
class BrickTable : public std::enable_shared_from_this<BrickTable> {
  public:
    using Box = OpenEndedRange<4, int>;
    using StorePtr = std::shared_ptr<PooledStore>;

    BrickTable(std::int64_t byteBudget, BrickPool::Diagnostics diagnostics);
    ~BrickTable();

    std::int64_t byteBudget() const noexcept { return byteBudget_; }
    BrickPool::Counters counters() const;

    /// The record of `store` that all users of the pool share.
    StorePtr use(std::shared_ptr<IBrickStore> store);

    /// The brick, read if it is not here, and noted as written for an access other than Read.
    boost::intrusive_ptr<Brick> get(StorePtr const& store, Box const& box, AdtEnums::Access access);
    /// The brick if it is here, null otherwise; waits for the end of a reading.
    boost::intrusive_ptr<Brick> find(BrickKey const& key, AdtEnums::Access access);

    /// Whether the brick is here or being read.
    bool has(BrickKey const& key);
    /// Reads the brick if it is not here; a failure is left to the next request for the brick.
    void getAhead(StorePtr const& store, Box const& box) noexcept;

    /// Carries the written bricks of one store down and flushes it; of all stores for null.
    void flush(StorePtr const& store);
    void clear();
    /// Carries written bricks down, reports those that cannot be, and releases all.
    void close() noexcept;

    /// Keeps other threads from bricks that are not here, while their samples pass between the store and other memory.
    class Claims;

    /// Called by a brick that nothing holds any more.
    void forget(Brick& brick) noexcept;

  private:
    struct HashedKey {
        BrickKey key;
        std::size_t hash;
    };
    struct Hash {
        std::size_t operator()(HashedKey const& key) const noexcept { return key.hash; }
        std::size_t operator()(Brick const& brick) const noexcept { return hashOf(brick.key()); }
        std::size_t operator()(BrickKey const& key) const noexcept { return hashOf(key); }
    };
    struct Equal {
        bool operator()(Brick const& left, Brick const& right) const noexcept { return left.key() == right.key(); }
        bool operator()(BrickKey const& key, Brick const& brick) const noexcept { return key == brick.key(); }
        bool operator()(HashedKey const& key, Brick const& brick) const noexcept { return key.key == brick.key(); }
    };
    using Set = boost::intrusive::unordered_set<
        Brick, boost::intrusive::hash<Hash>, boost::intrusive::equal<Equal>, boost::intrusive::power_2_buckets<true>>;
    using Buckets = std::vector<Set::bucket_type>;

    static constexpr std::uint64_t kNoTurn = UINT64_MAX;

    struct Shard {
        Shard();

        mutable std::mutex mutex;
        std::condition_variable changed;  // a reading or carrying has ended
        Buckets buckets;
        Set bricks;                             // all that are known
        boost::intrusive::list<Brick> inOrder;  // those that are kept, by their turns
        BrickPool::Counters counters;
    };
    /// The turn of a shard's first brick, for a look without the shard's lock.
    struct Front {
        std::atomic<std::uint64_t> turn{kNoTurn};
    };
    using Lock = std::unique_lock<std::mutex>;
    class Carrying;
    enum class Carried { kIdle, kHeldToo };

    Shard& shardOf(BrickKey const& key) noexcept;
    Shard& shardOf(std::size_t hash) noexcept;
    boost::intrusive_ptr<Brick> findReady(Shard& shard, Lock& lock, HashedKey const& key, bool writes);
    void growIfFull(Shard& shard);
    void makeRoom(std::int64_t byteSize);
    std::size_t shardFirstInLine() const noexcept;
    void evictFront(Shard& shard);
    void keep(Shard& shard, Brick& brick) noexcept;
    void noteFront(Shard const& shard) noexcept;
    bool insert(Shard& shard, Brick& brick, bool isKept);
    void noteWriter(Shard& shard, Brick& brick);
    void read(Shard& shard, boost::intrusive_ptr<Brick> const& brick, bool writes);
    void carryDown(Shard& shard, Lock& lock, boost::intrusive_ptr<Brick> const& brick, Carried which);
    boost::intrusive_ptr<Brick> nextToFlush(Shard& shard, Carried which, PooledStore const* store, std::uint64_t flush);
    boost::intrusive_ptr<Brick> takeOut(Shard& shard, Brick& brick) noexcept;
    boost::intrusive_ptr<Brick> takeFirst(Shard& shard) noexcept;
    boost::intrusive_ptr<Brick> takeIdle(Shard& shard) noexcept;
    void carryAll(Carried which, PooledStore const* store, std::exception_ptr& failure);
    std::vector<StorePtr> stores() const;

    static constexpr std::size_t kShards = 16;

    std::int64_t const byteBudget_;
    std::shared_ptr<BrickPool::Diagnostics const> diagnostics_;
    std::array<Shard, kShards> shards_;
    std::atomic<std::int64_t> bytesKept_{0};
    std::atomic<std::uint64_t> turns_{0};  // given so far
    std::array<Front, kShards> fronts_;
    std::atomic<std::uint64_t> flushes_{0};
    mutable std::mutex storesMutex_;
    std::list<std::weak_ptr<PooledStore>> stores_;
};

// A request for a claimed brick waits for the end of the claim and then reads for itself. Nothing is waited for
// here, so claims never wait for each other.
class BrickTable::Claims {
  public:
    explicit Claims(BrickTable& table) noexcept : table_(table) {}
    Claims(Claims const&) = delete;
    Claims& operator=(Claims const&) = delete;
    ~Claims();

    /// False if the brick is here or claimed.
    bool add(StorePtr const& store, Box const& box);

  private:
    BrickTable& table_;
    std::vector<boost::intrusive_ptr<Brick>> bricks_;
};

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
