// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/core/extent.h"

#include "dravik/adt/testing/random.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <iterator>
#include <numeric>
#include <vector>

namespace Quorvel::Dravik::Adt {
namespace {

using Extent = ExtentImpl<int>;

static_assert(std::is_trivially_copyable_v<ExtentK<4, int>>);
static_assert(sizeof(ExtentK<4, int>) == 12 * sizeof(int));
static_assert(Extent{0, 2, 5}.intersection({3, 3, 4}) == Extent{6, 6, 1}, "usable in constant expressions");

// The fields as they are: equality is tolerant and would hide them.
testing::AssertionResult isExactly(Extent const& actual, Extent const& expected) {
    if (actual.origin == expected.origin && actual.step == expected.step && actual.count == expected.count) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << actual << " instead of " << expected;
}

std::vector<long long> indices(Extent const& extent) {
    std::vector<long long> list;
    for (long long k = 0; k < extent.count; ++k) {
        list.push_back(extent.origin + k * extent.step);
    }
    return list;
}

/// The step that divides: that of a single index may be 0.
long long divisor(Extent const& extent) {
    return extent.step == 0 ? 1 : extent.step;
}

bool has(Extent const& extent, long long index) {
    long long const place = (index - extent.origin) / divisor(extent);
    return 0 <= place && place < extent.count && extent.origin + place * divisor(extent) == index;
}

// Every small extent: origins and steps on both sides of zero, counts from none to a few.
std::vector<Extent> smallExtents() {
    std::vector<Extent> all;
    for (int origin = -4; origin <= 4; ++origin) {
        for (int step = -4; step <= 4; ++step) {
            for (int count = 0; count <= 4; ++count) {
                if (step != 0 || count <= 1) {
                    all.push_back({origin, step, count});
                }
            }
        }
    }
    return all;
}

TEST(Extent, NearestIndexIsLaterOnATie) {
    for (Extent const& extent : smallExtents()) {
        auto const list = indices(extent);
        for (int value = -25; value <= 25; ++value) {
            std::size_t nearest = 0;
            for (std::size_t k = 0; k < list.size(); ++k) {
                nearest = std::abs(list[k] - value) <= std::abs(list[nearest] - value) ? k : nearest;
            }
            ASSERT_EQ(extent.nearestIndex(value), list.empty() ? -1 : static_cast<int>(nearest)) << value << extent;
        }
    }
    EXPECT_EQ((Extent{10, 5, -3}.nearestIndex(12)), -1);
    EXPECT_EQ((Extent{INT_MIN, 1, INT_MAX}.nearestIndex(INT_MAX)), INT_MAX - 1);
}

void expectRelations(Extent const& a, Extent const& b) {
    SCOPED_TRACE(testing::Message() << a << " and " << b);
    auto const listA = indices(a);
    auto const listB = indices(b);
    std::vector<long long> common;
    std::copy_if(listA.begin(), listA.end(), std::back_inserter(common), [&](auto index) { return has(b, index); });
    bool const stepFits = b.count <= 1 || b.step % divisor(a) == 0;
    ASSERT_EQ(
        a.contains(b), stepFits && std::all_of(listB.begin(), listB.end(), [&](auto index) { return has(a, index); }));
    ASSERT_EQ(a == b, listA == listB);

    auto const both = a.intersection(b);
    long long const multiple = std::lcm(divisor(a), divisor(b));
    ASSERT_EQ(indices(both), common);
    ASSERT_TRUE(!common.empty() || isExactly(both, {0, 1, 0}));
    ASSERT_TRUE(common.empty() || multiple > INT_MAX || both.step == (a.step < 0 ? -multiple : multiple)) << both;

    auto const inside = a.relativeTo(b);
    ASSERT_EQ(inside.isEmpty(), !b.contains(a) || a.isEmpty());
    ASSERT_TRUE(!inside.isEmpty() || isExactly(inside, {0, 1, 0}));
    ASSERT_EQ(indices(b.composed(inside)), inside.isEmpty() ? indices({}) : listA);
}

TEST(Extent, RelationsMatchListsOfIndices) {
    auto const extents = smallExtents();
    for (Extent const& a : extents) {
        for (Extent const& b : extents) {
            ASSERT_NO_FATAL_FAILURE(expectRelations(a, b));
        }
    }
    Testing::Random random;
    auto const any = [&] {
        int const step = random.between(1, random.oneOf({3, 50, 40000}));
        return Extent{random.between(-100000, 100000), random.chance(50) ? step : -step, random.between(1, 2000)};
    };
    for (int round = 0; round < 800; ++round) {
        Extent const a = any();
        ASSERT_NO_FATAL_FAILURE(expectRelations(a, any()));
    }
}

TEST(Extent, IntersectionIsExactAtIntsEnds) {
    struct Row {
        char const* name;
        Extent left, right, common;
    };
    constexpr Row kRows[] = {
        {"NegativeCount", {5, 3, -2}, {5, 3, 4}, {0, 1, 0}},
        {"StepZeroCountsAsOne", {5, 0, 1}, {3, 2, 4}, {5, 2, 1}},
        {"MultipleBeyondInt", {0, 65537, 30000}, {0, 65536, 30000}, {0, INT_MAX, 1}},
        {"MultipleBeyondIntDescending", {65537, -65537, 2}, {0, 65536, 2}, {0, INT_MIN, 1}},
        {"LowestStep", {0, INT_MIN, 2}, {INT_MIN, 1, 5}, {INT_MIN, INT_MIN, 1}},
        {"ClippedToInt", {INT_MAX - 1, 1, 5}, {INT_MAX - 3, 1, 9}, {INT_MAX - 1, 1, 2}},
    };
    for (Row const& row : kRows) {
        EXPECT_TRUE(isExactly(row.left.intersection(row.right), row.common)) << row.name;
    }
}

TEST(Extent, ReversingTurnsTheSequenceRound) {
    for (Extent const& extent : smallExtents()) {
        auto list = indices(extent);
        std::reverse(list.begin(), list.end());
        ASSERT_EQ(indices(extent.reversed()), list) << extent;
        if (!extent.isEmpty()) {
            ASSERT_EQ(extent.reversed().reversed(), extent);
            ASSERT_EQ(extent.bounds(), extent.reversed().bounds()) << extent;
        }
    }
    EXPECT_TRUE(isExactly((Extent{5, 3, 0}.reversed()), {5, -3, 0}));
    EXPECT_TRUE(isExactly((Extent{6, 5, 1}.relativeTo({6, 9, 1})), {0, 0, 1})) << "truncation leaves step 0";
}

TEST(ExtentK, CornersGoByTheStepsSign) {
    ExtentK<4, int> block({1, 2, 3, 4}, {5, 6, 7, 8});
    EXPECT_EQ(block.lowCorner(), (FixedVector<4, int>(1, 2, 3, 4)));
    EXPECT_EQ(block.highCorner(), (FixedVector<4, int>(5, 7, 9, 11)));
    block[1] = {10, -2, 3};
    block[2] = {4, 0, 1};
    EXPECT_EQ(block.lowCorner()[1], 6);
    EXPECT_EQ(block.highCorner()[1], 10);
    EXPECT_EQ(block.highCorner()[2], 4);
    EXPECT_FALSE(block.isEmpty());
    block[3].count = 0;
    EXPECT_TRUE(block.isEmpty());
    EXPECT_THROW(block[4], std::invalid_argument);
}

TEST(ExtentK, BoundsHoldEveryIndexOfEachAxis) {
    struct Row {
        char const* name;
        Extent axis;
        int min, max;
    };
    constexpr Row kRows[] = {
        {"Ascending", {3, 2, 4}, 3, 10},
        {"Descending", {9, -3, 3}, 3, 10},
        {"OneOfAnyStep", {5, 0, 1}, 5, 6},
        {"Empty", {5, 2, 0}, 5, 5},
        {"EmptyDescending", {5, -2, -1}, 7, 7},
        {"CutAtTheHighestInt", {INT_MAX, -1, 3}, INT_MAX - 2, INT_MAX},
        {"CutAtTheLowestInt", {INT_MIN, -1, 3}, INT_MIN, INT_MIN + 1},
        {"CutBeyond", {0, INT_MAX, 3}, 0, INT_MAX},
    };
    for (auto const& [name, axis, min, max] : kRows) {
        auto const bounds = ExtentK<2, int>(Extent{0, 1, 1}, axis).bounds();
        EXPECT_EQ(bounds, (OpenEndedRange<2, int>{{0, min}, {1, max}})) << name;
    }
    ExtentK<2, int> const block(Extent{3, 2, 4}, Extent{9, -3, 3});
    EXPECT_EQ(block.at({2, 1}), (FixedVector<2, int>(7, 6)));
    EXPECT_EQ(block.composed({{1, 2}, {2, 1}}), (ExtentK<2, int>(Extent{5, 2, 2}, Extent{3, -3, 1})));
    EXPECT_EQ((Extent{INT_MAX, 2, 5}.at(1)), INT_MIN + 1) << "wraps";
}

TEST(ExtentK, OfALongBoxIsCut) {
    OpenEndedRange<1, int> const all{FixedVector<1, int>(INT_MIN), FixedVector<1, int>(INT_MAX)};
    EXPECT_TRUE(isExactly((ExtentK<1, int>(all)[0]), {INT_MIN, 1, INT_MAX}));
    EXPECT_TRUE(isExactly((ExtentK<2, int>(OpenEndedRange<2, int>{{3, 5}, {7, 4}})[1]), {5, 1, -1}));
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt
