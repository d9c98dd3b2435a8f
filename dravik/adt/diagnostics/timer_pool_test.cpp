#include "dravik/adt/diagnostics/timer_pool.h"

#include "dravik/adt/testing/child_output.h"
#include "dravik/adt/testing/manual_counter.h"

#include <gtest/gtest.h>

#include <string>

namespace Quorvel::Dravik::Adt::Logging {
namespace {

using Testing::ManualCounter;

constexpr std::int64_t kMilliseconds = 1000;  // ticks per second

TEST(TimerPool, KeepsOneIdleTimerPerFullName) {
    TimerPool pool(true, /*verbose=*/0);
    std::string const longName(300, 'n');
    Timer* const first = pool.getTimerByName((longName + "1").c_str());
    EXPECT_FALSE(first->getRunning());
    EXPECT_EQ(first->getVerbose(), 0);
    EXPECT_EQ(pool.getTimerByName((longName + "1").c_str()), first);
    EXPECT_NE(pool.getTimerByName((longName + "2").c_str()), first) << "only the timer's own copy of the name is cut";
    EXPECT_EQ(pool.getTimerByName(nullptr), pool.getTimerByName(""));
    pool.getTimerByName("b");
    pool.getTimerByName("B");

    std::string names;
    for (Timer const* timer : pool.getAllTimers()) {
        names += std::string(timer->getName()).substr(0, 1) + "|";
    }
    EXPECT_EQ(names, "|B|b|n|n|");
}

TEST(TimerPool, AddsResetsAndCopiesUnderEveryName) {
    ManualCounter counter(kMilliseconds);
    TimerPool pool(true, /*verbose=*/0);
    Timer* const timer = pool.getTimerByName("a");
    pool.addToTimer(timer, 2, 3.0, 1.0);
    pool.addToTimer(nullptr, 2, 3.0, 1.0);
    pool.setVerbose(3);
    auto const copies = pool.copyAllTimers(/*reset=*/true);
    ASSERT_EQ(copies.size(), 1u);
    EXPECT_EQ(copies[0].getTotal(), 3.0);
    EXPECT_EQ(copies[0].getLast(), 1.0);
    EXPECT_EQ(copies[0].getCount(), 2);
    EXPECT_EQ(copies[0].getVerbose(), 3);
    EXPECT_EQ(timer->getCount(), 0);
    EXPECT_EQ(pool.getTimerByName("later")->getVerbose(), 3);
    timer->start();
    pool.resetAll();
    EXPECT_FALSE(timer->getRunning());
    pool.setVerbose(0);
}

TEST(TimerPool, DisabledOneHandsOutOneDeadTimer) {
    TimerPool pool(false, 4);
    Timer* const timer = pool.getTimerByName("a");
    EXPECT_EQ(pool.getTimerByName("b"), timer);
    pool.addToTimer(timer, 1, 1.0, 1.0);
    pool.setVerbose(4);
    pool.resetAll();
    EXPECT_FALSE(timer->getEnabled());
    EXPECT_EQ(timer->getVerbose(), 0);
    EXPECT_TRUE(pool.getAllTimers().empty() && pool.copyAllTimers(true).empty());
    EXPECT_EQ(Testing::outputOfChild([] { TimerPool(false, 4).printAll(); }), "");
}

TEST(TimerPool, ReportListsWhatMeasuredOrRuns) {
    auto const report = Testing::outputOfChild([] {
        ManualCounter counter(kMilliseconds);
        TimerPool pool;
        pool.addToTimer(pool.getTimerByName("read"), 3, 0.5, 0.1);
        pool.addToTimer(pool.getTimerByName("quiet"), 3, 0.5, 0.1);
        pool.getTimerByName("quiet")->setVerbose(0);
        pool.getTimerByName("idle");
        pool.getTimerByName("running")->start();
        pool.addToTimer(pool.getTimerByName(std::string(50, 'f').c_str()), 1, 20, 20);
        pool.addToTimer(pool.getTimerByName(std::string(51, 'g').c_str()), 1, 20, 20);
    });
    std::string const expected = "\nTiming results:\n  " + std::string(50, 'f') + "     20.0 s \n  " +
                                 std::string(51, 'g') + "\n" + std::string(50, ' ') + "   20.0 s \n  read" +
                                 std::string(46, ' ') + "    500.0 ms in 3 calls\n  running" + std::string(43, ' ') +
                                 "   No calls logged STILL RUNNING (forgot to Stop?)\nEnd of report\n\n";
    EXPECT_EQ(report, expected);
    EXPECT_EQ(
        Testing::outputOfChild([] {
            TimerPool pool;
            pool.getTimerByName("idle");
            pool.printAll();
        }),
        "")
        << "no timer to list, no report";
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Logging
