// SPDX-License-Identifier: Apache-2.0
// The pool under threads that read, write, flush, evict and prefetch, in any order that a seed decides.

#include "dravik/adt/bulkview/regions/region_transfer.h"
#include "dravik/adt/bulkview/stores/detail/brick_table.h"

#include "dravik/adt/testing/scheduled_words.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iostream>
#include <string>
#include <type_traits>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView {

// Nothing here moves regions.
void RegionTransfer::run(IBufferAccessor&, RegionRequest const&) {}

namespace {

using Testing::Planted;
using Testing::Schedule;

constexpr int kBricks = 3;

// Bricks of two samples. Others run between the two, and each must find them as one thread left them.
class Store final : public IBrickStore {
  public:
    FixedVector<4, int> size() const override { return {2 * kBricks, 1, 1, 1}; }
    AccessTraits traits() const override {
        AccessTraits traits;
        traits.naturalBlock = {2, 1, 1, 1};
        traits.sampleType = &typeid(int);
        traits.bitSize = 32;
        traits.writable = true;
        traits.concurrency = AccessTraits::Concurrency::PerClone;
        return traits;
    }
    void read(OpenEndedRange<4, int> const& box, void* samples) const override {
        ++reads;
        for (int at = box.min[0]; at < box.max[0]; ++at) {
            Schedule::step();
            static_cast<int*>(samples)[at - box.min[0]] = disk[static_cast<std::size_t>(at)];
        }
    }
    void write(OpenEndedRange<4, int> const& box, void const* samples) override {
        for (int at = box.min[0]; at < box.max[0]; ++at) {
            Schedule::step();
            disk[static_cast<std::size_t>(at)] = static_cast<int const*>(samples)[at - box.min[0]];
        }
    }

    std::array<int, 2 * kBricks> disk{};
    mutable int reads = 0;
};

// One fiber writes ever larger numbers; the others know what a brick must have reached, and cannot have passed.
class World : public Schedule {
  public:
    World(std::uint64_t seed, int bricksInPool)
        : Schedule(seed),
          store_(std::make_shared<Store>()),
          table_(std::make_shared<Detail::BrickTable>(8 * bricksInPool, nullptr)),
          pooled_(table_->use(store_)) {}
    ~World() { table_->close(); }

    // Through the pool, or past it as regions do.
    void write() {
        auto const number = static_cast<std::size_t>(random(kBricks));
        int const value = ++begun_[number];
        int const samples[2] = {value, value};
        useBrick(number, AdtEnums::ReadWrite, samples, [&](int* kept) {
            for (int at = 0; at < 2; ++at) {
                step();
                kept[at] = samples[at];
            }
        });
        done_[number] = value;
    }
    void read() {
        auto const number = static_cast<std::size_t>(random(kBricks));
        int const least = done_[number];
        int samples[2] = {-1, -1};
        useBrick(number, AdtEnums::Read, samples, [&](int const* kept) {
            step();
            std::copy_n(kept, 2, samples);
        });
        for (int const sample : samples) {
            expect(sample >= least, "read a sample that was overwritten before");
            expect(sample <= begun_[number], "read a sample that nobody wrote");
        }
    }
    void tidyUp() {
        int const what = random(3);
        what == 0 ? table_->flush(nullptr) : what == 1 ? table_->clear() : table_->flush(pooled_);
        expect(table_->counters().bytesKept >= 0, "lost count of the bytes");
    }
    void prefetch() { table_->getAhead(pooled_, boxOf(static_cast<std::size_t>(random(kBricks)))); }
    void end() {
        table_->flush(nullptr);
        for (std::size_t at = 0; at < store_->disk.size(); ++at) {
            expect(store_->disk[at] == done_[at / 2], "lost what was written");
        }
    }
    void expect(bool holds, char const* otherwise) { problem = holds || !problem.empty() ? problem : otherwise; }
    void run(std::vector<std::function<void()>> bodies) { expect(Schedule::run(std::move(bodies)), "waited for ever"); }

    std::string problem;

  private:
    static OpenEndedRange<4, int> boxOf(std::size_t number) {
        int const first = 2 * static_cast<int>(number);
        return {{first, 0, 0, 0}, {first + 2, 1, 1, 1}};
    }

