// SPDX-License-Identifier: Apache-2.0
// Timers, their pool and named timers, by a clock that stands still.

#include "dravik/adt/logging/timer.h"

#include "dravik/adt/logging/named_timer.h"
#include "dravik/adt/logging/timer_pool.h"
#include "dravik/adt/platform/clock.h"
#include "dravik/adt/testing/child_output.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cmath>
#include <limits>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace Quorvel::Dravik::Adt {
namespace {

// A clock that stands still but for `advance` and for the cost of each look at it. One at a time; threads: any.
class ManualCounter {
  public:
    explicit ManualCounter(std::int64_t ticksPerSecond, std::int64_t ticksPerLook = 0) {
        ticks_ = 0;
        ticksPerSecond_ = ticksPerSecond;
        ticksPerLook_ = ticksPerLook;
    }

    static void advance(std::int64_t ticks) { ticks_ += ticks; }
    static std::int64_t now() noexcept { return ticks_.fetch_add(ticksPerLook_); }
    static std::int64_t ticksPerSecond() noexcept { return ticksPerSecond_; }

  private:
    inline static std::atomic<std::int64_t> ticks_, ticksPerSecond_, ticksPerLook_;
};

}  // namespace

// In place of the clock of the system.
std::int64_t Platform::monotonicTicks() noexcept {
    return ManualCounter::now();
}
std::int64_t Platform::monotonicTicksPerSecond() noexcept {
    return ManualCounter::ticksPerSecond();
}

