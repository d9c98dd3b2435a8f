// SPDX-License-Identifier: Apache-2.0
#pragma once

// Makes one piece of code fail at its first, second, third … opportunity until it runs through, and looks after each
// failure whether anything leaked or broke. Needs the target dravik_adt_failing_allocator.

#include "dravik/adt/testing/failing_allocator.h"
#include "dravik/adt/testing/failing_calls.h"
#include "dravik/adt/testing/failure_plan.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <exception>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

namespace Quorvel::Dravik::Adt::Testing {

namespace Detail {

/// One run in which event `n` fails; whether it came to that.
template <class Failure, class MakeScene, class Act, class Check>
bool failAt(int n, Failing failing, MakeScene& makeScene, Act& act, Check& check) {
    testing::ScopedTrace const trace(
        __FILE__, __LINE__,
        testing::Message() << Failure::kName << " " << n << " fails"
                           << (failing == Failing::kOnce ? " once" : " from there on"));
    auto const before = liveMemory();
    {
        auto scene = makeScene();
        bool completed = false;
        try {
            ArmedFailure const armed(Failure::plan(), n, failing);
            act(scene);
            completed = true;
        } catch (std::exception const& error) {
            EXPECT_TRUE(Failure::explains(error)) << "unexpected: " << error.what();
        }
        EXPECT_TRUE(completed || Failure::plan().happened());
        check(scene, completed);
    }
    EXPECT_TRUE(testing::Test::HasFailure() || liveMemory() == before)
        << "a leak: " << liveMemory().blockCount - before.blockCount << " blocks";
    return Failure::plan().happened();
}

}  // namespace Detail

/// Runs `act(scene)` on a fresh `makeScene()` again and again: opportunity 0, 1, 2 … of `Failure` (AllocationFailure or
/// CallFailure) fails, once or from there on, until no failure happens any more. After each run `check(scene,
/// completed)` states what must hold, nothing failing meanwhile; the scene then has to give all its memory back. Ends
/// with a line that tells how many opportunities `subject` survived, and returns their number.
template <class Failure, class MakeScene, class Act, class Check>
int failEverywhere(char const* subject, MakeScene makeScene, Act act, Check check) {
    constexpr int kMostOpportunities = 100000;
    int opportunities = 0;
    {
        auto scene = makeScene();  // so that what the library makes on first use exists and is no leak below
        act(scene);
    }
    for (Failing const failing : {Failing::kOnce, Failing::kFromThereOn}) {
        int n = 0;
        while (Detail::failAt<Failure>(n, failing, makeScene, act, check)) {
            ++n;
            if (testing::Test::HasFailure() || n == kMostOpportunities) {
                ADD_FAILURE() << subject << ": given up after " << n << " failures";
                return n;
            }
        }
        opportunities = n;
    }
    if (opportunities > 0) {
        std::cout << "[ failures ] " << subject << ", " << Failure::kName << ": survives " << opportunities << "\n";
    }
    return opportunities;
}

/// What can fail in a scenario. Checked, lest a scenario lose what it was made for.
enum class Fails { kNothing = 0, kAllocations = 1, kCalls = 2, kBoth = 3 };

/// One row of a table of scenarios. `act` can be done again on the same scene, whatever became of the time before.
template <class Scene>
struct FailureScenario {
    char const* name;
    Fails fails;
    void (*act)(Scene&);
    void (*check)(Scene&, bool completed) = [](Scene&, bool) {};
    void (*prepare)(Scene&) = [](Scene&) {};
};

/// Takes each scenario through failEverywhere, for allocations and for calls out. After each failure the act is done
/// once more, and then must complete: no lock was left held, and whatever the failure left can be used.
template <class Scene, std::size_t count>
void failInEach(FailureScenario<Scene> const (&scenarios)[count]) {
    for (FailureScenario<Scene> const& scenario : scenarios) {
        if (testing::Test::HasFailure()) {
            return;
        }
        auto const makeScene = [&] {
            auto scene = std::make_unique<Scene>();
            scenario.prepare(*scene);
            return scene;
        };
        auto const act = [&](auto& scene) { scenario.act(*scene); };
        auto const check = [&](auto& scene, bool completed) {
            scenario.check(*scene, completed);
            scenario.act(*scene);
            scenario.check(*scene, /*completed=*/true);
        };
        int const allocations = failEverywhere<AllocationFailure>(scenario.name, makeScene, act, check);
        int const calls = failEverywhere<CallFailure>(scenario.name, makeScene, act, check);
        auto const fails = static_cast<Fails>((allocations > 0 ? 1 : 0) + (calls > 0 ? 2 : 0));
        ASSERT_TRUE(testing::Test::HasFailure() || fails == scenario.fails)
            << scenario.name << " has " << allocations << " allocations and " << calls << " calls out";
    }
}

/// The values, one a line.
std::string shownAs(auto const&... values) {
    std::ostringstream out;
    ((out << values << '\n'), ...);
    return out.str();
}

/// The check of an act that is done whole or not at all: after a failure a scene's shown() is that of a new one.
template <class Scene>
void isUnchanged(Scene& scene, bool completed) {
    if (!completed) {
        EXPECT_EQ(scene.shown(), Scene().shown());
    }
}

/// Lets `make` fail at allocation 0, 1, 2 … until it succeeds, for what stays for good once it is made: a failure must
/// leave nothing behind.
template <class Make>
void failUntilMade(char const* subject, Make make) {
    bool made = false;
    for (int n = 0; !made && !testing::Test::HasFailure(); ++n) {
        auto const before = liveMemory();
        try {
            ArmedFailure const armed(AllocationFailure::plan(), n, Failing::kOnce);
            make();
            made = true;
        } catch (std::bad_alloc const&) {
            EXPECT_TRUE(liveMemory() == before) << subject << " leaks when allocation " << n << " fails";
        }
        EXPECT_TRUE(n > 0 || !made) << subject << " allocates nothing";
    }
}

/// Does `act`, which throws an Error.
template <class Error, class Act>
void refused(Act act) {
    try {
        act();
    } catch (Error const&) {
        return;
    }
    ADD_FAILURE() << "not refused";
}

}  // namespace Quorvel::Dravik::Adt::Testing