    // `samples` pass between the store and its user where the brick is not in the pool and the user may go past it.
    template <class Samples, class Use>
    void useBrick(std::size_t number, AdtEnums::Access access, Samples& samples, Use use) {
        auto const box = boxOf(number);
        for (bool const mayPassBy = random(2) == 0;;) {
            auto brick = table_->find({pooled_.get(), box.min}, access);
            if (brick == nullptr && mayPassBy) {
                Detail::BrickTable::Claims claims(*table_);
                if (!Testing::isPlanted(Planted::kUnclaimedBrick) && !claims.add(pooled_, box)) {
                    continue;
                }
                if constexpr (std::is_const_v<std::remove_reference_t<decltype(samples[0])>>) {
                    pooled_->write(box, samples);
                } else {
                    pooled_->read(box, samples);
                }
                return;
            }
            brick = brick != nullptr ? brick : table_->get(pooled_, box, access);
            use(reinterpret_cast<int*>(brick->samples()));
            return;
        }
    }

    std::shared_ptr<Store> store_;
    std::shared_ptr<Detail::BrickTable> table_;
    Detail::BrickTable::StorePtr pooled_;
    std::array<int, kBricks> begun_{};
    std::array<int, kBricks> done_{};
};

using Act = void (World::*)();

std::function<void()> four(World& world, Act act) {
    return [&world, act] {
        for (int round = 0; round < 4; ++round) {
            (world.*act)();
        }
    };
}

struct Scenario {
    char const* name;
    int bricksInPool;
    std::vector<Act> acts;
    Planted fault = Planted::kNothing;  // one that is found here
};

std::vector<Scenario> const& scenarios() {
    static std::vector<Scenario> const all{
        {"readers of the same bricks", 12, {&World::read, &World::read, &World::read}},
        {"eviction while lent", 4, {&World::read, &World::write, &World::read}},
        {"write-back while read and written",
         12,
         {&World::write, &World::read, &World::tidyUp},
         Planted::kForgottenWriter},
        {"prefetch beside writing", 12, {&World::write, &World::prefetch, &World::read}, Planted::kUnclaimedBrick},
        {"all at once in a pool for nothing", 0, {&World::write, &World::read, &World::tidyUp, &World::prefetch}},
        {"all at once", 5, {&World::write, &World::read, &World::tidyUp, &World::prefetch}},
    };
    return all;
}

// What went wrong first under `count` seeds from `first` on; "" if nothing did.
std::string problemOf(Scenario const& scenario, std::uint64_t first, std::uint64_t count) {
    std::int64_t steps = 0;
    for (std::uint64_t seed = first; seed < first + count; ++seed) {
        World world(seed, scenario.bricksInPool);
        std::vector<std::function<void()>> bodies;
        for (Act const act : scenario.acts) {
            bodies.push_back(four(world, act));
        }
        world.run(std::move(bodies));
        world.end();
        steps += world.steps();
        if (!world.problem.empty()) {
            return world.problem + ", DRAVIK_SCHEDULE_SEED=" + std::to_string(seed);
        }
    }
    std::cout << "[ schedule ] " << scenario.name << ": " << steps << " steps" << std::endl;
    return "";
}

TEST(PoolSchedules, HoldWhateverComesWhen) {
    char const* const only = std::getenv("DRAVIK_SCHEDULE_SEED");
    std::uint64_t const first = only == nullptr ? 0 : std::strtoull(only, nullptr, 10);
    for (Scenario const& scenario : scenarios()) {
        EXPECT_EQ(problemOf(scenario, first, only == nullptr ? 4000 : 1), "") << scenario.name;
    }
}

TEST(PoolSchedules, FindEachPlantedFault) {
    for (Scenario const& scenario : scenarios()) {
        Testing::planted = scenario.fault;
        if (scenario.fault != Planted::kNothing) {
            auto const problem = problemOf(scenario, 0, 4000);
            EXPECT_NE(problem, "") << scenario.name;
            std::cout << "[ planted  ] " << scenario.name << ": " << problem << "\n";
        }
    }
    Testing::planted = Planted::kNothing;
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
