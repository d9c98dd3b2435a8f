// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/cache_filter.h"
#include "dravik/adt/bulkview/filters/proxy_filter.h"
#include "dravik/adt/bulkview/regions/region_transfer.h"
#include "dravik/adt/bulkview/views/typed_2d_views.h"
#include "dravik/adt/bulkview/views/typed_3d_views.h"

#include "dravik/adt/testing/scheduled_words.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <mutex>
#include <string>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView {

// The views of this program are made of the scheduled copies.
template class TypedViewBase<2, float>;
template class Typed2dRoView<float>;
template class Typed2dRwView<float>;
template class TypedViewBase<3, float>;
template class Typed3dRoView<float>;
template class Typed3dRwView<float>;

// What proxies refer to; no region is moved here.
void RegionTransfer::run(IBufferAccessor&, RegionRequest const&) {}

namespace {

using Testing::Planted;
using Testing::Schedule;
using Testing::ScheduledMutex;
using Index = FixedVector<4, int>;

constexpr int kRows = 2;
constexpr int kColumns = 3;
constexpr float kPoison = -1;

// One version of the samples of one row, and the owner of their loans. Stays until the end of the run, so that what
// uses it too late or ends it twice is found and does no harm.
class Brick final : public BufferHandle::Owner {
  public:
    Brick(ScheduledMutex* lock, int itsRow, int itsVersion) : row(itsRow), version(itsVersion), lock_(lock) {
        for (int column = 0; column < kColumns; ++column) {
            samples[column] = static_cast<float>(1000 * version + 10 * row + column);
        }
        if (lock_ != nullptr) {
            enableLocking();
        }
    }
    BufferHandle::ArrayInfo info() const {
        return {{{row, 0, 0, 0}, {row + 1, kColumns, 1, 1}}, {kColumns, 1, 0, 0}, 0};
    }
    // The same on three axes, the first of size 1; perhaps no farther than the column asked for.
    BufferHandle::ArrayInfo infoInVolume(int lastColumn) const {
        return {{{0, row, 0, 0}, {1, row + 1, lastColumn + 1, 1}}, {0, kColumns, 1, 0}, 0};
    }
    bool hasEndedOnce() const { return endings_ == 1 && getReferenceCount() == 0; }

    int const row;
    int const version;
    float samples[kColumns];
    int outdatedSince = 0;  // by the clock of the world; 0 while it is not

  private:
    void destroy() override { ++endings_; }
    void lock() override { lock_->lock(); }
    void unlock() override { lock_->unlock(); }

    ScheduledMutex* lock_;
    int endings_ = 0;
};

// A run, and what its fibers share: the bricks of a host, the client of its accessor, and what went wrong first.
class World : public Schedule {
  public:
    World(std::uint64_t seed, bool locksOwners) : Schedule(seed), locksOwners_(locksOwners) {
        exchange(0), exchange(1);
    }

    boost::intrusive_ptr<Brick> brick(int row) {
        std::lock_guard const guard(mutex_);
        return bricks_[row];
    }
    void lend(int row, AdtEnums::Access access, BufferHandle& handle) {
        std::lock_guard const guard(mutex_);
        auto const& lent = bricks_[row];
        handle.setOwner(lent.get());
        handle.update(lent->samples, lent->info(), access);
    }

    void lendInVolume(int row, int column, AdtEnums::Access access, BufferHandle& handle) {
        std::lock_guard const guard(mutex_);
        auto const& lent = bricks_[row];
        handle.setOwner(lent.get());
        handle.update(lent->samples, lent->infoInVolume(random(2) == 0 ? column : kColumns - 1), access);
    }

    // What other threads may do at any moment.
    void invalidate(int row) { client->bufferInvalidated(brick(row).get()); }
    void prepare(int row) {
        int value = 0;
        client->prepareBufferRelease(brick(row)->samples, value);
    }
    void change(int row) {
        auto const old = exchange(row);
        client->bufferInvalidated(old.get());
        Schedule::settle();  // what is told now comes after what was stored, for every thread
        old->outdatedSince = ++clock_;
    }
    void disturb(int changes) {
        int const row = random(kRows);
        random(changes) == 0 ? prepare(row) : change(row);
    }
    void takeBack(int row) {
        auto const old = exchange(row);
        int value = 0;
        client->prepareBufferRelease(old->samples, value);
        client->releaseBuffer(old->samples, old);
        std::lock_guard const guard(readLock);
        std::fill(std::begin(old->samples), std::end(old->samples), kPoison);
    }

    // Without waiting for readers: the memory stays, and its samples live on in a brick of their own.
    void takeBackAtOnce(int row) {
        ++takeBacks[row];
        auto const old = exchange(row, /*keepsSamples=*/true);
        int value = 0;
        client->prepareBufferRelease(old->samples, value);
        client->releaseBuffer(old->samples, old);
        Schedule::settle();
        ++takeBacks[row];
    }

    // What a reader sees: a sample of the place that it asked for, and of no version that it had to know was outdated.
    int now() const { return clock_; }
    void expectSample(int row, int column, int begin, float sample) {
        expect(sample != kPoison, "read what was taken back");
        int const version = static_cast<int>(sample) / 1000;
        expect(sample == static_cast<float>(1000 * version + 10 * row + column), "read a sample of another place");
        for (auto const& each : all_) {
            bool const isOutdated =
                each->version == version && each->outdatedSince != 0 && each->outdatedSince <= begin;
            expect(!isOutdated, "read what was outdated");
        }
    }
    void expect(bool holds, char const* otherwise) { problem = holds || !problem.empty() ? problem : otherwise; }
    void end() {
        bricks_[0] = bricks_[1] = nullptr;
        for (auto const& each : all_) {
            expect(each->hasEndedOnce(), "an owner was dropped twice or never");
        }
    }

    void run(std::vector<std::function<void()>> bodies) { expect(Schedule::run(std::move(bodies)), "waited for ever"); }

    IBufferAccessor::IClient* client = nullptr;
    ScheduledMutex readLock;    // of all owners
    int takeBacks[kRows] = {};  // counted at the begin and at the end
    std::string problem;

  private:
    boost::intrusive_ptr<Brick> exchange(int row, bool keepsSamples = false) {
        std::lock_guard const guard(mutex_);
        all_.push_back(std::make_unique<Brick>(locksOwners_ ? &readLock : nullptr, row, ++versions_));
        boost::intrusive_ptr<Brick> brick(all_.back().get());
        keepsSamples ? void(std::copy_n(bricks_[row]->samples, kColumns, brick->samples)) : void();
        std::swap(bricks_[row], brick);
        return brick;
    }

    bool locksOwners_;
    ScheduledMutex mutex_;
    std::vector<std::unique_ptr<Brick>> all_;
    boost::intrusive_ptr<Brick> bricks_[kRows];
    int versions_ = 0;
    int clock_ = 0;
};

class Host : public IBufferAccessor {
  public:
    explicit Host(World& world) : world_(world) {}
    Index getSize() override { return {kRows, kColumns, 1, 1}; }
    void setClient(IClient* client) override { world_.client = client; }
    void setHint(HintType, OpenEndedRange<4, int> const&, float) override {}
    void getBuffer(Index position, AdtEnums::Access access, BufferHandle& handle) override {
        world_.lend(position[0], access, handle);
    }
    std::unique_ptr<IBufferAccessor> createClone() const override { return nullptr; }
    void dispose(bool) override {}

  private:
    World& world_;
};

class Volume : public Host {
  public:
    explicit Volume(World& world) : Host(world), world_(world) {}
    Index getSize() override { return {1, kRows, kColumns, 1}; }
    void getBuffer(Index position, AdtEnums::Access access, BufferHandle& handle) override {
        world_.lendInVolume(position[1], position[2], access, handle);
    }

