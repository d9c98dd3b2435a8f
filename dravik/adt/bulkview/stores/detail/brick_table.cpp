// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/stores/detail/brick_table.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Detail {

namespace {

constexpr std::size_t kFirstBuckets = 256;
constexpr std::int32_t kTableAndCaller = 2;  // references to a brick that nobody has on loan

void tellOnStandardError(std::string const& line) {
    std::fprintf(stderr, "%s\n", line.c_str());
}

}  // namespace

BrickTable::Shard::Shard() : buckets(kFirstBuckets), bricks(Set::bucket_traits(buckets.data(), buckets.size())) {}

BrickTable::BrickTable(std::int64_t byteBudget, BrickPool::Diagnostics diagnostics)
    : byteBudget_(byteBudget),
      diagnostics_(std::make_shared<BrickPool::Diagnostics const>(
          diagnostics ? std::move(diagnostics) : BrickPool::Diagnostics(tellOnStandardError))) {}

BrickTable::~BrickTable() = default;

BrickTable::Shard& BrickTable::shardOf(std::size_t hash) noexcept {
    return shards_[(hash >> 32) % kShards];  // the low bits choose the bucket
}

BrickTable::Shard& BrickTable::shardOf(BrickKey const& key) noexcept {
    return shardOf(hashOf(key));
}

BrickTable::StorePtr BrickTable::use(std::shared_ptr<IBrickStore> store) {
    IBrickStore const* const identity = store.get();
    auto made = std::make_shared<PooledStore>(std::move(store), diagnostics_);
    std::list<std::weak_ptr<PooledStore>> node{made};
    std::list<std::weak_ptr<PooledStore>> gone;
    std::lock_guard const lock(storesMutex_);
    for (auto each = stores_.begin(); each != stores_.end();) {
        auto const next = std::next(each);
        if (auto known = each->lock(); known == nullptr) {
            gone.splice(gone.end(), stores_, each);
        } else if (known->identity() == identity) {
            return known;
        }
        each = next;
    }
    stores_.splice(stores_.end(), node);
    return made;
}

std::vector<BrickTable::StorePtr> BrickTable::stores() const {
    std::vector<StorePtr> found;
    std::lock_guard const lock(storesMutex_);
    for (auto const& each : stores_) {
        if (auto store = each.lock()) {
            found.push_back(std::move(store));
        }
    }
    return found;
}

boost::intrusive_ptr<Brick> BrickTable::find(BrickKey const& key, AdtEnums::Access access) {
    HashedKey const hashed{key, hashOf(key)};
    Shard& shard = shardOf(hashed.hash);
    Lock lock(shard.mutex);
    return findReady(shard, lock, hashed, access != AdtEnums::Read);
}

boost::intrusive_ptr<Brick> BrickTable::findReady(Shard& shard, Lock& lock, HashedKey const& key, bool writes) {
    for (bool isFirstLook = true;; isFirstLook = false) {
        auto const place = shard.bricks.find(key, Hash(), Equal());
        auto brick = place == shard.bricks.end() ? nullptr : Brick::share(*place);
        if (brick == nullptr) {
            return nullptr;
        }
        if (brick->state == Brick::State::kLoading) {
            shard.counters.readsWaitedFor += isFirstLook ? 1 : 0;
        }
        // Nobody gets a brick for writing while a store looks at its samples.
        shard.changed.wait(
            lock, [&] { return brick->state != Brick::State::kLoading && !(writes && brick->isCarried); });
        if (brick->state == Brick::State::kReady) {
            ++shard.counters.hits;
            brick->wasAskedFor = true;
            if (writes) {
                noteWriter(shard, *brick);
            }
            return brick;
        }
        // The reading failed: this thread tries itself. The reference goes without the lock.
        lock.unlock();
        brick.reset();
        lock.lock();
    }
}

bool BrickTable::has(BrickKey const& key) {
    Shard& shard = shardOf(key);
    Lock const lock(shard.mutex);
    auto const place = shard.bricks.find(key, Hash(), Equal());
    return place != shard.bricks.end() && place->references() > 0;
}

void BrickTable::getAhead(StorePtr const& store, Box const& box) noexcept {
    try {
        get(store, box, AdtEnums::Read);
    } catch (...) {
        // A prefetch has nobody to tell.
    }
}

