// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/stores/brick_pool.h"

#include "dravik/adt/bulkview/stores/store_accessor.h"
#include "dravik/adt/testing/memory_store.h"

#include <gtest/gtest.h>

#include <latch>
#include <string>
#include <thread>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView {
namespace {

using Testing::MemoryStore;
using Testing::PlainArray;
using Testing::Random;
using Index = FixedVector<4, int>;

constexpr std::int64_t kBrickBytes = 64;

// Bricks of 64 bytes in a row.
std::shared_ptr<MemoryStore<int>> rowOfBricks(int bricks) {
    return std::make_shared<MemoryStore<int>>(PlainArray<int>({16 * bricks, 1, 1, 1}), Index(16, 1, 1, 1));
}

// Reads and writes single samples as a consumer with one handle.
struct Consumer {
    Consumer(std::shared_ptr<IBrickStore> const& store, std::shared_ptr<BrickPool> const& pool)
        : accessor(StoreAccessor::Make(store, pool)) {}

    int& at(int index, AdtEnums::Access access) {
        accessor->getBuffer({index, 0, 0, 0}, access, handle);
        return static_cast<int*>(handle.buffer())[handle.offset(index)];
    }
    int get(int index) { return at(index, AdtEnums::Read); }
    void set(int index, int value) { at(index, AdtEnums::ReadWrite) = value; }
    void letGo() { handle.reset(/*releaseOwner=*/true); }