  private:
    World& world_;
};

template <int count, class Act>
std::function<void()> times(Act act) {
    return [act] {
        for (int round = 0; round < count; ++round) {
            act();
        }
    };
}

void readOne(World& world, Typed2dRoView<float> const& view) {
    int const row = world.random(kRows);
    int const column = world.random(kColumns);
    int const begin = world.now();
    world.expectSample(row, column, begin, view.get(row, column));
}

void readRow(World& world, Typed2dRoView<float> const& view) {
    int const row = world.random(kRows);
    int begin = world.now();
    auto at = view.samples({row, 0}, {1, kColumns}).begin();
    for (; at != std::default_sentinel; ++at, begin = world.now()) {
        world.expectSample(row, at.index()[1], begin, *at);
    }
}

void fillAHandle(World& world) {
    BufferHandle handle;
    world.run({
        times<4>([&] {
            auto const brick = world.brick(world.random(kRows));
            auto const notices = handle.notices();
            handle.setOwner(brick.get());
            handle.update(brick->samples, brick->info(), AdtEnums::Read);
            BufferHandle const copy(handle);
            world.expect(
                !handle.contains(-1) && !handle.contains(kRows) && !copy.contains(kRows),
                "half of a change let an index outside the block in");
            if (!handle.standsSince(notices)) {
                handle.reset(/*releaseOwner=*/true);
            }
        }),
        times<4>([&] { handle.invalidate(/*emptyRange=*/world.random(2) == 0); }),
        times<4>([&] {
            auto const brick = world.brick(world.random(kRows));
            handle.tryThreadSafeReset(brick->samples, brick);
        }),
    });
}

void fetchWhileInvalidated(World& world) {
    BufferHandle handle;
    world.run({
        times<4>([&] {
            int const row = world.random(kRows);
            auto const notices = handle.notices();
            world.lend(row, AdtEnums::Read, handle);
            auto const info = handle.infoSnapshot();
            bool const whole = info == world.brick(row)->info();
            bool const stands = handle.standsSince(notices);
            world.expect(whole || !stands, "half of an invalidation is in a loan that stands");
            stands ? void() : handle.reset(/*releaseOwner=*/true);
        }),
        times<4>([&] { handle.invalidate(/*emptyRange=*/true); }),
    });
}

void readThrough(World& world, std::unique_ptr<IBufferAccessor> chain) {
    Typed2dRoView<float> const view(std::move(chain));
    auto const disturb = [&] { world.disturb(3); };
    world.run({
        times<5>([&] { world.random(3) == 0 ? readRow(world, view) : readOne(world, view); }),
        times<2>(disturb),
        times<2>(disturb),
    });
    readRow(world, view);
}

void readAView(World& world) {
    readThrough(world, std::make_unique<Host>(world));
}

void readAViewOnACache(World& world) {
    readThrough(world, Filters::CacheFilter::Apply(std::make_unique<Host>(world), 2 * kColumns, -1, -1));
}

void writeThroughAView(World& world) {
    Typed2dRwView<float> view(std::make_unique<Host>(world));
    float expected[kRows][kColumns];
    for (int row = 0; row < kRows; ++row) {
        std::copy_n(world.brick(row)->samples, kColumns, expected[row]);
    }
    world.run({
        times<5>([&] {
            int const row = world.random(kRows);
            int const column = world.random(kColumns);
            expected[row][column] += 1000;
            view.set(row, column, view.get(row, column) + 1000);
            world.expect(view.get(row, column) == expected[row][column], "read another sample than was written");
        }),
        times<4>([&] { world.invalidate(world.random(kRows)); }),
        times<4>([&] { world.prepare(world.random(kRows)); }),
    });
    for (int row = 0; row < kRows; ++row) {
        bool const same = std::equal(expected[row], expected[row] + kColumns, world.brick(row)->samples);
        world.expect(same, "lost what was written");
    }
}

// Blocks that are taken back at any moment, of owners with or without a lock, which no reader holds around its calls. A
// sample whose writing met a taking back may have been written or not.
class TakenBack {
  public:
    explicit TakenBack(World& world) : world_(world), view_(std::make_unique<Volume>(world)) {
        for (int row = 0; row < kRows; ++row) {
            std::copy_n(world.brick(row)->samples, kColumns, expected_[row]);
        }
    }

    void readTrace(int row, int column) const {
        float trace[kColumns];
        view_.prototypeGetKTrace(0, row, column, trace, kColumns - column);
        for (int at = column; at < kColumns; ++at) {
            expectSample(row, at, trace[at - column]);
        }
    }
    void write(int row, int column) {
        int const before = world_.takeBacks[row];
        expected_[row][column] += 1000;
        view_.set(0, row, column, expected_[row][column]);
        isKnown_[row][column] = before % 2 == 0 && before == world_.takeBacks[row];
        expectSample(row, column, view_.get(0, row, column));
    }

  private:
    void expectSample(int row, int column, float sample) const {
        bool const isRight = sample == expected_[row][column] || !isKnown_[row][column];
        world_.expect(isRight, "another sample than was written");
    }

    World& world_;
    Typed3dRwView<float> view_;
    float expected_[kRows][kColumns];
    bool isKnown_[kRows][kColumns] = {{true, true, true}, {true, true, true}};
};

void useWhatIsTakenBack(World& world) {
    TakenBack user(world);
    world.run({
        times<6>([&] {
            int const row = world.random(kRows);
            int const column = world.random(kColumns);
            try {
                world.random(2) == 0 ? user.readTrace(row, column) : user.write(row, column);
            } catch (ViewBoundsException const&) {
                world.expect(false, "a sample of the view was told to lie outside");
            }
        }),
        times<3>([&] { world.takeBackAtOnce(world.random(kRows)); }),
        times<3>([&] { world.prepare(world.random(kRows)); }),
    });
}

// Owners whose lock the reader holds as well, below a proxy whose target is exchanged under the same lock.
void readUnderTheLock(World& world) {
    using Filters::ProxyFilter;
    auto const controller = boost::make_shared<ProxyFilter::ProxyTargetController>();
    Typed2dRoView<float> const view(ProxyFilter::MakeProxy(std::make_unique<Host>(world), controller));
    auto const disturb = [&] {
        int const row = world.random(kRows);
        if (int const what = world.random(4); what == 0) {
            std::lock_guard const guard(world.readLock);
            controller->setTarget(std::make_unique<Host>(world));
        } else {
            what == 1 ? world.change(row) : world.takeBack(row);
        }
    };
    world.run({
        times<5>([&] {
            std::lock_guard const guard(world.readLock);
            readOne(world, view);
        }),
        times<4>(disturb),
    });
    readRow(world, view);
}

// The client of a cache that two threads read through, each with a handle of its own.
class Readers : public IBufferAccessor::IClient {
  public:
    explicit Readers(IBufferAccessor& cache) : cache_(cache) {}

