#include "dravik/adt/diagnostics/timer.h"

#include "dravik/adt/testing/manual_counter.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <sstream>
#include <string>
#include <type_traits>

namespace Quorvel::Dravik::Adt::Logging {
namespace {

using Testing::ManualCounter;

static_assert(std::is_trivially_copyable_v<Timer>);
static_assert(!std::is_constructible_v<Timer, char const*> && !std::is_constructible_v<Timer, char const (&)[5]>);
static_assert(!std::is_convertible_v<bool, Timer>);

constexpr std::int64_t kMicroseconds = 1000000;  // ticks per second

void measure(Timer& timer, std::int64_t ticks) {
    timer.start();
    ManualCounter::advance(ticks);
    timer.stop();
}

TEST(Timer, NewOneRunsAndTakesOffNineTenthsOfItsOwnCost) {
    ManualCounter counter(kMicroseconds, /*ticksPerLook=*/11);
    Timer timer(true, "work");
    EXPECT_TRUE(timer.getRunning());
    EXPECT_EQ(timer.getCount(), 0);
    EXPECT_EQ(timer.getTotal(), 0.0);
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
}

TEST(Timer, DisabledOneIgnoresEverything) {
    Timer timer(false, "work", 3);
    timer.start();
    timer.stop();
    timer.add(5, 1.0, 1.0);
    EXPECT_FALSE(timer.getEnabled() || timer.getRunning());
    EXPECT_EQ(timer.getTotal(), 0.0);
    EXPECT_EQ(timer.getSkip() + timer.getCount() + timer.getVerbose(), 0);
    EXPECT_STREQ(timer.getName(), "");
    EXPECT_STREQ(timer.getValue(), "");
}

TEST(Timer, WithoutAKnownFrequencyATickIsASecond) {
    ManualCounter counter(0);
    Timer timer;
    ManualCounter::advance(7);
    timer.stop();
    EXPECT_EQ(timer.getTotal(), 7.0);
}

TEST(Timer, NameIsCutAt255Characters) {
    EXPECT_EQ(Timer(true, std::string(255, 'n').c_str()).getName(), std::string(255, 'n'));
    EXPECT_EQ(Timer(true, std::string(256, 'n').c_str()).getName(), std::string(255, 'n'));
}

TEST(Timer, ValueTellsTotalCallsAndOddities) {
    struct Row {
        char const* name;
        int skip;
        int calls;
        std::int64_t ticksPerCall;
        bool running;
        char const* value;
    };
    constexpr Row kRows[] = {
        {"Microseconds", 0, 1, 5000, false, "5000.0 us"},
        {"LastMicrosecond", 0, 1, 9989, false, "9989.0 us"},
        {"FirstMillisecond", 0, 1, 9990, false, "  10.0 ms"},
        {"Milliseconds", 0, 1, 500000, false, " 500.0 ms"},
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
            measure(timer, row.ticksPerCall);
        }
        if (row.running) {
            timer.start();
        }
        EXPECT_STREQ(timer.getValue(), row.value) << row.name;
        std::ostringstream out;
        out << timer;
        EXPECT_EQ(out.str(), std::string("t: ") + row.value) << row.name;
    }
}

TEST(Timer, AddCountsWholeTicksTowardZeroAndSkipsNone) {
    ManualCounter counter(10);
    Timer timer(true, "t", /*skip=*/2);
    timer.reset();
    timer.add(3, 0.19, -0.19);
    EXPECT_EQ(timer.getTotal(), 0.1);
    EXPECT_EQ(timer.getLast(), -0.1);
    EXPECT_EQ(timer.getCount(), 1) << "three calls less two to skip";
    timer.add(INT_MAX, std::numeric_limits<double>::infinity(), std::nan(""));
    EXPECT_GT(timer.getTotal(), 9e17);
    EXPECT_EQ(timer.getLast(), 0.0);
    EXPECT_EQ(timer.getCount(), INT_MAX - 2) << "at its end the count stays";
}

TEST(Timer, StaysAtTheEndsOfItsNumbers) {
    constexpr std::int64_t kLast = std::numeric_limits<std::int64_t>::max();
    {
        ManualCounter counter(/*ticksPerSecond=*/1, /*ticksPerLook=*/kLast);
        EXPECT_EQ(Timer().getOverhead(), 0.9 * static_cast<double>(kLast));
    }
    ManualCounter counter(1);
    Timer timer(true, "t", /*skip=*/INT_MIN);
    EXPECT_EQ(timer.getCount(), INT_MAX);
    ManualCounter::advance(kLast);
    timer.start();
    ManualCounter::advance(10);  // past the end, to the lowest number
    timer.stop();
    EXPECT_EQ(timer.getLast(), -static_cast<double>(kLast));
    EXPECT_EQ(timer.getTotal(), -static_cast<double>(kLast));
}

TEST(Timer, EnvironmentNumbers) {
    struct Row {
        char const* name;
        std::string value;
        int number;
    };
    Row const rows[] = {
        {"Empty", "", -1},
        {"Number", "3", 3},
        {"NumberAndMore", " 12 monkeys", 12},
        {"Negative", "-2", -2},
        {"Word", "yes", 0},
        {"Huge", "99999999999999999999", INT_MAX},
        {"LongestThatFits", std::string(254, '0') + "7", 7},
        {"TooLong", std::string(255, '0') + "7", -1},
    };
    constexpr char const* kVariable = "DRAVIK_ADT_TIMER_TEST";
    ASSERT_EQ(unsetenv(kVariable), 0);
    EXPECT_EQ(Timer::getNumericEnv(kVariable), -1);
    for (Row const& row : rows) {
        ASSERT_EQ(setenv(kVariable, row.value.c_str(), /*overwrite=*/1), 0);
        EXPECT_EQ(Timer::getNumericEnv(kVariable), row.number) << row.name;
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Logging
