#include "dravik/adt/bulkview/buffer_handle.h"

#include "dravik/adt/testing/random.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <functional>
#include <mutex>
#include <sstream>
#include <thread>

namespace Quorvel::Dravik::Adt::BulkView {
namespace {

using Info = BufferHandle::ArrayInfo;
using testing::ElementsAre;

static_assert(std::is_trivially_copyable_v<Info>);
static_assert(!std::is_copy_constructible_v<BufferHandle::Owner>);
static_assert(std::is_same_v<std::underlying_type_t<AdtEnums::Access>, int>);

// Writes down what happens to it; locks only if told to.
struct LoggingOwner : BufferHandle::Owner {
    LoggingOwner(std::vector<std::string>& log, bool locks) : Owner(&log), log_(log) {
        if (locks) {
            enableLocking();
        }
    }
    ~LoggingOwner() override { log_.push_back("gone"); }
    void lock() override { log_.push_back("lock"); }
    void unlock() override { log_.push_back("unlock"); }

  private:
    std::vector<std::string>& log_;
};

Info sampleInfo() {
    return {{{1, 1, 0, 0}, {11, 11, 1, 1}}, {1, 100, 0, 0}, 7};
}

bool isEmpty(BufferHandle const& handle) {
    return handle.isNull() && !handle.isInvalidated() && handle.access() == AdtEnums::NoAccess &&
           handle.infoSnapshot() == Info();
}

TEST(Access, SaysWhatItAllows) {
    struct Row {
        int access;
        bool reads, writes, populates;
    };
    constexpr Row kRows[] = {{0, false, false, false}, {1, true, false, false}, {2, true, true, false},
                             {3, false, true, false},  {4, false, false, true}, {42, false, false, false},
                             {-1, false, false, false}};
    for (Row const& row : kRows) {
        auto const access = static_cast<AdtEnums::Access>(row.access);
        EXPECT_EQ(AdtEnums::isReadAccess(access), row.reads) << row.access;
        EXPECT_EQ(AdtEnums::isWriteAccess(access), row.writes) << row.access;
        EXPECT_EQ(AdtEnums::isPopulateAccess(access), row.populates) << row.access;
    }
}

TEST(BufferHandle, IsEmptyAtFirst) {
    BufferHandle const handle;
    EXPECT_TRUE(isEmpty(handle));
    EXPECT_EQ(handle.owner(), nullptr);
    EXPECT_EQ(handle.sampleCount(), 0);
    EXPECT_FALSE(handle.contains(0));
}

TEST(BufferHandle, ServesReadsByAnyLoanAndTheRestByItsOwn) {
    BufferHandle handle;
    for (int granted = 0; granted <= 4; ++granted) {
        handle.update(nullptr, Info(), static_cast<AdtEnums::Access>(granted));
        for (int asked = 0; asked <= 4; ++asked) {
            bool const served = handle.isCompatibleAccess(static_cast<AdtEnums::Access>(asked));
            EXPECT_EQ(served, asked == AdtEnums::Read || asked == granted) << granted << " for " << asked;
        }
    }
}

TEST(BufferHandle, TestsAndLocatesTheAxesGivenOnly) {
    BufferHandle handle;
    handle.update(nullptr, {{{0, 0, 5, 3}, {10, 10, 6, 3}}, {1, 100, 7, 7}, 7}, AdtEnums::Read);
    EXPECT_TRUE(handle.contains(FixedVector<2, int>(3, 4)));
    EXPECT_TRUE(handle.contains(9, 9, 5));
    EXPECT_FALSE(handle.contains(9, 10));
    EXPECT_FALSE(handle.contains(-1));
    EXPECT_FALSE(handle.contains(3, 4, 6));
    EXPECT_FALSE(handle.contains(3, 4, 5, 3)) << "axis 3 is empty";
    handle.relabel(sampleInfo());
    EXPECT_EQ(handle.offset(FixedVector<2, int>(2, 3)), 208);
    EXPECT_EQ(handle.offset(0), 6);
    handle.relabel({{{INT_MIN, 0, 0, 0}, {INT_MAX, 1, 1, 1}}, {INT_MAX, 1, 1, 1}, 0});
    EXPECT_EQ(handle.offset(INT_MAX), 4294967295 * INT_MAX) << "positions have 64 bits";
}

TEST(BufferHandle, IntersectsByTheBareCorners) {
    BufferHandle handle;
    handle.update(nullptr, {{{0, 0, 0, 0}, {10, 10, 1, 1}}, {}, 0}, AdtEnums::Read);
    EXPECT_TRUE(handle.intersects({{9, 9, 0, 0}, {20, 20, 1, 1}}));
    EXPECT_FALSE(handle.intersects({{10, 0, 0, 0}, {20, 20, 1, 1}}));
    EXPECT_FALSE(handle.intersects({{0, 0, 1, 0}, {20, 20, 2, 1}}));
    EXPECT_TRUE(handle.intersects({{5, 5, 0, 0}, {5, 5, 1, 1}})) << "an empty box strictly inside";
}

TEST(BufferHandle, TakesTheFirstSampleOfAnArrayFromItsBufferOffset) {
    char memory[64] = {};
    ArrayRef<4> const array({{2, 3, 0, 0}, {4, 6, 1, 1}}, {3, 1, 0, 0}, memory, 5, typeid(char), 8);
    BufferHandle handle;
    handle.updateRO(array);
    EXPECT_EQ(handle.infoSnapshot(), (Info{array.range(), array.strides(), 5}));
    EXPECT_EQ(handle.buffer(), memory);
    EXPECT_EQ(handle.access(), AdtEnums::Read);
    EXPECT_EQ(handle.sampleCount(), 6);
    handle.update(array, AdtEnums::Populate);
    EXPECT_EQ(handle.access(), AdtEnums::Populate);
    handle.updateBufferAndResetInfo(memory + 1, AdtEnums::Write);
    EXPECT_EQ(handle.infoSnapshot(), Info());
    EXPECT_EQ(handle.buffer(), memory + 1);
}

TEST(BufferHandle, StaysInvalidatedUntilReset) {
    char memory[1] = {};
    std::vector<std::string> log;
    BufferHandle handle;
    handle.setOwner(new LoggingOwner(log, /*locks=*/false));
    handle.update(memory, sampleInfo(), AdtEnums::ReadWrite);
    handle.invalidate(/*emptyRange=*/false);
    EXPECT_TRUE(handle.contains(1, 1));
    EXPECT_EQ(handle.access(), AdtEnums::NoAccess);
    handle.invalidate(/*emptyRange=*/true);
    EXPECT_EQ(
        handle.range4(),
        (OpenEndedRange<4, int>{FixedVector<4, int>::Filled(INT_MAX), FixedVector<4, int>::Filled(0)}));
    for (int index : {INT_MIN, -1, 0, 1, INT_MAX}) {
        EXPECT_FALSE(handle.contains(index)) << index;
    }
    handle.update(memory, sampleInfo(), AdtEnums::ReadWrite);
    handle.updateRO(ArrayRef<4>());
    BufferHandle const copy(handle);
    EXPECT_TRUE(handle.isInvalidated());
    EXPECT_TRUE(copy.isInvalidated());
    handle.reset(/*releaseOwner=*/false);
    EXPECT_TRUE(isEmpty(handle));
    EXPECT_NE(handle.owner(), nullptr);
    handle.reset(/*releaseOwner=*/true);
    EXPECT_EQ(handle.owner(), nullptr);
}

TEST(BufferHandle, CountsItsOwnerOnce) {
    std::vector<std::string> log;
    auto* const first = new LoggingOwner(log, /*locks=*/false);
    {
        BufferHandle handle;
        handle.setOwner(first);
        handle.setOwner(first);
        EXPECT_TRUE(first->isUniqueRef());
        EXPECT_EQ(handle.owner()->getUserData(), &log);
        BufferHandle copy(handle);
        EXPECT_FALSE(first->isUniqueRef());
        copy = static_cast<BufferHandle const&>(copy);
        handle.setOwner(new LoggingOwner(log, /*locks=*/false));
        EXPECT_TRUE(first->isUniqueRef());
        copy = handle;
        EXPECT_THAT(log, ElementsAre("gone"));
        copy.setOwner(nullptr);
        EXPECT_TRUE(handle.owner()->isUniqueRef());
    }
    EXPECT_THAT(log, ElementsAre("gone", "gone"));
}

TEST(BufferHandle, BracketsEachChangeByTheLockOfTheOwnerBefore) {
    struct Row {
        char const* name;
        std::function<void(BufferHandle&)> change;
        bool losesOwner;
    };
    Row const rows[] = {
        {"Update", [](BufferHandle& h) { h.update(nullptr, sampleInfo(), AdtEnums::Read); }, false},
        {"UpdateArray", [](BufferHandle& h) { h.update(ArrayRef<4>(), AdtEnums::Read); }, false},
        {"UpdateRO", [](BufferHandle& h) { h.updateRO(ArrayRef<4>()); }, false},
        {"UpdateBuffer", [](BufferHandle& h) { h.updateBufferAndResetInfo(nullptr, AdtEnums::Read); }, false},
        {"SetOwner", [](BufferHandle& h) { h.setOwner(nullptr); }, true},
        {"Keep", [](BufferHandle& h) { h.reset(/*releaseOwner=*/false); }, false},
        {"Drop", [](BufferHandle& h) { h.reset(/*releaseOwner=*/true); }, true},
        {"TakeBack", [](BufferHandle& h) { EXPECT_TRUE(h.tryThreadSafeReset(h.buffer(), h.owner())); }, true},
    };
    for (Row const& row : rows) {
        for (bool locks : {false, true}) {
            SCOPED_TRACE(row.name);
            std::vector<std::string> log;
            BufferHandle handle;
            handle.setOwner(new LoggingOwner(log, locks));
            row.change(handle);
            std::vector<std::string> expected;
            if (locks) {
                expected = {"lock", "unlock"};
            }
            if (row.losesOwner) {
                expected.push_back("gone");
            }
            EXPECT_EQ(log, expected) << "locks: " << locks;
        }
    }
}

TEST(BufferHandle, IsTakenBackOnlyForItsOwnLoan) {
    char memory[2] = {};
    std::vector<std::string> log;
    boost::intrusive_ptr<BufferHandle::Owner> const owner(new LoggingOwner(log, /*locks=*/false));
    boost::intrusive_ptr<BufferHandle::Owner> const other(new LoggingOwner(log, /*locks=*/true));
    BufferHandle handle;
    handle.update(memory, sampleInfo(), AdtEnums::Read);
    handle.setOwner(owner.get());
    handle.invalidate(/*emptyRange=*/false);
    EXPECT_FALSE(handle.tryThreadSafeReset(memory, other));
    EXPECT_FALSE(handle.tryThreadSafeReset(memory, nullptr));
    EXPECT_FALSE(handle.tryThreadSafeReset(memory + 1, owner));
    EXPECT_THAT(log, ElementsAre("lock", "unlock")) << "the lock of the owner passed in";
    EXPECT_EQ(handle.infoSnapshot(), sampleInfo());
    EXPECT_TRUE(handle.tryThreadSafeReset(memory, owner));
    EXPECT_TRUE(isEmpty(handle));
    EXPECT_TRUE(owner->isUniqueRef());
    handle.update(memory, sampleInfo(), AdtEnums::Read);
    EXPECT_TRUE(handle.tryThreadSafeReset(memory, nullptr)) << "no owner equals no owner";
}

// A handle that its consumer fills and copies while another thread takes blocks back: the owner is dropped by exactly
// one of them.
TEST(BufferHandle, DropsItsOwnerOnceUnderForeignRelease) {
    struct MutexOwner : BufferHandle::Owner {
        MutexOwner() { enableLocking(); }
        void lock() override { mutex.lock(); }
        void unlock() override { mutex.unlock(); }
        std::recursive_mutex mutex;
    };
    constexpr int kRounds = 2000;
    char memory[1] = {};
    boost::intrusive_ptr<BufferHandle::Owner> const owners[] = {new MutexOwner, new MutexOwner, new MutexOwner};
    BufferHandle handle;
    std::thread foreign([&] {
        for (int round = 0; round < kRounds; ++round) {
            handle.invalidate(/*emptyRange=*/round % 2 == 0);
            handle.tryThreadSafeReset(memory, owners[round % 3]);
        }
    });
    for (int round = 0; round < kRounds; ++round) {
        handle.setOwner(owners[round % 3].get());
        handle.update(memory, sampleInfo(), AdtEnums::Read);
        BufferHandle const copy(handle);
        if (!handle.confirm()) {
            handle.reset(/*releaseOwner=*/true);
        }
    }
    foreign.join();
    handle.reset(/*releaseOwner=*/true);
    for (auto const& owner : owners) {
        EXPECT_TRUE(owner->isUniqueRef());
    }
}

// Waits for another thread; both meet within nanoseconds, unless the machine has no processor for one of them.
void await(std::atomic<int> const& counter, int value) {
    for (int spins = 0; counter.load(std::memory_order_acquire) < value; ++spins) {
        spins > 1000 ? std::this_thread::yield() : void();
    }
}

TEST(BufferHandle, NeverHoldsAnIndexThatItWasNotLent) {
    constexpr int kRounds = 20000;
    char memory[1] = {};
    BufferHandle handle;
    std::atomic<int> round = 0;
    std::thread foreign([&] {
        for (int mine = 1; mine <= kRounds; ++mine) {
            await(round, mine);
            EXPECT_TRUE(handle.tryThreadSafeReset(memory, nullptr));
        }
    });
    int outside = 0;
    for (int mine = 1; mine <= kRounds; ++mine) {
        handle.update(memory, {{{100, 0, 0, 0}, {200, 1, 1, 1}}, {1, 0, 0, 0}, 0}, AdtEnums::Read);
        round = mine;
        for (int spins = 0; handle.buffer() != nullptr; ++spins) {
            outside += handle.contains(50);
            spins > 1000 ? std::this_thread::yield() : void();
        }
    }
    foreign.join();
    EXPECT_EQ(outside, 0) << "half of a reset let an index below the block in";
}

// A fetch and an invalidation that overlap: either the fetch learns of it, or it empties what the fetch has written.
TEST(BufferHandle, LosesNoInvalidationThatOverlapsAFetch) {
    constexpr int kRounds = 20000;
    char memory[1] = {};
    BufferHandle handle;
    std::atomic<int> round = 0, done = 0;
    std::thread foreign([&] {
        for (int mine = 1; mine <= kRounds; ++mine) {
            await(round, mine);
            handle.invalidate(/*emptyRange=*/true);
            done = mine;
        }
    });
    int lost = 0;
    for (int mine = 1; mine <= kRounds; ++mine) {
        handle.reset(/*releaseOwner=*/true);
        round = mine;
        for (int delay = mine % 2 * (mine % 100); delay > 0; --delay) {
            done.load(std::memory_order_acquire);  // the fetch comes a little later each time
        }
        handle.update(memory, sampleInfo(), AdtEnums::Read);
        bool const confirmed = handle.confirm();
        await(done, mine);
        lost += confirmed && handle.contains(1);
    }
    foreign.join();
    EXPECT_EQ(lost, 0);
}

TEST(ArrayInfo, PrintsAndHashes) {
    std::ostringstream out;
    out << sampleInfo();
    EXPECT_EQ(out.str(), "[1,11)x[1,11)x[0,1)x[0,1) strides (1,100,0,0) offset 7");
    EXPECT_NE(std::hash<Info>()(sampleInfo()), std::hash<Info>()(Info()));
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