    void read(World& world, BufferHandle& handle) {
        int const row = world.random(kRows);
        int const begin = world.now();
        BufferHandle::Loan loan;
        std::uint64_t notices = 0;
        do {
            handle.reset(/*releaseOwner=*/true);
            notices = handle.notices();
            cache_.getBuffer({row, 0, 0, 0}, AdtEnums::Read, handle);
            loan = handle.loan();
        } while (!handle.standsSince(notices));
        world.expectSample(row, 1, begin, static_cast<float const*>(loan.buffer)[1]);
    }

    void accessorUpdated() override {}
    void bufferInvalidated(BufferHandle::Owner const* owner) override {
        for (BufferHandle& handle : handles) {
            owner == handle.owner() ? handle.invalidate(/*emptyRange=*/true) : void();
        }
    }
    bool prepareBufferRelease(void const* buffer, int&) override {
        for (BufferHandle& handle : handles) {
            buffer == handle.buffer() ? handle.invalidate(/*emptyRange=*/true) : void();
        }
        return false;
    }
    void releaseBuffer(void const*, boost::intrusive_ptr<BufferHandle::Owner>) override {}
    std::unique_ptr<IBufferAccessor> releaseAccessor() override { return nullptr; }

    BufferHandle handles[2];

  private:
    IBufferAccessor& cache_;
};

void readTwiceThroughACache(World& world) {
    auto const cache = Filters::CacheFilter::Apply(std::make_unique<Host>(world), kColumns, -1, -1);
    Readers readers(*cache);
    cache->setClient(&readers);
    world.run({
        times<4>([&] { readers.read(world, readers.handles[0]); }),
        times<4>([&] { readers.read(world, readers.handles[1]); }),
        times<3>([&] { world.disturb(4); }),
    });
}

struct Scenario {
    char const* name;
    void (*run)(World&);
    bool locksOwners = false;
    Planted fault = Planted::kNothing;  // one that is found here
};
constexpr Scenario kScenarios[] = {
    {"a handle that is filled, copied and taken back", fillAHandle, false, Planted::kUnheldSlot},
    {"a handle of owners that lock", fillAHandle, /*locksOwners=*/true},
    {"a handle that is filled and invalidated", fetchWhileInvalidated, false, Planted::kMarkAlone},
    {"a view that is read", readAView, false, Planted::kPlainQuestion},
    {"a view on a cache", readAViewOnACache, false, Planted::kLateBlock},
    {"a view that is written", writeThroughAView},
    {"a view whose blocks are taken back", useWhatIsTakenBack, false, Planted::kUncountedTakeBack},
    {"a view whose blocks are taken back under a lock", useWhatIsTakenBack, /*locksOwners=*/true},
    {"a view under the lock of its owners", readUnderTheLock, /*locksOwners=*/true},
    {"a cache for two threads", readTwiceThroughACache},
};

// What went wrong first under the seeds from `first` on, and under which of them; "" if nothing did.
std::string problemOf(Scenario const& scenario, std::uint64_t first, std::uint64_t count) {
    std::int64_t steps = 0;
    for (std::uint64_t seed = first; seed < first + count; ++seed) {
        World world(seed, scenario.locksOwners);
        scenario.run(world);
        world.end();
        steps += world.steps();
        if (!world.problem.empty()) {
            return world.problem + ", DRAVIK_SCHEDULE_SEED=" + std::to_string(seed);
        }
    }
    std::cout << "[ schedule ] " << scenario.name << ": " << steps << " steps" << std::endl;
    return "";
}

TEST(Schedules, HoldWhateverComesWhen) {
    char const* const only = std::getenv("DRAVIK_SCHEDULE_SEED");
    std::uint64_t const first = only == nullptr ? 0 : std::strtoull(only, nullptr, 10);
    for (Scenario const& scenario : kScenarios) {
        ASSERT_EQ(problemOf(scenario, first, only == nullptr ? 20000 : 1), "") << scenario.name;
    }
}

TEST(Schedules, FindEachPlantedFault) {
    for (Scenario const& scenario : kScenarios) {
        Testing::planted = scenario.fault;
        if (scenario.fault != Planted::kNothing) {
            auto const problem = problemOf(scenario, 0, 200000);  // the rarest is met once in some 30 000
            EXPECT_NE(problem, "") << scenario.name;
            std::cout << "[ planted  ] " << scenario.name << ": " << problem << "\n";
        }
    }
    Testing::planted = Planted::kNothing;
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
