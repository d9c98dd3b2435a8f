#pragma once

// Makes one piece of code fail at its first, second, third … opportunity until it runs through, and looks after each
// failure whether anything leaked or broke. Needs the target dravik_adt_failing_allocator.

#include "dravik/adt/testing/failing_allocator.h"
#include "dravik/adt/testing/failure_plan.h"

#include <gtest/gtest.h>

#include <exception>
#include <iostream>

namespace Quorvel::Dravik::Adt::Testing {

namespace Detail {

/// One run in which event `n` fails; whether it came to that.
template <class Failure, class MakeScene, class Act, class Check>
bool failAt(int n, Failing failing, MakeScene& makeScene, Act& act, Check& check) {
    testing::ScopedTrace const trace(
        __FILE__, __LINE__, testing::Message() << Failure::kName << " " << n << " fails " << nameOf(failing));
    LiveMemory const before = liveMemory();
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
    EXPECT_EQ(liveMemory(), before) << "a leak";
    return Failure::plan().happened();
}

}  // namespace Detail

/// Runs `act(scene)` on a fresh `makeScene()` again and again: opportunity 0, 1, 2 … of `Failure` (AllocationFailure or
/// CallFailure) fails, once or from there on, until no failure happens any more. After each run `check(scene,
/// completed)` states what must hold, nothing failing meanwhile; the scene then has to give all its memory back. Ends
/// with a line that says at which opportunity `subject` ran through.
template <class Failure, class MakeScene, class Act, class Check>
void failEverywhere(char const* subject, MakeScene makeScene, Act act, Check check) {
    constexpr int kMostOpportunities = 100000;
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
                return;
            }
        }
        std::cout << "[ failures ] " << subject << ", " << Failure::kName << " failing " << nameOf(failing)
                  << ": runs through from number " << n << " on\n";
    }
}

}  // namespace Quorvel::Dravik::Adt::Testing