void BrickTable::noteWriter(Shard& shard, Brick& brick) {
    brick.isWritten = true;
    ++brick.writers;
    if (brick.kept == nullptr) {
        keep(shard, brick);
        bytesKept_.fetch_add(brick.byteSize(), std::memory_order_relaxed);
    }
}

boost::intrusive_ptr<Brick> BrickTable::get(StorePtr const& store, Box const& box, AdtEnums::Access access) {
    BrickKey const key{store.get(), box.min};
    bool const writes = access != AdtEnums::Read;
    while (true) {
        if (auto known = find(key, access)) {
            return known;
        }
        boost::intrusive_ptr<Brick> brick(new Brick(shared_from_this(), store, box, Brick::Memory::kOwn));
        bool const isKept = writes || brick->byteSize() <= byteBudget_ / 4;
        Shard& shard = shardOf(key);
        growIfFull(shard);
        if (isKept) {
            makeRoom(brick->byteSize());
        }
        if (insert(shard, *brick, isKept)) {
            read(shard, brick, writes);
            return brick;
        }
    }
}

// False if another thread was faster; the room is given back then.
bool BrickTable::insert(Shard& shard, Brick& brick, bool isKept) {
    Lock const lock(shard.mutex);
    // One that nobody holds any more is about to forget itself.
    auto const place = shard.bricks.find(brick.key(), Hash(), Equal());
    if (place != shard.bricks.end() && place->references() == 0) {
        shard.bricks.erase(place);
    }
    if (!shard.bricks.insert(brick).second) {
        bytesKept_.fetch_sub(isKept ? brick.byteSize() : 0, std::memory_order_relaxed);
        return false;
    }
    shard.counters.misses += brick.byteSize() > 0 ? 1 : 0;
    if (isKept) {
        keep(shard, brick);
    }
    return true;
}

void BrickTable::keep(Shard& shard, Brick& brick) noexcept {
    brick.kept.reset(&brick);
    brick.turn = turns_.fetch_add(1, std::memory_order_relaxed);
    shard.inOrder.push_back(brick);
    noteFront(shard);
}

void BrickTable::noteFront(Shard const& shard) noexcept {
    std::uint64_t const turn = shard.inOrder.empty() ? kNoTurn : shard.inOrder.front().turn;
    fronts_[static_cast<std::size_t>(&shard - shards_.data())].turn.store(turn, std::memory_order_relaxed);
}

bool BrickTable::Claims::add(StorePtr const& store, Box const& box) {
    boost::intrusive_ptr<Brick> brick(new Brick(table_.shared_from_this(), store, box, Brick::Memory::kNone));
    bricks_.emplace_back();
    Shard& shard = table_.shardOf(brick->key());
    table_.growIfFull(shard);
    if (!table_.insert(shard, *brick, /*isKept=*/false)) {
        bricks_.pop_back();
        return false;
    }
    bricks_.back() = std::move(brick);
    return true;
}

BrickTable::Claims::~Claims() {
    for (auto const& brick : bricks_) {
        if (brick == nullptr) {
            continue;  // its claiming failed
        }
        Shard& shard = table_.shardOf(brick->key());
        {
            Lock const lock(shard.mutex);
            table_.takeOut(shard, *brick);
            brick->state = Brick::State::kFailed;
        }
        shard.changed.notify_all();
    }
}

void BrickTable::read(Shard& shard, boost::intrusive_ptr<Brick> const& brick, bool writes) {
    boost::intrusive_ptr<Brick> dropped;
    try {
        brick->read();
    } catch (...) {
        {
            Lock const lock(shard.mutex);
            dropped = takeOut(shard, *brick);
            brick->state = Brick::State::kFailed;
        }
        shard.changed.notify_all();
        throw;
    }
    {
        Lock const lock(shard.mutex);
        brick->state = Brick::State::kReady;
        if (writes) {
            noteWriter(shard, *brick);
        }
    }
    shard.changed.notify_all();
}

// The table's own reference, for the caller to drop without the lock.
boost::intrusive_ptr<Brick> BrickTable::takeOut(Shard& shard, Brick& brick) noexcept {
    shard.bricks.erase(shard.bricks.iterator_to(brick));
    if (brick.kept != nullptr) {
        shard.inOrder.erase(shard.inOrder.iterator_to(brick));
        noteFront(shard);
        bytesKept_.fetch_sub(brick.byteSize(), std::memory_order_relaxed);
    }
    return std::move(brick.kept);
}

