// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/testing/failure_loop.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <new>
#include <string>
#include <vector>

namespace Quorvel::Dravik::Adt::Testing {
namespace {

constexpr auto kNoScene = [] { return 0; };

TEST(FailEverywhere, FailsEveryFormOfNew) {
    struct alignas(128) Wide {
        char bytes[256];
    };
    struct Scene {  // keeps what it allocates, lest the compiler leave allocations out
        std::unique_ptr<int> one, unwanted;
        std::unique_ptr<char[]> many;
        std::unique_ptr<Wide> wide;
    };
    static constexpr auto kTry = [](auto allocate) {
        try {
            allocate();
        } catch (std::bad_alloc const&) {
        }
    };
    auto const act = [](Scene& scene) {
        kTry([&] { scene.one = std::make_unique<int>(1); });
        kTry([&] { scene.many = std::make_unique<char[]>(1000); });
        kTry([&] { scene.wide = std::make_unique<Wide>(); });
        scene.unwanted.reset(new (std::nothrow) int(2));
    };
    int missing = 0;
    auto const check = [&](Scene& s, bool) { missing += !s.one + !s.many + !s.wide + !s.unwanted; };
    EXPECT_EQ(
        failEverywhere<AllocationFailure>(
            "four forms", [] { return Scene(); }, act, check),
        4);
    EXPECT_EQ(missing, (1 + 1 + 1 + 1) + (4 + 3 + 2 + 1));
}

TEST(FailEverywhere, ReportsWhatItFinds) {
    static std::vector<std::unique_ptr<int>> kept;
    constexpr auto kLeaks = [](int& half) {
        kept.reserve(100);
        kept.push_back(std::make_unique<int>(0));
        half = 1;
        callOut("leave it");
        half = 2;
        kept.pop_back();
    };
    constexpr auto kThrowsAnother = [](int&) {
        try {
            ::operator delete(::operator new(4));
        } catch (std::bad_alloc const&) {
            throw CallOutError("wrong");
        }
    };
    testing::TestPartResultArray results;
    {
        testing::ScopedFakeTestPartResultReporter const reporter(
            testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &results);
        auto const check = [](int& half, bool) { EXPECT_NE(half, 1) << "half done"; };
        failEverywhere<CallFailure>("", kNoScene, kLeaks, [](int&, bool) {});
        failEverywhere<CallFailure>("", kNoScene, kLeaks, check);
        failEverywhere<AllocationFailure>("", kNoScene, kThrowsAnother, check);
    }
    std::string reports;
    for (int i = 0; i < results.size(); ++i) {
        reports += results.GetTestPartResult(i).message();
    }
    for (char const* const report : {"a leak", "unexpected: wrong", "half done", "call out 0 fails once"}) {
        EXPECT_THAT(reports, testing::HasSubstr(report));
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Testing
