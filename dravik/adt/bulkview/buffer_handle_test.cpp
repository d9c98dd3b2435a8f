// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/buffer_handle.h"

#include "dravik/adt/testing/live_objects.h"
#include "dravik/adt/testing/random.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <mutex>
#include <sstream>
#include <thread>

namespace Quorvel::Dravik::Adt::BulkView {
namespace {

using Info = BufferHandle::ArrayInfo;
using OwnerReference = boost::intrusive_ptr<BufferHandle::Owner>;
using testing::ElementsAre;
using enum AdtEnums::Access;

static_assert(std::is_trivially_copyable_v<Info>);
static_assert(!std::is_copy_constructible_v<BufferHandle::Owner>);
static_assert(std::is_same_v<std::underlying_type_t<AdtEnums::Access>, int>);

using Log = std::vector<std::string>;

// Writes down what happens to it; locks only if told to.
struct LoggingOwner : BufferHandle::Owner, Testing::Counted<Testing::kLoanOwner> {
    LoggingOwner(Log& itsLog, bool locks) : Owner(&itsLog), log(itsLog) {
        if (locks) {
            enableLocking();
        }
    }
    ~LoggingOwner() override { log.emplace_back("gone"); }
    void lock() override { log.emplace_back("lock"); }
    void unlock() override { log.emplace_back("unlock"); }