void BrickTable::forget(Brick& brick) noexcept {
    Shard& shard = shardOf(brick.key());
    Lock const lock(shard.mutex);
    if (static_cast<InTable&>(brick).is_linked()) {
        shard.bricks.erase(shard.bricks.iterator_to(brick));
    }
}

void BrickTable::growIfFull(Shard& shard) {
    std::size_t count = 0;
    {
        Lock const lock(shard.mutex);
        count = shard.buckets.size();
        if (shard.bricks.size() < count) {
            return;
        }
    }
    Buckets buckets(2 * count);
    Lock const lock(shard.mutex);
    if (shard.buckets.size() == count) {
        shard.bricks.rehash(Set::bucket_traits(buckets.data(), buckets.size()));
        shard.buckets.swap(buckets);
    }
}

// Counts the bytes as kept already: threads that make room at once must not count on the same bytes.
void BrickTable::makeRoom(std::int64_t byteSize) {
    bytesKept_.fetch_add(byteSize, std::memory_order_relaxed);
    try {
        // Every brick gets its second chance once, and is looked at once more after that.
        std::uint64_t const begin = turns_.load(std::memory_order_relaxed);
        std::uint64_t end = kNoTurn;
        while (bytesKept_.load(std::memory_order_relaxed) > byteBudget_) {
            std::size_t const first = shardFirstInLine();
            std::uint64_t const turn = fronts_[first].turn.load(std::memory_order_relaxed);
            if (turn >= begin && end == kNoTurn) {
                end = turns_.load(std::memory_order_relaxed);
            }
            if (turn >= end) {
                break;
            }
            evictFront(shards_[first]);
        }
    } catch (...) {
        bytesKept_.fetch_sub(byteSize, std::memory_order_relaxed);
        throw;
    }
}

std::size_t BrickTable::shardFirstInLine() const noexcept {
    std::size_t first = 0;
    std::uint64_t turn = kNoTurn;
    for (std::size_t shard = 0; shard < kShards; ++shard) {
        std::uint64_t const next = fronts_[shard].turn.load(std::memory_order_relaxed);
        if (next < turn) {
            first = shard;
            turn = next;
        }
    }
    return first;
}

// Drops the first brick in line if nobody holds it and nobody has asked for it since the last look, and sends it to the
// end of the line otherwise.
void BrickTable::evictFront(Shard& shard) {
    boost::intrusive_ptr<Brick> dropped;
    boost::intrusive_ptr<Brick> brick;
    Lock lock(shard.mutex);
    if (shard.inOrder.empty()) {
        return;
    }
    Brick& front = shard.inOrder.front();
    front.turn = turns_.fetch_add(1, std::memory_order_relaxed);
    shard.inOrder.splice(shard.inOrder.end(), shard.inOrder, shard.inOrder.begin());
    noteFront(shard);
    bool const isIdle = front.state == Brick::State::kReady && front.references() < kTableAndCaller;
    if (!isIdle || std::exchange(front.wasAskedFor, false)) {
        return;
    }
    brick.reset(&front);
    if (brick->isWritten) {
        carryDown(shard, lock, brick, Carried::kIdle);
    }
    if (!brick->isWritten && brick->references() == kTableAndCaller) {
        dropped = takeOut(shard, *brick);
        ++shard.counters.evictions;
    }
    lock.unlock();
}

// Gives the lock away while a brick is carried down, and takes it again.
class BrickTable::Carrying {
  public:
    Carrying(Shard& shard, Lock& lock, Brick& brick) : shard_(shard), lock_(lock), brick_(brick) {
        brick_.isCarried = true;
        lock_.unlock();
    }
    Carrying(Carrying const&) = delete;
    Carrying& operator=(Carrying const&) = delete;
    ~Carrying() {
        lock_.lock();
        brick_.isCarried = false;
        shard_.changed.notify_all();
    }

  private:
    Shard& shard_;
    Lock& lock_;
    Brick& brick_;
};

// Hands a written brick to its store, without the lock meanwhile. It counts as carried down unless somebody may have
// written into it since: whoever held it before, or got it for writing meanwhile.
void BrickTable::carryDown(Shard& shard, Lock& lock, boost::intrusive_ptr<Brick> const& brick, Carried which) {
    // In turns: an older state that arrived after a newer one would undo it.
    shard.changed.wait(lock, [&] { return !brick->isCarried; });
    bool const isHeld = brick->references() > kTableAndCaller;
    if (!brick->isWritten || (isHeld && which == Carried::kIdle)) {
        return;
    }
    std::int64_t const writers = brick->writers;
    {
        Carrying const carrying(shard, lock, *brick);
        brick->write();
    }
    brick->isWritten = isHeld || writers != brick->writers;
    ++shard.counters.writtenBack;
}

