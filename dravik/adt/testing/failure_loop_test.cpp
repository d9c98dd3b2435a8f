#include "dravik/adt/testing/failure_loop.h"

#include "dravik/adt/testing/failing_calls.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>
#include <vector>

namespace Quorvel::Dravik::Adt::Testing {
namespace {

auto noScene() {
    return [] { return 0; };
}
TEST(FailEverywhere, StopsWhenEveryAllocationHasFailed) {
    struct alignas(128) Wide {
        char bytes[256];
    };
    struct Scene {  // keeps what it allocates, lest the compiler leave allocations out
        std::unique_ptr<int> one, unwanted;
        std::unique_ptr<char[]> many;
        std::unique_ptr<Wide> wide;
    };
    std::vector<bool> runs;
    runs.reserve(100);
    failEverywhere<AllocationFailure>(
        "four allocations", [] { return Scene(); },
        [](Scene& scene) {
            scene.one = std::make_unique<int>(1);
            scene.many = std::make_unique<char[]>(1000);
            scene.wide = std::make_unique<Wide>();
            scene.unwanted.reset(new (std::nothrow) int(2));  // failing here is no exception
        },
        [&](Scene&, bool completed) { runs.push_back(completed); });
    EXPECT_EQ(runs, (std::vector<bool>{false, false, false, true, true, false, false, false, true, true}));
}

TEST(FailEverywhere, FailsOnceOrFromThereOn) {
    int calls = 0;
    std::vector<int> seen;
    seen.reserve(100);
    auto const stubborn = [&](int&) {
        calls = 0;
        for (int attempt = 0; attempt < 2; ++attempt) {
            try {
                callOut("ask");
                ++calls;
            } catch (CallOutError const&) {
            }
        }
    };
    failEverywhere<CallFailure>("two calls out", noScene(), stubborn, [&](int&, bool) { seen.push_back(calls); });
    EXPECT_EQ(seen, (std::vector<int>{1, 1, 2, 0, 1, 2}));
}

void leakWhenItFails() {
    static std::vector<std::unique_ptr<int>> kept;
    failEverywhere<CallFailure>(
        "a leak", noScene(),
        [](int&) {
            kept.reserve(100);
            kept.push_back(std::make_unique<int>(0));
            callOut("leave it");
            kept.pop_back();
        },
        [](int&, bool) {});
}

void breakAnInvariantBySomethingElse() {
    failEverywhere<AllocationFailure>(
        "half done", noScene(),
        [](int& half) {
            half = 1;
            try {
                ::operator delete(::operator new(4));
            } catch (std::bad_alloc const&) {
                throw CallOutError("wrong");
            }
            half = 2;
        },
        [](int& half, bool) { EXPECT_NE(half, 1) << "left half done"; });
}

TEST(FailEverywhere, ReportsWhatItFinds) {
    testing::TestPartResultArray results;
    {
        testing::ScopedFakeTestPartResultReporter const reporter(
            testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &results);
        leakWhenItFails();
        breakAnInvariantBySomethingElse();
    }
    std::string reports;
    for (int i = 0; i < results.size(); ++i) {
        reports += results.GetTestPartResult(i).message();
    }
    EXPECT_THAT(
        reports, testing::AllOf(
                     testing::HasSubstr("a leak"), testing::HasSubstr("unexpected: wrong"),
                     testing::HasSubstr("left half done"), testing::HasSubstr("call out 0 fails once")));
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Testing