namespace Logging {
namespace {

static_assert(std::is_trivially_copyable_v<Timer>);
static_assert(!std::is_constructible_v<Timer, char const*> && !std::is_constructible_v<Timer, char const (&)[5]>);
static_assert(!std::is_convertible_v<bool, Timer>);

constexpr std::int64_t kMicroseconds = 1000000;  // ticks per second
constexpr std::int64_t kMilliseconds = 1000;

std::string printed(Timer const& timer) {
    std::ostringstream out;
    out << timer;
    return out.str();
}

TEST(Timer, RunsLessItsOwnCost) {
    ManualCounter counter(kMicroseconds, /*ticksPerLook=*/11);
    Timer timer(true, "work");
    EXPECT_TRUE(timer.getRunning());
    EXPECT_EQ(timer.getCount() + timer.getTotal(), 0);
    EXPECT_EQ(timer.getOverhead(), 9 / 1e6) << "11 * 9 / 10 in whole ticks";
    ManualCounter::advance(100);
    timer.stop();
    EXPECT_EQ(timer.getLast(), 102 / 1e6);
    timer.start();
    timer.stop();
    timer.stop();
    EXPECT_EQ(timer.getLast(), 2 / 1e6);
    EXPECT_EQ(timer.getTotal(), 104 / 1e6);
    EXPECT_EQ(timer.getCount(), 2) << "a stop without a start counts nothing";
    EXPECT_EQ(timer.getFrequency(), 1e6);
}

TEST(Timer, DisabledOneIgnoresEverything) {
    Timer timer(false, "work", 3);
    timer.start();
    timer.stop();
    timer.add(5, 1.0, 1.0);
    timer.reset();
    EXPECT_FALSE(timer.getEnabled());
    EXPECT_FALSE(timer.getRunning());
    EXPECT_EQ(timer.getTotal() + timer.getLast() + timer.getSkip() + timer.getCount() + timer.getVerbose(), 0);
    EXPECT_STREQ(timer.getName(), "");
    EXPECT_STREQ(timer.getValue(), "");
}

TEST(Timer, ValueTellsTotalCallsAndOddities) {
    struct Row {
        char const* name;
        int skip, calls;
        std::int64_t ticksPerCall;
        bool running;
        char const* value;
    };
    constexpr Row kRows[] = {
        {"LastMicrosecond", 0, 1, 9989, false, "9989.0 us"},
        {"FirstMillisecond", 0, 1, 9990, false, "  10.0 ms"},
        {"LastMillisecond", 0, 1, 9989999, false, "9990.0 ms"},
        {"FirstSecond", 0, 1, 9990000, false, "  10.0 s "},
        {"TotalOfAllCalls", 0, 4, 5000000, false, "  20.0 s  in 4 calls"},
        {"Negative", 0, 1, -3, false, "  -3.0 us"},
        {"None", 0, 0, 0, false, "No calls logged"},
        {"SomeSkipped", 2, 5, 1000, false, "3000.0 us in 3 calls (first 2 not counted)"},
        {"AllSkipped", 2, 2, 1000, false, "No calls logged (first 2 not counted)"},
        {"FewerThanSkipped", 9, 2, 1000, false, "No calls logged (first 2 not counted)"},
        {"OneBeyondSkipped", 2, 3, 1000, false, "1000.0 us (first 2 not counted)"},
        {"Running", 0, 1, 1000, true, "1000.0 us STILL RUNNING (forgot to Stop?)"},
    };
    for (Row const& row : kRows) {
        ManualCounter counter(kMicroseconds);
        Timer timer(true, "t", row.skip);
        timer.reset();
        for (int call = 0; call < row.calls; ++call) {
            timer.start();
            ManualCounter::advance(row.ticksPerCall);
            timer.stop();
        }
        if (row.running) {
            timer.start();
        }
        EXPECT_STREQ(timer.getValue(), row.value) << row.name;
        EXPECT_EQ(printed(timer), std::string("t: ") + row.value) << row.name;
    }
}

TEST(Timer, AddCountsWholeTicksTowardZero) {
    constexpr double kEndless = std::numeric_limits<double>::infinity();
    ManualCounter counter(0);
    EXPECT_EQ(Timer().getFrequency(), 1.0) << "where it is not known";
    ManualCounter tenths(10);
    Timer timer(true, "t", /*skip=*/2);
    timer.reset();
    timer.add(3, 0.19, -0.19);
    EXPECT_EQ(timer.getTotal(), 0.1);
    EXPECT_EQ(timer.getLast(), -0.1);
    EXPECT_EQ(timer.getCount(), 1) << "three calls less two to skip";
    timer.add(INT_MAX, kEndless, std::nan(""));
    EXPECT_EQ(timer.getTotal(), 0x1p63 / 10);
    EXPECT_EQ(timer.getLast(), 0.0);
    EXPECT_EQ(timer.getCount(), INT_MAX - 2) << "at its end the count stays";
    timer.add(INT_MIN, -kEndless, -kEndless);
    timer.add(INT_MIN, -kEndless, -kEndless);
    EXPECT_EQ(timer.getTotal(), -0x1p63 / 10);
    EXPECT_EQ(timer.getCount(), 0);
}

TEST(Timer, StaysAtTheEndsOfItsNumbers) {
    constexpr std::int64_t kLast = std::numeric_limits<std::int64_t>::max();
    ManualCounter fast(/*ticksPerSecond=*/1, /*ticksPerLook=*/kLast);
    EXPECT_EQ(Timer().getOverhead(), 0.9 * static_cast<double>(kLast));
    ManualCounter counter(1);
    Timer timer(true, "t", /*skip=*/INT_MIN);
    EXPECT_EQ(timer.getCount(), INT_MAX);
    ManualCounter::advance(kLast);
    timer.start();
    ManualCounter::advance(10);  // past the end, to the lowest number
    timer.stop();
    EXPECT_EQ(timer.getLast(), -static_cast<double>(kLast));
    EXPECT_EQ(timer.getTotal(), -static_cast<double>(kLast));
    timer.start();
    ManualCounter::advance(kLast);
    ManualCounter::advance(kLast - 20);
    timer.stop();
    EXPECT_EQ(timer.getLast(), static_cast<double>(kLast));
}

TEST(TimerPool, KeepsOneIdleTimerPerFullName) {
    TimerPool pool(true, /*verbose=*/0);
    std::string const longName(300, 'n');
    Timer* const first = pool.getTimerByName((longName + "1").c_str());
    EXPECT_FALSE(first->getRunning());
    EXPECT_FALSE(first->getVerbose() != 0);
    EXPECT_EQ(first->getName(), longName.substr(0, 255));
    EXPECT_EQ(pool.getTimerByName((longName + "1").c_str()), first);
    EXPECT_NE(pool.getTimerByName((longName + "2").c_str()), first) << "only the timer's own copy of the name is cut";
    EXPECT_EQ(pool.getTimerByName(nullptr), pool.getTimerByName(""));
    pool.getTimerByName("b");
    pool.getTimerByName("B");
    std::string initials;
    for (Timer const* timer : pool.getAllTimers()) {
        initials += std::string(timer->getName()).substr(0, 1) + "|";
    }
    EXPECT_EQ(initials, "|B|b|n|n|");
}

TEST(TimerPool, AddsResetsAndCopiesUnlessDisabled) {
    ManualCounter const counter(kMilliseconds);
    for (bool const enabled : {true, false}) {
        TimerPool pool(enabled, /*verbose=*/4);
        Timer* const timer = pool.getTimerByName("a");
        EXPECT_EQ(timer->getEnabled(), enabled);
        EXPECT_EQ(timer->getVerbose(), enabled ? 4 : 0);
        EXPECT_EQ(pool.getTimerByName("b") != timer, enabled) << "one dead timer for all names";
        pool.addToTimer(timer, 2, 3.0, 1.0);
        pool.addToTimer(nullptr, 2, 3.0, 1.0);
        pool.setVerbose(3);
        auto const copies = pool.copyAllTimers(/*reset=*/true);
        ASSERT_EQ(copies.size(), enabled ? 2u : 0u);
        if (enabled) {
            EXPECT_EQ(printed(copies[0]), "a: 3000.0 ms in 2 calls");
            EXPECT_EQ(copies[0].getLast(), 1.0);
            EXPECT_EQ(copies[0].getVerbose(), 3);
        }
        EXPECT_EQ(timer->getCount(), 0);
        EXPECT_EQ(pool.getTimerByName("later")->getVerbose(), enabled ? 3 : 0);
        timer->start();
        pool.resetAll();
        EXPECT_FALSE(timer->getRunning());
        EXPECT_EQ(Testing::outputOfChild([&] { pool.printAll(); }), "");
    }
}

TEST(TimerPool, ReportListsWhatMeasuredOrRuns) {
    ManualCounter const counter(kMilliseconds);
    auto const report = Testing::outputOfChild([] {
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
}

TEST(NamedTimer, LapsReachThePoolTogether) {
    ManualCounter counter(kMilliseconds);
    TimerPool pool(true, /*verbose=*/0);
    Timer* const pooled = pool.getTimerByName("work");
    pool.addToTimer(pooled, 5, 5.0, 1.0);
    pooled->start();
    std::optional<NamedTimer> timer(std::in_place, "work", &pool);
    ManualCounter::advance(100);
    timer->lapEnd();
    ManualCounter::advance(1000);
    timer->lapEnd();
    timer->start();
    ManualCounter::advance(20);
    EXPECT_EQ(pooled->getCount(), 5);
    timer->stop();
    pooled->stop();
    EXPECT_EQ(printed(*pooled), "work: 6240.0 ms in 8 calls") << "with the 1120 that the pooled one itself ran";
    timer->start();
    NamedTimer copy("other", &pool);
    copy = *timer;
    ManualCounter::advance(3);
    timer.reset();
    copy.stop();
    EXPECT_EQ(printed(*pooled), "work: 6243.0 ms in 9 calls") << "copies share one measurement";
    EXPECT_EQ(pooled->getLast(), 0.003);
    EXPECT_EQ(pool.getTimerByName("other")->getCount(), 0) << "assignment leaves the measurement it replaces";
    NamedTimer nowhere("work", nullptr);
    nowhere.start();
    nowhere.stop("%s", "nothing");
}

void measureTwoLaps() {
    ManualCounter const counter(kMilliseconds);
    NamedTimer timer("work");
    ManualCounter::advance(200);
    timer.lapEnd();
    timer.start();
    ManualCounter::advance(30);
    timer.stop("%d of %%\n", 7);
    timer.stop("not running");
}

TEST(NamedTimer, PrintsWhatTheEnvironmentAsksFor) {
    std::string const starting = "work" + std::string(46, ' ') + " is starting\n";
    std::string const lap = "work took 0.2000 seconds\n";
    std::string const text = "work took 0.0300 seconds. 7 of %\n";
    std::string const report =
        "\nTiming results:\n  work" + std::string(46, ' ') + "    230.0 ms in 2 calls\nEnd of report\n\n";
    struct Row {
        char const* name;
        std::string value;
        int number;
        std::string output;
    };
    Row const rows[] = {
        {"Empty", "", -1, ""},
        {"Negative", "-2", -2, ""},
        {"TooLong", std::string(255, '0') + "1", -1, ""},
        {"Zero", "0", 0, ""},
        {"Word", "on", 0, ""},
        {"NumberAndMore", " 1 monkey", 1, report},
        {"LongestThatFits", std::string(254, '0') + "2", 2, text + report},
        {"Three", "3", 3, lap + text + report},
        {"Huge", "99999999999999999999", INT_MAX, starting + lap + starting + text + report},
        {"Four", "4", 4, starting + lap + starting + text + report},
        {"NotSet", "", -1, ""},
    };
    for (Row const& row : rows) {
        ASSERT_EQ(setenv("DRAVIK_TIMERS", row.value.c_str(), /*overwrite=*/1), 0);
        if (&row == std::end(rows) - 1) {
            unsetenv("DRAVIK_TIMERS");
        }
        EXPECT_EQ(Timer::getNumericEnv("DRAVIK_TIMERS"), row.number) << row.name;
        EXPECT_EQ(Testing::outputOfChild(measureTwoLaps), row.output) << row.name;
    }
}

// A user's static that is made before the pool, and so goes after every static made since.
struct MeasuresAtExit {
    ~MeasuresAtExit() {
        NamedTimer timer("exit");
        ManualCounter::advance(40);
    }
};

TEST(TimerPool, ReportTellsWhatStaticsMeasuredAtExit) {
    ASSERT_EQ(setenv("DRAVIK_TIMERS", "1", /*overwrite=*/1), 0);
    auto const output = Testing::outputOfChild([] {
        static ManualCounter const counter(kMilliseconds);
        static MeasuresAtExit const atExit;
        NamedTimer("main").stop();
    });
    unsetenv("DRAVIK_TIMERS");
    EXPECT_THAT(output, testing::MatchesRegex("\nTiming results:\n  exit +40.0 ms\n  main +0.0 us\nEnd of report\n\n"));
}

TEST(NamedTimer, CountsMeasurementsOfEveryThread) {
    TimerPool pool(true, /*verbose=*/0);
    std::atomic<bool> done = false;
    std::thread watcher([&] {
        while (!done) {
            pool.copyAllTimers(/*reset=*/false);
            pool.setVerbose(0);
        }
    });
    std::vector<std::thread> workers;
    for (int worker = 0; worker < 4; ++worker) {
        workers.emplace_back([&] {
            for (int round = 0; round < 250; ++round) {
                NamedTimer const shared("shared", &pool);
                NamedTimer const own(("own " + std::to_string(round % 3)).c_str(), &pool);
            }
        });
    }
    std::for_each(workers.begin(), workers.end(), [](std::thread& worker) { worker.join(); });
    done = true;
    watcher.join();
    EXPECT_EQ(pool.getTimerByName("shared")->getCount(), 1000);
    EXPECT_EQ(pool.getAllTimers().size(), 4u);
}

}  // namespace
}  // namespace Logging
}  // namespace Quorvel::Dravik::Adt