    std::unique_ptr<IBufferAccessor> accessor;
    BufferHandle handle;
};

TEST(BrickPool, LosesNothingWhateverFails) {
    Random random;
    for (int round = 0; round < 40; ++round) {
        auto const store = rowOfBricks(12);
        std::vector<int> model(16 * 12);
        int failures = 0;
        auto const fail = [&] { random.chance(20) ? (++failures, throw std::runtime_error("bad sector")) : void(); };
        store->onRead = store->onWrite = fail;
        auto const pool = std::make_shared<BrickPool>(kBrickBytes * random.between(0, 8));
        Consumer consumers[] = {{store, pool}, {store, pool}, {store, pool}};
        for (int step = 0; step < 300; ++step) {
            Consumer& consumer = consumers[random.between(0, 2)];
            int const index = random.between(0, 16 * 12 - 1);
            int const act = random.between(0, 99);
            try {
                if (act < 45) {
                    EXPECT_EQ(consumer.get(index), model[static_cast<std::size_t>(index)]) << "sample " << index;
                } else if (act < 85) {
                    consumer.set(index, step);
                    model[static_cast<std::size_t>(index)] = step;
                } else if (act < 95) {
                    consumer.letGo();
                } else {
                    act < 98 ? pool->flush() : pool->clear();
                }
            } catch (std::runtime_error const& error) {
                EXPECT_STREQ(error.what(), "bad sector");
            }
        }
        store->onRead = store->onWrite = nullptr;
        pool->flush();
        EXPECT_EQ(store->data.samples(), model);
        EXPECT_GT(failures, 0);
    }
}

TEST(BrickPool, KeepsToItsBudget) {
    auto const store = rowOfBricks(8);
    auto const pool = std::make_shared<BrickPool>(4 * kBrickBytes);
    Consumer consumer(store, pool);
    for (int brick : {0, 1, 2, 3, 0, 4}) {
        consumer.get(16 * brick);
        EXPECT_LE(pool->counters().bytesKept, 4 * kBrickBytes);
    }
    EXPECT_EQ(store->reads, 5);
    EXPECT_EQ(pool->counters().hits, 1);
    EXPECT_EQ(pool->counters().evictions, 1);
    EXPECT_EQ(pool->counters().bytesLent, kBrickBytes);
    consumer.letGo();
    pool->clear();
    EXPECT_EQ(pool->counters().bytesKept, 0);
}

// What a sweep works on stays, however often what it has left behind was asked for.
TEST(BrickPool, DropsWhatASweepHasLeft) {
    constexpr int kSlab = 64, kSlabs = 8;
    auto const store = rowOfBricks(kSlab * kSlabs);
    Consumer consumer(store, std::make_shared<BrickPool>(3 * kSlab / 2 * kBrickBytes));
    for (int slab = 0; slab < kSlabs; ++slab) {
        for (int ask = 0; ask < 6 * kSlab; ++ask) {
            consumer.get(16 * (slab * kSlab + ask % kSlab));
        }
    }
    EXPECT_LE(store->reads, kSlab * kSlabs * 11 / 10);
}

TEST(BrickPool, KeepsLargeBricksOnlyWhileHeld) {
    auto const store = rowOfBricks(2);
    auto const pool = std::make_shared<BrickPool>(3 * kBrickBytes);
    Consumer first(store, pool);
    Consumer second(store, pool);
    first.get(0);
    second.get(1);
    EXPECT_EQ(first.handle.buffer(), second.handle.buffer());
    EXPECT_EQ(pool->counters().bytesKept, 0);
    first.letGo();
    second.set(2, 5);
    second.letGo();
    EXPECT_EQ(pool->counters().bytesKept, kBrickBytes);
    EXPECT_EQ(first.get(2), 5);
    EXPECT_EQ(store->reads, 1);
}

TEST(BrickPool, TellsOfLossesAtItsEnd) {
    std::vector<std::string> told;
    auto const store = rowOfBricks(3);
    Consumer* late = nullptr;
    {
        auto pool = std::make_shared<BrickPool>(1000, [&](std::string const& line) { told.push_back(line); });
        Consumer consumer(store, pool);
        late = new Consumer(store, pool);
        consumer.set(0, 1);
        late->set(20, 2);
        late->accessor.reset();
        store->onWrite = [] { throw std::runtime_error("disk full"); };
        consumer.letGo();
        pool.reset();
        consumer.accessor.reset();
    }
    ASSERT_EQ(told.size(), 1u);
    EXPECT_EQ(told[0], "[BrickPool] Samples written into [0,16)x[0,1)x[0,1)x[0,1) are lost: disk full");
    store->onWrite = nullptr;
    static_cast<int*>(late->handle.buffer())[5] = 3;
    delete late;
    EXPECT_EQ(store->data.samples()[20], 2);
    EXPECT_EQ(store->data.samples()[21], 3);
    EXPECT_EQ(told.size(), 1u);
}

TEST(BrickPool, ReadsABrickOnceForAll) {
    constexpr int kThreads = 4;
    auto const store = rowOfBricks(1);
    auto const pool = std::make_shared<BrickPool>(1000);
    store->onRead = [&] {
        while (pool->counters().readsWaitedFor < kThreads - 1) {
            std::this_thread::yield();
        }
    };
    std::vector<std::jthread> threads;
    for (int number = 0; number < kThreads; ++number) {
        threads.emplace_back([&] { EXPECT_EQ(Consumer(store, pool).get(3), 0); });
    }
    threads.clear();
    EXPECT_EQ(store->reads, 1);
}

TEST(BrickPool, ServesThreadsThatWriteFlushAndEvict) {
    constexpr int kThreads = 4;
    constexpr int kBricks = 16;
    auto const store = rowOfBricks(kBricks);
    auto const pool = std::make_shared<BrickPool>(6 * kBrickBytes);
    std::vector<std::jthread> threads;
    for (int number = 0; number < kThreads; ++number) {
        threads.emplace_back([&, number] {
            Consumer consumer(store, pool);
            for (int step = 1; step <= 2000; ++step) {
                // Bricks that no other thread writes.
                int const index = 16 * (number + kThreads * (step * 7 % (kBricks / kThreads))) + step % 16;
                consumer.set(index, step);
                EXPECT_EQ(consumer.get(index), step);
                consumer.letGo();
                if (step % 100 == 0) {
                    pool->clear();
                }
            }
        });
    }
    threads.clear();
    pool->flush();
    std::vector<int> expected(16 * kBricks);
    for (int number = 0; number < kThreads; ++number) {
        for (int step = 1; step <= 2000; ++step) {
            expected[static_cast<std::size_t>(
                16 * (number + kThreads * (step * 7 % (kBricks / kThreads))) + step % 16)] = step;
        }
    }
    EXPECT_EQ(store->data.samples(), expected);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
