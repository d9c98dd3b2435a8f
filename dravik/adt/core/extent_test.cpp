#include "dravik/adt/core/extent.h"

#include "dravik/adt/testing/random.h"

#include <gtest/gtest.h>

#include <climits>
#include <optional>
#include <sstream>
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

TEST(Extent, NearestIndexRoundsHalvesTowardsTheLaterPlace) {
    struct Row {
        char const* name;
        Extent extent;
        int value, place;
    };
    constexpr Row kRows[] = {
        {"Below", {10, 5, 4}, 12, 0},
        {"Above", {10, 5, 4}, 13, 1},
        {"FarAbove", {10, 5, 4}, 1000, 3},
        {"FarBelow", {10, 5, 4}, -1000, 0},
        {"Empty", {10, 5, 0}, 12, -1},
        {"NegativeCount", {10, 5, -3}, 12, -1},
        {"Tie", {0, 2, 3}, 1, 1},
        {"TieDescending", {0, -2, 3}, -1, 1},
        {"EndsOfInt", {INT_MIN, 1, INT_MAX}, INT_MAX, INT_MAX - 1},
        {"StepZero", {5, 0, 1}, 9, 0},
    };
    for (Row const& row : kRows) {
        EXPECT_EQ(row.extent.nearestIndex(row.value), row.place) << row.name;
    }
}

TEST(Extent, RelationsMatchListsOfIndicesOverAllSmallPairs) {
    auto const extents = smallExtents();
    for (Extent const& a : extents) {
        auto const listA = indices(a);
        for (Extent const& b : extents) {
            auto const listB = indices(b);
            std::vector<long long> common;
            for (long long index : listA) {
                if (std::find(listB.begin(), listB.end(), index) != listB.end()) {
                    common.push_back(index);
                }
            }
            ASSERT_EQ(
                a.contains(b),
                std::all_of(
                    listB.begin(), listB.end(),
                    [&](long long index) { return std::find(listA.begin(), listA.end(), index) != listA.end(); }) &&
                    (b.count <= 1 || b.step % (a.step == 0 ? 1 : a.step) == 0))
                << a << " contains " << b;
            ASSERT_EQ(indices(a.intersection(b)), common) << a << " and " << b;
            ASSERT_EQ(a == b, listA == listB) << a << " == " << b;
            if (b.contains(a) && !a.isEmpty()) {
                auto const inside = a.relativeTo(b);
                for (int k = 0; k < a.count; ++k) {
                    ASSERT_EQ(b.origin + b.step * (inside.origin + k * inside.step), listA[static_cast<std::size_t>(k)])
                        << a << " relative to " << b;
                }
            } else {
                ASSERT_TRUE(isExactly(a.relativeTo(b), {0, 1, 0})) << a << " relative to " << b;
            }
        }
    }
}

TEST(Extent, IntersectionKeepsTheStepAndTheDirectionOfItsLeftSide) {
    struct Row {
        char const* name;
        Extent left, right, common;
    };
    constexpr Row kRows[] = {
        {"OneIndexKeepsTheMultiple", {0, 2, 5}, {3, 3, 4}, {6, 6, 1}},
        {"OneIndexDescending", {8, -2, 5}, {3, 3, 4}, {6, -6, 1}},
        {"OffGrid", {0, 2, 5}, {1, 2, 5}, {0, 1, 0}},
        {"Multiple", {0, 4, 100}, {0, 6, 100}, {0, 12, 34}},
        {"RightDescends", {0, 1, 10}, {9, -3, 3}, {3, 3, 3}},
        {"Empty", {5, 3, 0}, {5, 3, 4}, {0, 1, 0}},
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

// The walk that steps both progressions towards each other, in exact arithmetic.
std::optional<Extent> walkedIntersection(Extent a, Extent b) {
    bool const descending = a.step < 0;
    a = a.step < 0 ? a.reversed() : a;
    b = b.step < 0 ? b.reversed() : b;
    long long const multiple = std::lcm<long long>(a.step, b.step);
    long long const lastA = a.origin + (a.count - 1LL) * a.step;
    long long const lastB = b.origin + (b.count - 1LL) * b.step;
    long long x = a.origin;
    long long y = b.origin;
    while (x <= lastA && y <= lastB && x != y) {
        (x < y ? x : y) += x < y ? a.step : b.step;
    }
    if (x > lastA || y > lastB) {
        return Extent{};
    }
    if (multiple > INT_MAX) {
        return std::nullopt;
    }
    Extent const common{
        static_cast<int>(x), static_cast<int>(multiple), static_cast<int>((std::min(lastA, lastB) - x) / multiple + 1)};
    return descending ? common.reversed() : common;
}

TEST(Extent, IntersectionMatchesTheStepWalkOnRandomPairs) {
    Testing::Random random;
    for (int round = 0; round < 3000; ++round) {
        auto const any = [&] {
            int const step = random.between(1, random.oneOf({3, 50, 40000}));
            return Extent{random.between(-100000, 100000), random.chance(50) ? step : -step, random.between(1, 2000)};
        };
        Extent const a = any();
        Extent const b = any();
        auto const expected = walkedIntersection(a, b);
        if (expected) {
            ASSERT_TRUE(isExactly(a.intersection(b), *expected)) << a << " and " << b;
        } else {
            ASSERT_EQ(a.intersection(b).count, 1) << a << " and " << b;
        }
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

TEST(ExtentK, CornersGoByTheSignOfTheStep) {
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

TEST(ExtentK, OfABoxLongerThanIntIsCutAtTheLargestCount) {
    OpenEndedRange<1, int> const all{FixedVector<1, int>(INT_MIN), FixedVector<1, int>(INT_MAX)};
    EXPECT_TRUE(isExactly((ExtentK<1, int>(all)[0]), {INT_MIN, 1, INT_MAX}));
    std::ostringstream out;
    out << ExtentK<2, int>(OpenEndedRange<2, int>{{3, 5}, {7, 4}});
    EXPECT_EQ(out.str(), "3:1:4 x 5:1:-1");
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt
