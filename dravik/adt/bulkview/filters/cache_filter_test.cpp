// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/cache_filter.h"
#include "dravik/adt/bulkview/filters/detail/cache_filter_impl.h"

#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/conformance.h"
#include "dravik/adt/testing/failing_allocator.h"
#include "dravik/adt/testing/filter_stacks.h"
#include "dravik/adt/testing/lending_accessor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <set>
#include <stdexcept>
#include <thread>
#include <tuple>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView::Filters {
namespace {

using Box = OpenEndedRange<4, int>;
using Position = FixedVector<4, int>;
using Loan = BufferHandle::Loan;
using Testing::CallingOwner;
using Testing::LendingAccessor;
using Testing::Random;

constexpr int kNever = CacheFilter::kNever;

enum class Layout { kBricks, kShiftedBricks, kNested, kAnything };

// One random script of requests and notifications. Every block has a buffer of its own, so what a request is served
// with names the block; the owners that are alive in the end tell which blocks the cache keeps.
class Script {
  public:
    Script(Random& random, int axes, Layout layout) : random_(random), axes_(axes), layout_(layout) {
        for (int axis = 0; axis < 4; ++axis) {
            size_[axis] = axis < axes_ ? random.between(2, 14) : 1;
            length_[axis] = random.between(1, 5);
            phase_[axis] = random.between(0, layout_ == Layout::kShiftedBricks ? length_[axis] - 1 : 0);
        }
        auto const lend = [this](Position position, AdtEnums::Access access, BufferHandle& handle) {
            answer(position, access, handle);
        };
        // One draw after the other: compilers differ in which argument they look at first.
        int const budget = random.oneOf({-1, 0, random.between(1, 200), random.between(200, 5000)});
        int const half = threshold(), full = threshold();
        cache_ = CacheFilter::Apply(std::make_unique<LendingAccessor>(size_, lend), budget, half, full);
    }

    // Which block served each request, and how many are kept, in one number.
    std::uint64_t run() {
        auto const steps = random_.between<std::size_t>(20, 250);
        for (step_ = 0; step_ < steps && !testing::Test::HasFatalFailure(); ++step_) {
            random_.chance(90) ? request() : notify();
        }
        handle_.reset(/*releaseOwner=*/true);
        owner_.reset();
        lent_.clear();
        note(aliveCount_);
        return digest_;
    }

  private:
    struct Lent {
        Loan loan;
        bool isGone = false;
    };

    void note(std::uint64_t value) { digest_ = (digest_ ^ value) * 0x100000001b3; }

    Box blockAround(Position const& p) {
        Box box;
        for (int axis = 0; axis < 4; ++axis) {
            int const low = (p[axis] + phase_[axis]) / length_[axis] * length_[axis] - phase_[axis];
            box.min[axis] = std::max(low, 0);
            box.max[axis] = std::min(low + length_[axis], size_[axis]);
        }
        if (layout_ == Layout::kNested && random_.chance(20)) {
            box = Box::OfSize(size_);
        } else if (layout_ == Layout::kAnything) {
            int const axis = random_.between(0, axes_ - 1);
            box.min[axis] = random_.between(-2, size_[axis]);
            box.max[axis] = axis == 0 && random_.chance(5) ? INT_MAX : box.min[axis] + random_.between(-1, 6);
        }
        return box;
    }

    void answer(Position const& position, AdtEnums::Access access, BufferHandle& handle) {
        if (owner_ == nullptr || random_.chance(70)) {
            ++aliveCount_;
            owner_ = new CallingOwner([this] { --aliveCount_; });
        }
        Box const box = blockAround(position);
        int const offset = random_.between(0, 9);
        handle.update(&memory_.at(lent_.size()), {box, {}, offset}, random_.chance(80) ? access : AdtEnums::ReadWrite);
        handle.setOwner(random_.chance(5) ? nullptr : owner_.get());
        lent_.push_back({handle.loan()});
    }

    void request() {
        if (random_.chance(8)) {
            random_.chance(50) ? handle_.invalidate(random_.chance(50)) : handle_.reset(/*releaseOwner=*/true);
        }
        Position const position = nextPosition();
        auto const access = static_cast<AdtEnums::Access>(random_.oneOf({1, 1, 1, 1, 1, 0, 2, 3, 4, 42}));
        std::size_t const lentBefore = lent_.size();
        cache_->getBuffer(position, access, handle_);
        Loan const shown = handle_.loan();
        auto const block = static_cast<std::size_t>(static_cast<char const*>(shown.buffer) - memory_.data());
        note(block);
        ASSERT_LT(block, lent_.size());
        auto const& [lent, isGone] = lent_[block];
        ASSERT_EQ(shown.info, lent.info) << "step " << step_;
        ASSERT_EQ(shown.owner, lent.owner) << "step " << step_;
        ASSERT_EQ(shown.access, lent.access) << "step " << step_;
        ASSERT_FALSE(isGone) << "step " << step_ << " at " << position;
        for (int axis = 0; axis < axes_ && lent_.size() == lentBefore; ++axis) {
            ASSERT_LE(lent.info.range.min[axis], position[axis]) << "step " << step_;
            ASSERT_LT(position[axis], lent.info.range.max[axis]) << "step " << step_;
            ASSERT_TRUE(access == AdtEnums::Read || access == lent.access) << "step " << step_;
        }
    }

    // A position of the sweep that repeats, or any other; edges often.
    Position nextPosition() {
        Position position;
        for (int axis = 0; axis < axes_; ++axis) {
            position[axis] = std::clamp(random_.edgy(0, size_[axis] - 1), 0, size_[axis] - 1);
        }
        Position& inSweep = sweep_[step_ % 12];
        inSweep = step_ < 12 ? position : inSweep;
        return random_.chance(80) ? inSweep : position;
    }

    void notify() {
        auto& cache = dynamic_cast<IBufferAccessor::IClient&>(*cache_);
        std::size_t const back = random_.between<std::size_t>(1, 20);
        Loan const any = back > lent_.size() || random_.chance(10) ? Loan() : lent_[lent_.size() - back].loan;
        auto const forget = [&](auto isGone) {
            std::for_each(
                lent_.begin(), lent_.end(), [&](Lent& lent) { lent.isGone = lent.isGone || isGone(lent.loan); });
        };
        auto const isAtBuffer = [&](Loan const& loan) { return loan.buffer == any.buffer; };
        int value = 0;
        switch (random_.between(0, 3)) {
        case 0:
            cache.accessorUpdated();
            return forget([](Loan const&) { return true; });
        case 1:
            cache.bufferInvalidated(any.owner.get());
            return forget([&](Loan const& loan) { return loan.owner == any.owner; });
        case 2:
            note(cache.prepareBufferRelease(any.buffer, value));
            return forget(isAtBuffer);
        default:
            cache.releaseBuffer(any.buffer, any.owner);
            return forget(isAtBuffer);
        }
    }

    int threshold() { return random_.oneOf({-1, -1, 0, 1, random_.between(2, 40)}); }

    Random& random_;
    int axes_;
    Layout layout_;
    Position size_, length_, phase_, sweep_[12];
    std::size_t aliveCount_ = 0, step_ = 0;
    std::uint64_t digest_ = 0xcbf29ce484222325;
    std::vector<char> memory_ = std::vector<char>(250);
    boost::intrusive_ptr<BufferHandle::Owner> owner_;  // of the last blocks lent
    std::vector<Lent> lent_;                           // by the place of their buffers in memory_
    BufferHandle handle_;
    std::unique_ptr<IBufferAccessor> cache_;
};

TEST(CacheFilter, ServesWhatItWasLent) {
    Random random;
    for (int script = 0; script < 1000 && !HasFatalFailure(); ++script) {
        SCOPED_TRACE(script);
        int const axes = random.between(2, 4);
        Script(random, axes, static_cast<Layout>(random.between(0, 3))).run();
    }
}

TEST(CacheFilter, ServesFixedScriptsByTheSameBlocks) {
    struct Row {
        char const* name;
        Layout layout;
        std::uint64_t digests[3];
    };
    constexpr Row kRows[] = {
        {"Bricks", Layout::kBricks, {0xb1c8dac8f907da51, 0x087c5a2b8aa265b0, 0x86de78bfd0ae95bf}},
        {"ShiftedBricks", Layout::kShiftedBricks, {0x974fe99ae63a754a, 0x988aaa0e8b48fbcb, 0x5f342c634a76b8e1}},
        {"Nested", Layout::kNested, {0x5ca855ca8669f8de, 0x3dfcfbab7bbe1a0a, 0x9ea5880f6a93e625}},
        {"Anything", Layout::kAnything, {0xec450193b4abe040, 0xd8ebdf285ab42fbb, 0x447ad0482c223ca6}},
    };
    for (Row const& row : kRows) {
        for (int axes = 2; axes <= 4; ++axes) {
            std::uint64_t sum = 0;
            Random random(1);
            for (int script = 0; script < 250 && !HasFatalFailure(); ++script) {
                sum = sum * 31 + Script(random, axes, row.layout).run();
            }
            EXPECT_EQ(sum, row.digests[axes - 2]) << row.name << " on " << axes << " axes";
        }
    }
}

TEST(CacheFilter, ServesRegionsByItsBlocks) {
    Testing::PlainArray<float> const data({12, 9, 20, 4});
    auto const array = SharedArray<4>::Make<float>(data.box());
    for (int const budget : {1, kNever}) {
        auto bricks = std::make_unique<Testing::BrickAccessor<float>>(data);
        auto const& asked = *bricks;
        auto const cache = CacheFilter::Apply(std::move(bricks), budget, kNever, kNever);
        readRegion(*cache, ExtentK<4, int>(data.box()), array);
        EXPECT_EQ(asked.requests(), 72) << "once for each, also where nothing can stay";
        readRegion(*cache, ExtentK<4, int>(data.box()), array);
        EXPECT_EQ(asked.requests(), budget == kNever ? 72 : 144);
    }
}

TEST(CacheFilter, FlushesWhatKeptBlocksHoldBack) {
    auto const array = SharedArray<4>::Make<short>(Box::OfSize({1, 1, 20, 1}));
    auto const cache = Testing::cached(Testing::converted(std::make_unique<Accessors::MemoryAccessor>(array)));
    EXPECT_EQ(*traitsOf(*cache).sampleType, typeid(float));
    BufferHandle handle;
    cache->getBuffer({}, AdtEnums::ReadWrite, handle);
    static_cast<float*>(handle.buffer())[7] = 7;
    handle.reset(/*releaseOwner=*/true);
    flush(*cache);
    EXPECT_EQ(reinterpret_cast<short const*>(array.data())[7], (7 - Testing::kOffset) / Testing::kScale);
}

TEST(CacheFilter, IsMadeForTheAxesThatCount) {
    struct Row {
        Position size;
        std::type_info const& type;
    };
    for (Row const& row :
         {Row{{100, 1, 1, 1}, typeid(LendingAccessor)}, Row{{1, 2, 1, 1}, typeid(CacheFilterImpl<2>)},
          Row{{10, 10, 1, 0}, typeid(CacheFilterImpl<2>)}, Row{{9, 1, 2, 1}, typeid(CacheFilterImpl<3>)},
          Row{{1, 1, 1, 2}, typeid(CacheFilterImpl<4>)}, Row{{0, 5, 5, 5}, typeid(CacheFilterImpl<4>)}}) {
        auto const cache = CacheFilter::Apply(std::make_unique<LendingAccessor>(row.size, nullptr), 1, 1, 1);
        auto const& made = *cache;
        EXPECT_EQ(typeid(made), row.type) << row.size;
    }
    EXPECT_THAT(
        [] { CacheFilter::Apply(nullptr, 1, 1, 1); },
        testing::ThrowsMessage<std::invalid_argument>(
            "[CacheFilter::Apply] Invalid argument: target accessor is null."));
}

// A cache over blocks of 4 x 4 samples, whose target, owners and client report to `onCall`.
struct Scene : IBufferAccessor::IClient {
    explicit Scene(int fullDensityThreshold) {
        auto lend = [this](Position p, AdtEnums::Access access, BufferHandle& handle) {
            onCall("target");
            Position const low(p[0] / 4 * 4, p[1] / 4 * 4, 0, 0);
            handle.setOwner(new CallingOwner([this, low] { low[0] == 36 ? void() : onCall("owner"); }));
            handle.update(memory, {{low, low + Position(4, 4, 1, 1)}, {4, 1, 0, 0}, 0}, access);
        };
        auto accessor = std::make_unique<LendingAccessor>(Position(40, 40, 1, 1), lend);
        accessor->atEnd = [this] { onCall("target's end"); };
        cache = CacheFilter::Apply(std::move(accessor), kNever, kNever, fullDensityThreshold);
        cache->setClient(this);
    }
    ~Scene() override {
        onCall = [](char const*) {};
    }

    BufferHandle request(int i, int j) {
        BufferHandle handle;
        cache->getBuffer({i, j, 0, 0}, AdtEnums::Read, handle);
        EXPECT_TRUE(handle.contains(i, j));
        return handle;
    }
    IBufferAccessor::IClient& notified() { return dynamic_cast<IBufferAccessor::IClient&>(*cache); }

    void accessorUpdated() override { onCall("client"); }
    void bufferInvalidated(BufferHandle::Owner const*) override { onCall("client"); }
    bool prepareBufferRelease(void const*, int& value) override { return onCall("client"), ++value == 8; }
    void releaseBuffer(void const*, boost::intrusive_ptr<BufferHandle::Owner> owner) override {
        EXPECT_NE(owner, nullptr);
        onCall("client");
    }
    std::unique_ptr<IBufferAccessor> releaseAccessor() override { return nullptr; }

    std::function<void(char const*)> onCall = [](char const*) {};
    char memory[16] = {};
    std::unique_ptr<IBufferAccessor> cache;
};

struct CallRow {
    char const* name;
    std::vector<std::string> calls;
    std::function<void(Scene&)> act;
    int fullDensityThreshold = kNever;
};

std::vector<CallRow> callRows(BufferHandle& handle, int& value) {
    return {
        {"miss", {"target"}, [](Scene& s) { s.request(8, 8); }},
        {"growth", {"target"}, [](Scene& s) { s.request(8, 8); }, 1000},
        {"hit",
         {"owner"},
         [&](Scene& s) {
             s.cache->getBuffer({36, 36, 0, 0}, AdtEnums::Read, handle);
         }},
        {"reset", {"target", "owner"}, [](Scene& s) { s.request(8, 8); }, 2},
        {"update", {"client", "owner"}, [](Scene& s) { s.notified().accessorUpdated(); }},
        {"invalidate", {"client", "owner"}, [](Scene& s) { s.notified().bufferInvalidated(s.request(0, 0).owner()); }},
        {"take back",
         {"client", "owner"},
         [&](Scene& s) { EXPECT_TRUE(s.notified().prepareBufferRelease(s.memory, value)); }},
        {"release",
         {"owner", "client"},
         [](Scene& s) { s.notified().releaseBuffer(s.memory, new CallingOwner([] {})); }},
        {"dispose", {"owner"}, [](Scene& s) { s.cache->dispose(/*flag=*/true); }},
        {"destroy", {"owner", "target's end"}, [](Scene& s) { auto const last = std::move(s.cache); }},
    };
}

// At every call out, and whenever memory is got or given back, another thread asks the cache for a block: it would wait
// for ever for a lock held meanwhile.
void expectCalls(CallRow const& row, BufferHandle& handle) {
    Scene scene(row.fullDensityThreshold);
    for (int column = 0; column < 15 && row.name == std::string("growth"); ++column) {
        scene.request(36, 4 * column % 40);
    }
    scene.request(36, 36);
    handle = scene.request(0, 0);
    if (row.name == std::string("hit")) {
        scene.notified().bufferInvalidated(handle.owner());
    } else {
        handle.reset(/*releaseOwner=*/true);
    }
    std::vector<std::string> calls;
    std::atomic<bool> isAsking = false;
    scene.onCall = [&](char const* who) {
        if (!isAsking.exchange(true)) {
            who != nullptr ? void(calls.emplace_back(who)) : void();
            std::thread([&] { scene.cache == nullptr ? void() : void(scene.request(36, 36)); }).join();
            isAsking = false;
        }
    };
    std::function<void()> const atMemory = [&] { scene.onCall(nullptr); };
    Testing::memoryHook() = &atMemory;
    row.act(scene);
    Testing::memoryHook() = nullptr;
    EXPECT_EQ(calls, row.calls) << row.name;
}

TEST(CacheFilter, CallsOutInOrderWithoutItsLock) {
    BufferHandle handle;
    int value = 7;
    for (CallRow const& row : callRows(handle, value)) {
        expectCalls(row, handle);
    }
    EXPECT_EQ(value, 8);
}

constexpr int kRounds = 10000;

struct Reader {
    explicit Reader(Testing::BrickAccessor<float> const& bricks) : bottom(new Testing::BrickAccessor<float>(bricks)) {
        cache = CacheFilter::Apply(std::unique_ptr<IBufferAccessor>(bottom), 300, kNever, kNever);
        cache->setClient(&client);
    }
    Testing::Borrower client;
    Testing::BrickAccessor<float>* bottom;
    std::unique_ptr<IBufferAccessor> cache;
    int wrong = 0;
};

void readAtRandom(Reader& reader, Testing::PlainArray<float> const& data, std::uint64_t seed) {
    Random own(seed);
    for (int round = 0; round < kRounds; ++round) {
        Position const p = data.randomIndex(own);
        reader.client.request(*reader.cache, p, AdtEnums::Read);
        auto const loan = reader.client.handle.loan();
        if (loan.owner != nullptr && loan.info.range.contains(p)) {
            auto& brick = static_cast<Testing::Brick<float>&>(*loan.owner);
            std::lock_guard const lock(brick);
            reader.wrong += brick.at(p) != data.at(p) && brick.at(p) != brick.kPoison;
        }
    }
}

// Two threads read through clones of one chain while the target takes blocks back and declares others invalid. A reader
// may be served a block that has gone once more, but never another one.
TEST(CacheFilter, ServesThreadsWhileBlocksGo) {
    Random random;
    Testing::PlainArray<float> data({24, 24, 1, 1});
    data.fill(random, 100);
    Testing::BrickAccessor<float> const bricks(data, {.locksOwner = true});
    Reader readers[] = {Reader(bricks), Reader(bricks)};
    std::thread first([&] { readAtRandom(readers[0], data, 1); }), second([&] { readAtRandom(readers[1], data, 2); });
    for (int round = 0; round < kRounds; ++round) {
        auto& bottom = *readers[round % 2].bottom;
        Position const p = data.randomIndex(random);
        bottom.prepareRelease(p);
        bottom.release(p);
        bottom.client()->bufferInvalidated(bottom.brickAt(data.randomIndex(random)).get());
        round % 16 == 0 ? bottom.client()->accessorUpdated() : void();
    }
    first.join();
    second.join();
    EXPECT_EQ(readers[0].wrong + readers[1].wrong, 0);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Filters
