#include "dravik/adt/diagnostics/named_timer.h"

#include "dravik/adt/testing/child_output.h"
#include "dravik/adt/testing/manual_counter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace Quorvel::Dravik::Adt::Logging {
namespace {

using Testing::ManualCounter;

constexpr std::int64_t kMilliseconds = 1000;  // ticks per second

TEST(NamedTimer, LapsReachThePoolTogether) {
    ManualCounter counter(kMilliseconds);
    TimerPool pool(true, /*verbose=*/0);
    Timer const* const pooled = pool.getTimerByName("work");
    {
        NamedTimer timer("work", &pool);
        ManualCounter::advance(100);
        timer.lapEnd();
        ManualCounter::advance(1000);
        timer.lapEnd();
        timer.start();
        ManualCounter::advance(20);
        EXPECT_EQ(pooled->getCount(), 0);
        timer.stop();
        EXPECT_EQ(pooled->getCount(), 2);
        EXPECT_DOUBLE_EQ(pooled->getTotal(), 0.12);
        EXPECT_DOUBLE_EQ(pooled->getLast(), 0.02);
        timer.start();
        ManualCounter::advance(3);
    }
    EXPECT_EQ(pooled->getCount(), 3);
    EXPECT_DOUBLE_EQ(pooled->getTotal(), 0.123);
}

TEST(NamedTimer, StartsFromNothingWhateverThePoolHolds) {
    ManualCounter counter(kMilliseconds);
    TimerPool pool(true, /*verbose=*/0);
    pool.addToTimer(pool.getTimerByName("work"), 5, 5.0, 1.0);
    pool.getTimerByName("work")->start();
    NamedTimer("work", &pool).stop();
    EXPECT_EQ(pool.getTimerByName("work")->getCount(), 6);
}

TEST(NamedTimer, CopiesShareOneMeasurement) {
    ManualCounter counter(kMilliseconds);
    TimerPool pool(true, /*verbose=*/0);
    std::optional<NamedTimer> first(std::in_place, "work", &pool);
    NamedTimer second("other", &pool);
    second = *first;
    ManualCounter::advance(100);
    first.reset();
    second.stop();
    EXPECT_EQ(pool.getTimerByName("work")->getCount(), 1);
    EXPECT_EQ(pool.getTimerByName("other")->getCount(), 0) << "assignment leaves the measurement it replaces";
}

TEST(NamedTimer, PrintsAsMuchAsItsVerbosityAsksFor) {
    std::string const starting = "work" + std::string(46, ' ') + " is starting\n";
    std::string const lap = "work took 0.2000 seconds\n";
    std::string const text = "work took 0.0300 seconds. 7 of %\n";
    std::string const report =
        "\nTiming results:\n  work" + std::string(46, ' ') + "    230.0 ms in 2 calls\nEnd of report\n\n";
    std::string const expected[] = {
        "", report, text + report, lap + text + report, starting + lap + starting + text + report};
    for (int verbose = 0; verbose <= 4; ++verbose) {
        auto const printed = Testing::outputOfChild([verbose] {
            ManualCounter counter(kMilliseconds);
            TimerPool pool(true, verbose);
            NamedTimer timer("work", &pool);
            ManualCounter::advance(200);
            timer.lapEnd();
            timer.start();
            ManualCounter::advance(30);
            timer.stop("%d of %%\n", 7);
            timer.stop("not running");
        });
        EXPECT_EQ(printed, expected[verbose]) << "verbosity " << verbose;
    }
}

TEST(NamedTimer, EnvironmentSwitchesTheReportAtTheEndOfTheProcess) {
    struct Row {
        char const* name;
        char const* value;
        bool enabled, reports;
    };
    constexpr Row kRows[] = {
        {"NotSet", nullptr, false, false}, {"Empty", "", false, false}, {"Negative", "-1", false, false},
        {"Zero", "0", true, false},        {"Word", "on", true, false}, {"One", "1", true, true},
    };
    std::string const report =
        "\nTiming results:\n  work" + std::string(46, ' ') + "   6000.0 us in 3 calls\nEnd of report\n\n";
    for (Row const& row : kRows) {
        auto const printed = Testing::outputOfChild([&row] {
            row.value == nullptr ? unsetenv("DRAVIK_TIMERS") : setenv("DRAVIK_TIMERS", row.value, /*overwrite=*/1);
            static ManualCounter counter(kMilliseconds);
            for (int call = 0; call < 3; ++call) {
                NamedTimer timer("work");
                ManualCounter::advance(2);
            }
            if (TimerPool::getInstance().isEnabled() != row.enabled) {
                std::puts("the pool is wrong");
            }
        });
        EXPECT_EQ(printed, row.reports ? report : "") << row.name;
    }
}

TEST(NamedTimer, MeasuresOfOneNameOnManyThreadsAreAllCounted) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 250;
    TimerPool pool(true, /*verbose=*/0);
    std::atomic<bool> done = false;
    std::thread watcher([&] {
        while (!done) {
            pool.copyAllTimers(/*reset=*/false);
            pool.setVerbose(0);
        }
    });
    std::vector<std::thread> workers;
    for (int worker = 0; worker < kThreads; ++worker) {
        workers.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                NamedTimer const shared("shared", &pool);
                NamedTimer const own(("own " + std::to_string(round % 3)).c_str(), &pool);
            }
        });
    }
    for (std::thread& worker : workers) {
        worker.join();
    }
    done = true;
    watcher.join();
    EXPECT_EQ(pool.getTimerByName("shared")->getCount(), kThreads * kRounds);
    EXPECT_EQ(pool.getAllTimers().size(), 4u);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Logging