    Log& log;
};

Info sampleInfo() {
    return {{{1, 1, 0, 0}, {11, 11, 1, 1}}, {1, 100, 0, 0}, 7};
}

bool isEmpty(BufferHandle const& handle) {
    return handle.isNull() && !handle.isInvalidated() && handle.access() == NoAccess &&
           handle.infoSnapshot() == Info() && handle.sampleCount() == 0 && !handle.contains(0);
}

TEST(Access, SaysWhatItAllows) {
    for (int value : {-1, 0, 1, 2, 3, 4, 5, 42}) {
        auto const access = static_cast<AdtEnums::Access>(value);
        EXPECT_EQ(AdtEnums::isReadAccess(access), value == 1 || value == 2) << value;
        EXPECT_EQ(AdtEnums::isWriteAccess(access), value == 2 || value == 3) << value;
        EXPECT_EQ(AdtEnums::isPopulateAccess(access), value == 4) << value;
        BufferHandle handle;
        handle.update(nullptr, Info(), access);
        for (auto const asked : {NoAccess, Read, ReadWrite, Write, Populate}) {
            EXPECT_EQ(handle.isCompatibleAccess(asked), asked == Read || asked == value) << value << " for " << asked;
        }
    }
}

template <int K>
void answersOnAxes(BufferHandle const& handle, FixedVector<4, int> const& p) {
    Info const info = handle.infoSnapshot();
    FixedVector<K, int> index;
    bool inside = true;
    std::int64_t offset = info.offset;
    for (int axis = 0; axis < K; ++axis) {
        index[axis] = p[axis];
        inside = inside && info.range.min[axis] <= p[axis] && p[axis] < info.range.max[axis];
        offset += (std::int64_t{p[axis]} - info.range.min[axis]) * info.strides[axis];
    }
    ASSERT_EQ(handle.contains(index), inside) << index << " in " << info;
    ASSERT_TRUE(K != 3 || handle.contains(p[0], p[1], p[2]) == inside) << index << " in " << info;
    ASSERT_EQ(handle.offset(index), offset) << index << " in " << info;
}

TEST(BufferHandle, AnswersAsItsDescriptionSays) {
    Testing::Random random;
    auto const anyPoint = [&] {
        FixedVector<4, int> p;
        for (int& component : p) {
            component = random.chance(5) ? random.oneOf({INT_MIN, INT_MAX}) : random.between(-2, 3);
        }
        return p;
    };
    for (int round = 0; round < 5000; ++round) {
        Info const info{{anyPoint(), anyPoint()}, {random.between(-9, 9), INT_MAX / 8, 1, INT_MIN / 8}, 7};
        OpenEndedRange<4, int> const box{anyPoint(), anyPoint()};
        BufferHandle handle;
        handle.relabel(info);
        auto const p = anyPoint();
        answersOnAxes<1>(handle, p);
        answersOnAxes<2>(handle, p);
        answersOnAxes<3>(handle, p);
        answersOnAxes<4>(handle, p);
        EXPECT_EQ(handle.offset(p[0]), handle.offset(FixedVector<1, int>(p[0])));
        EXPECT_EQ(handle.offset(p[0], p[1], p[2], p[3]), handle.offset(p));
        bool meets = true;
        unsigned count = 1;
        for (int axis = 0; axis < 4; ++axis) {
            meets = meets && info.range.min[axis] < box.max[axis] && box.min[axis] < info.range.max[axis];
            count *= static_cast<unsigned>(info.range.max[axis]) - static_cast<unsigned>(info.range.min[axis]);
        }
        ASSERT_EQ(handle.intersects(box), meets) << box << " and " << info << ", by the bare corners";
        ASSERT_EQ(handle.sampleCount(), static_cast<int>(count)) << info;
    }
}

TEST(BufferHandle, TakesTheFirstSampleFromTheOffset) {
    char memory[64] = {};
    ArrayRef<4> const array({{2, 3, 0, 0}, {4, 6, 1, 1}}, {3, 1, 0, 0}, memory, 5, typeid(char), 8);
    BufferHandle handle;
    EXPECT_TRUE(isEmpty(handle));
    EXPECT_EQ(handle.owner(), nullptr);
    handle.updateRO(array);
    EXPECT_EQ(handle.infoSnapshot(), (Info{array.range(), array.strides(), 5}));
    EXPECT_EQ(handle.buffer(), memory);
    EXPECT_EQ(handle.access(), Read);
    handle.updateBufferAndResetInfo(memory + 1, Write);
    EXPECT_EQ(handle.buffer(), memory + 1);
    EXPECT_EQ(handle.access(), Write);
    EXPECT_EQ(handle.infoSnapshot(), Info());
    handle.update(array, Populate);
    EXPECT_EQ(handle.infoSnapshot(), (Info{array.range(), array.strides(), 5}));
    EXPECT_EQ(handle.buffer(), memory);
    EXPECT_EQ(handle.access(), Populate);
}

TEST(BufferHandle, StaysInvalidatedUntilReset) {
    Log log;
    auto* const owner = new LoggingOwner(log, /*locks=*/false);
    BufferHandle handle;
    handle.setOwner(owner);
    handle.setOwner(owner);
    EXPECT_TRUE(owner->isUniqueRef());
    EXPECT_EQ(owner->getUserData(), &log);
    handle.update(&handle, sampleInfo(), ReadWrite);
    handle.invalidate(/*emptyRange=*/false);
    EXPECT_TRUE(handle.contains(1, 1));
    EXPECT_EQ(handle.access(), NoAccess);
    EXPECT_TRUE(handle.isInvalidated());
    handle.invalidate(/*emptyRange=*/true);
    EXPECT_EQ(handle.range4(), (OpenEndedRange<4, int>{FixedVector<4, int>::Filled(INT_MAX), FixedVector<4, int>()}));
    handle.update(&handle, sampleInfo(), ReadWrite);
    handle.updateRO(ArrayRef<4>());
    BufferHandle copy(handle);
    copy = static_cast<BufferHandle const&>(copy);
    EXPECT_TRUE(handle.isInvalidated());
    EXPECT_TRUE(copy.isInvalidated());
    handle.reset(/*releaseOwner=*/false);
    EXPECT_TRUE(isEmpty(handle));
    EXPECT_EQ(handle.owner(), copy.owner());
    EXPECT_FALSE(owner->isUniqueRef());
    handle.reset(/*releaseOwner=*/true);
    EXPECT_TRUE(isEmpty(handle));
    EXPECT_EQ(handle.owner(), nullptr);
    EXPECT_TRUE(owner->isUniqueRef());
    copy = handle;
    EXPECT_THAT(log, ElementsAre("gone"));
}

TEST(BufferHandle, BracketsChangesByTheOwnersLock) {
    struct Row {
        char const* name;
        void (*change)(BufferHandle&);
        bool losesOwner;
    };
    constexpr Row kRows[] = {
        {"Update", [](BufferHandle& h) { h.update(nullptr, sampleInfo(), Read); }, false},
        {"UpdateArray", [](BufferHandle& h) { h.update(ArrayRef<4>(), Read); }, false},
        {"UpdateRO", [](BufferHandle& h) { h.updateRO(ArrayRef<4>()); }, false},
        {"UpdateBuffer", [](BufferHandle& h) { h.updateBufferAndResetInfo(nullptr, Read); }, false},
        {"SetOwner", [](BufferHandle& h) { h.setOwner(nullptr); }, true},
        {"Keep", [](BufferHandle& h) { h.reset(/*releaseOwner=*/false); }, false},
        {"Drop", [](BufferHandle& h) { h.reset(/*releaseOwner=*/true); }, true},
        {"TakeBack", [](BufferHandle& h) { EXPECT_TRUE(h.tryThreadSafeReset(h.buffer(), h.owner())); }, true},
    };
    for (Row const& row : kRows) {
        for (bool locks : {false, true}) {
            Log log, expected = locks ? Log{"lock", "unlock"} : Log{};
            BufferHandle handle;
            handle.setOwner(new LoggingOwner(log, locks));
            row.change(handle);
            if (row.losesOwner) {
                expected.emplace_back("gone");
            }
            EXPECT_EQ(log, expected) << row.name << ", locks: " << locks;
        }
    }
}

TEST(BufferHandle, IsTakenBackForItsLoanAlone) {
    char memory[2] = {};
    Log log;
    OwnerReference const owner(new LoggingOwner(log, /*locks=*/false));
    OwnerReference const other(new LoggingOwner(log, /*locks=*/true));
    BufferHandle handle;
    handle.update(memory, sampleInfo(), Read);
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
    handle.update(memory, sampleInfo(), Read);
    EXPECT_TRUE(handle.tryThreadSafeReset(memory, nullptr)) << "no owner equals no owner";
}

// A handle that its consumer fills and copies while another thread takes blocks back: the owner is dropped by exactly
// one of them. What each sees in between is a matter of the schedule test.
TEST(BufferHandle, DropsItsOwnerOnceUnderForeignRelease) {
    struct MutexOwner : BufferHandle::Owner {
        MutexOwner() { enableLocking(); }
        void lock() override { mutex.lock(); }
        void unlock() override { mutex.unlock(); }
        std::recursive_mutex mutex;
    };
    constexpr int kRounds = 2000;
    OwnerReference const owners[] = {new MutexOwner, new MutexOwner, new MutexOwner};
    BufferHandle handle;
    std::thread foreign([&] {
        for (int round = 0; round < kRounds; ++round) {
            handle.invalidate(/*emptyRange=*/round % 2 == 0);
            handle.tryThreadSafeReset(&handle, owners[round % 3]);
        }
    });
    for (int round = 0; round < kRounds; ++round) {
        auto const notices = handle.notices();
        handle.setOwner(owners[round % 3].get());
        handle.update(&handle, sampleInfo(), Read);
        BufferHandle const copy(handle);
        EXPECT_FALSE(handle.contains(0));
        EXPECT_FALSE(handle.contains(INT_MAX));
        if (!handle.standsSince(notices)) {
            handle.reset(/*releaseOwner=*/true);
        }
    }
    foreign.join();
    handle.reset(/*releaseOwner=*/true);
    for (auto const& owner : owners) {
        EXPECT_TRUE(owner->isUniqueRef());
    }
}

TEST(ArrayInfo, PrintsAndHashes) {
    std::ostringstream out;
    out << sampleInfo();
    EXPECT_EQ(out.str(), "[1,11)x[1,11)x[0,1)x[0,1) strides (1,100,0,0) offset 7");
    EXPECT_NE(std::hash<Info>()(sampleInfo()), std::hash<Info>()(Info()));
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
