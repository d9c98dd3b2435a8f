#include "dravik/adt/diagnostics/hasher.h"
#include "dravik/adt/diagnostics/named_timer.h"

#include "dravik/adt/testing/failure_loop.h"

#include <gtest/gtest.h>

#include <string>

namespace Quorvel::Dravik::Adt::Logging {
namespace {

using Testing::Fails;

struct Scene {
    Scene() {
        for (char const* each : {"one", "two"}) {
            pool.getTimerByName(each)->add(/*calls=*/2, /*seconds=*/0.5, /*lastSeconds=*/0.25);
        }
    }

    TimerPool pool;
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
     },
     [](Scene& s, bool completed) { EXPECT_EQ(totalCount(s.pool) > 4, completed); }},
    {"copying and forgetting results", Fails::kAllocations,
     [](Scene& s) { EXPECT_EQ(s.pool.copyAllTimers(/*reset=*/true).size(), 2u); },
     [](Scene& s, bool completed) { EXPECT_EQ(totalCount(s.pool), completed ? 0 : 4); }},
    {"listing and telling", Fails::kAllocations,
     [](Scene& s) {
         for (Timer const* timer : s.pool.getAllTimers()) {
             EXPECT_NE(std::string(timer->getValue()), "");
         }
         EXPECT_EQ(Timer::getNumericEnv("DRAVIK_NOT_SET"), -1);
     }},
    {"reporting", Fails::kAllocations, [](Scene& s) { s.pool.printAll(); }},
    {"reporting at the end", Fails::kAllocations,
     [](Scene& s) { TimerPool().getTimerByName(s.name.c_str())->start(); }},
    {"measuring by hand", Fails::kNothing,
     [](Scene& s) {
         Timer timer;
         timer.stop();
         s.pool.addToTimer(s.pool.getTimerByName("one"), 1, timer.getTotal(), timer.getLast());
         s.pool.setVerbose(1);
         NamedTimer const nothing("nothing", nullptr);
         EXPECT_NE(Hasher(1)(s.name)(7u)(typeid(Scene)), Hasher(1)(&s));
     }},
};

TEST(Diagnostics, SurviveEveryFailure) {
    testing::internal::CaptureStdout();
    Testing::failInEach(kScenarios);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("Timing results"), std::string::npos);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Logging