void BrickTable::flush(StorePtr const& store) {
    std::exception_ptr failure;
    carryAll(Carried::kHeldToo, store.get(), failure);
    for (StorePtr const& each : store != nullptr ? std::vector{store} : stores()) {
        try {
            each->flush();
        } catch (...) {
            failure = failure != nullptr ? failure : std::current_exception();
        }
    }
    if (failure != nullptr) {
        std::rethrow_exception(failure);
    }
}

void BrickTable::carryAll(Carried which, PooledStore const* store, std::exception_ptr& failure) {
    std::uint64_t const flush = flushes_.fetch_add(1, std::memory_order_relaxed) + 1;
    for (Shard& shard : shards_) {
        while (auto const brick = nextToFlush(shard, which, store, flush)) {
            try {
                Lock lock(shard.mutex);
                carryDown(shard, lock, brick, which);
            } catch (...) {
                failure = failure != nullptr ? failure : std::current_exception();
            }
        }
    }
}

// A written brick that this flush has not met yet.
boost::intrusive_ptr<Brick> BrickTable::nextToFlush(
    Shard& shard, Carried which, PooledStore const* store, std::uint64_t flush) {
    Lock const lock(shard.mutex);
    for (Brick& brick : shard.inOrder) {
        bool const isWanted = brick.isWritten && (store == nullptr || &brick.store() == store) &&
                              (which == Carried::kHeldToo || brick.references() < kTableAndCaller);
        if (isWanted && brick.flushed < flush) {
            brick.flushed = flush;
            return &brick;
        }
    }
    return nullptr;
}

void BrickTable::clear() {
    std::exception_ptr failure;
    carryAll(Carried::kIdle, nullptr, failure);
    for (Shard& shard : shards_) {
        while (auto const dropped = takeIdle(shard)) {
        }
    }
    if (failure != nullptr) {
        std::rethrow_exception(failure);
    }
}

boost::intrusive_ptr<Brick> BrickTable::takeIdle(Shard& shard) noexcept {
    Lock const lock(shard.mutex);
    auto const idle = std::find_if(shard.inOrder.begin(), shard.inOrder.end(), [](Brick const& brick) {
        return brick.state == Brick::State::kReady && !brick.isWritten && brick.references() < kTableAndCaller;
    });
    return idle == shard.inOrder.end() ? nullptr : takeOut(shard, *idle);
}

void BrickTable::close() noexcept {
    for (Shard& shard : shards_) {
        while (auto const brick = takeFirst(shard)) {
            // Held elsewhere it may still be written into; its own end tries then.
            if (brick->references() == 1) {
                brick->writeAtLast();
            }
        }
    }
    // Taken out rather than copied: nothing may be allocated here.
    std::list<std::weak_ptr<PooledStore>> last;
    {
        std::lock_guard const lock(storesMutex_);
        last.swap(stores_);
    }
    for (auto const& each : last) {
        if (auto const store = each.lock()) {
            store->flushAtLast();
        }
    }
}

boost::intrusive_ptr<Brick> BrickTable::takeFirst(Shard& shard) noexcept {
    Lock const lock(shard.mutex);
    return shard.inOrder.empty() ? nullptr : takeOut(shard, shard.inOrder.front());
}

BrickPool::Counters BrickTable::counters() const {
    BrickPool::Counters sum;
    for (Shard const& shard : shards_) {
        Lock const lock(shard.mutex);
        sum.hits += shard.counters.hits;
        sum.misses += shard.counters.misses;
        sum.readsWaitedFor += shard.counters.readsWaitedFor;
        sum.evictions += shard.counters.evictions;
        sum.writtenBack += shard.counters.writtenBack;
        for (Brick const& brick : shard.bricks) {
            sum.bytesLent += brick.references() > (brick.kept != nullptr ? 1 : 0) ? brick.byteSize() : 0;
        }
    }
    sum.bytesKept = bytesKept_.load(std::memory_order_relaxed);
    return sum;
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Detail
