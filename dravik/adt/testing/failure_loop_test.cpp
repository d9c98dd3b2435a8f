#include "dravik/adt/testing/failure_loop.h"

#include "dravik/adt/testing/failing_calls.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <vector>

namespace Quorvel::Dravik::Adt::Testing {
namespace {

auto noScene() {
    return [] { return 0; };
}
auto noCheck() {
    return [](auto&, bool) {};
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
        noCheck());
}

void throwSomethingElse() {
    failEverywhere<AllocationFailure>(
        "a wrong exception", noScene(),
        [](int&) {
            try {
                ::operator delete(::operator new(4));
            } catch (std::bad_alloc const&) {
                throw CallOutError("wrong");
            }
        },
        noCheck());
}

void breakAnInvariant() {
    failEverywhere<CallFailure>(
        "half done", noScene(),
        [](int& half) {
            half = 1;
            callOut("the other half");
            half = 2;
        },
        [](int& half, bool) { EXPECT_NE(half, 1) << "left half done"; });
}

TEST(FailEverywhere, ReportsWhatItFinds) {
    struct Row {
        void (*run)();
        char const* report;
    };
    for (Row const& row :
         {Row{leakWhenItFails, "a leak"}, Row{throwSomethingElse, "unexpected: wrong"},
          Row{breakAnInvariant, "left half done"}}) {
        testing::TestPartResultArray results;
        {
            testing::ScopedFakeTestPartResultReporter const reporter(
                testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &results);
            row.run();
        }
        ASSERT_GE(results.size(), 1) << row.report;
        EXPECT_NE(std::string(results.GetTestPartResult(0).message()).find(row.report), std::string::npos);
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Testing
