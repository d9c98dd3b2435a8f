// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/logging/named_timer.h"
#include "dravik/adt/statistics/histogram.h"

#include "dravik/adt/testing/failure_loop.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace Quorvel::Dravik::Adt::Logging {
namespace {

using Testing::Fails;

struct Scene {
    Scene() {
        pool.setVerbose(2);
        for (char const* each : {"one", "two"}) {
            pool.getTimerByName(each)->add(/*calls=*/2, /*seconds=*/0.5, /*lastSeconds=*/0.25);
        }
    }

    TimerPool pool;
    Histogram coarse{Histogram::fixed, 0, 1, 10};
    Histogram fine{Histogram::flexible, 1000};
    std::string const name = "a timer whose name does not fit into a string without memory";
};

int totalCount(TimerPool& pool) {
    int count = 0;
    for (Timer const* timer : pool.getAllTimers()) {
        count += timer->getCount();
    }
    return count;
}

constexpr Testing::FailureScenario<Scene> kScenarios[] = {
    {"finding and making timers", Fails::kAllocations,
     [](Scene& s) {
         Timer* const timer = s.pool.getTimerByName(s.name.c_str());
         EXPECT_EQ(s.pool.getTimerByName(s.name.c_str()), timer);
         EXPECT_FALSE(timer->getRunning());
     },
     [](Scene& s, bool completed) { EXPECT_EQ(s.pool.getAllTimers().size(), completed ? 3u : 2u); }},
    {"measuring", Fails::kAllocations,
     [](Scene& s) {
         NamedTimer timer(s.name.c_str(), &s.pool);
         NamedTimer const copy = timer;
         timer.lapEnd();
         timer.start();
         timer.stop("%d measured\n", 2);
     },
     [](Scene& s, bool completed) { EXPECT_EQ(totalCount(s.pool) > 4, completed); }},
    {"copying and forgetting results", Fails::kAllocations,
     [](Scene& s) { EXPECT_EQ(s.pool.copyAllTimers(/*reset=*/true).size(), 2u); },
     [](Scene& s, bool completed) { EXPECT_EQ(totalCount(s.pool), completed ? 0 : 4); }},
    {"reporting at the end", Fails::kAllocations,
     [](Scene& s) { TimerPool().getTimerByName(s.name.c_str())->start(); }},
    {"assigning a histogram", Fails::kAllocations, [](Scene& s) { s.coarse = s.fine; },
     [](Scene& s, bool completed) { EXPECT_EQ(s.coarse, completed ? s.fine : Histogram(Histogram::fixed, 0, 1, 10)); }},
};

TEST(Diagnostics, SurviveEveryFailure) {
    testing::internal::CaptureStdout();
    Testing::failInEach(kScenarios);
    std::string const printed = testing::internal::GetCapturedStdout();
    EXPECT_NE(printed.find("Timing results"), std::string::npos);
    EXPECT_FALSE(HasFailure()) << printed;
}

TEST(Timer, MeasuresByTheMonotonicClock) {
    using Clock = std::chrono::steady_clock;
    auto const seconds = [](Clock::time_point from, Clock::time_point to) {
        return std::chrono::duration<double>(to - from).count();
    };
    Timer timer;
    auto const before = Clock::now();
    timer.start();
    auto const begin = Clock::now();
    while (seconds(begin, Clock::now()) < 0.01) {
    }
    auto const end = Clock::now();
    timer.stop();
    double const total = timer.getTotal() + timer.getOverhead();
    EXPECT_LE(seconds(begin, end), total + 1e-6);
    EXPECT_LE(total, seconds(before, Clock::now()) + 1e-6);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Logging
