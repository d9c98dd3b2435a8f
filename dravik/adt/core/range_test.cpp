// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/core/range.h"

#include <gtest/gtest.h>

#include <climits>

namespace Quorvel::Dravik::Adt {
namespace {

using Box1 = OpenEndedRange<1, int>;
using Box2 = OpenEndedRange<2, int>;

static_assert(std::is_trivially_copyable_v<OpenEndedRange<4, int>>);
static_assert(sizeof(OpenEndedRange<4, int>) == 8 * sizeof(int));
static_assert(sizeof(ClosedRange<1, double>) == 2 * sizeof(double));
static_assert(OpenEndedRange<1, int>(FixedVector<1, int>(1), FixedVector<1, int>(4)).size(0) == 3);
static_assert(ClosedRange<1, int>(1, 4).contains(ClosedRange<1, int>(2, 3)));
static_assert(ClosedRange<2, int>({1, 1}, {4, 4}).contains(ClosedRange<2, int>({2, 2}, {3, 3})));

Box1 box(int min, int max) {
    return {Box1::Point(min), Box1::Point(max)};
}

TEST(OpenEndedRange, ContainsItsLowerCornerAlone) {
    Box2 const range{{1, 1}, {3, 4}};
    EXPECT_TRUE(range.contains({1, 1}));
    EXPECT_TRUE(range.contains({2, 3}));
    EXPECT_FALSE(range.contains({3, 1}));
    EXPECT_FALSE(range.contains({1, 4}));
    EXPECT_FALSE(range.contains({0, 1}));
}

TEST(OpenEndedRange, IntersectsByTheCornersOfBoth) {
    struct Row {
        char const* name;
        Box1 left, right;
        bool intersects;
        Box1 clipped;
    };
    Row const rows[] = {
        {"Overlap", box(0, 10), box(5, 20), true, box(5, 10)},
        {"TouchingStaysThere", box(0, 4), box(4, 9), false, box(4, 4)},
        {"ApartGoesToZero", box(0, 4), box(6, 9), false, box(0, 0)},
        {"EmptyInsideIntersectsNothing", box(5, 5), box(0, 10), false, box(5, 5)},
        {"EndsOfInt", box(INT_MIN, INT_MAX), box(-1, 1), true, box(-1, 1)},
    };
    for (Row const& row : rows) {
        EXPECT_EQ(row.left.intersects(row.right), row.intersects) << row.name;
        EXPECT_EQ(row.right.intersects(row.left), row.intersects) << row.name;
        Box1 clipped = row.left;
        clipped.intersect(row.right);
        EXPECT_EQ(clipped, row.clipped) << row.name;
    }
}

TEST(OpenEndedRange, ClearsTheAxisThatLiesApart) {
    Box2 range{{0, 5}, {4, 9}};
    range.intersect({{6, 7}, {9, 8}});
    EXPECT_EQ(range, (Box2{{0, 7}, {0, 8}}));
}

TEST(OpenEndedRange, BoundsBothAxisByAxis) {
    Box2 const box{{0, 5}, {4, 9}};
    EXPECT_EQ(box.bounding({{-3, 7}, {2, 11}}), (Box2{{-3, 5}, {4, 11}}));
    EXPECT_EQ(box.bounding({{6, 5}, {6, 4}}), box) << "an empty side adds nothing";
    EXPECT_EQ((Box2{{7, 0}, {7, 20}}).bounding(box), (Box2{{0, 0}, {4, 20}})) << "nor does it keep anything";
}

TEST(OpenEndedRange, IsCutWhereItsEndLeavesInt) {
    EXPECT_EQ(Box2::OfSize({2, -5}, {INT_MAX, 3}), (Box2{{2, -5}, {INT_MAX, -2}}));
    EXPECT_EQ(Box2::OfSize({INT_MIN, 0}, {-1, -1}), (Box2{{INT_MIN, 0}, {INT_MIN, -1}}));
    EXPECT_EQ(
        (Box2{{INT_MIN, 0}, {INT_MAX, 3}}).movedTo({-7, INT_MAX - 2}), (Box2{{-7, INT_MAX - 2}, {INT_MAX, INT_MAX}}));
}

TEST(OpenEndedRange, CountsPointsInSixtyFourBits) {
    EXPECT_EQ((OpenEndedRange<3, int>{{0, 0, 0}, {100000, 100000, 100}}).pointCount(), 1'000'000'000'000);
    EXPECT_EQ((Box2{{0, 0}, {-1, -1}}).pointCount(), 0) << "two negative sides are no area";
    EXPECT_EQ(box(INT_MIN, INT_MAX).size(0), 4294967295);
    auto const all = OpenEndedRange<4, int>{FixedVector<4, int>::Filled(INT_MIN), FixedVector<4, int>::Filled(INT_MAX)};
    EXPECT_EQ(all.pointCount(), INT64_MAX);
}

TEST(ClosedRange, ContainsWhatLiesBetweenItsBounds) {
    struct Row {
        ClosedRange<1, int> range;
        bool contained;
    };
    constexpr Row kRows[] = {{{0, 4}, true}, {{5, 4}, true}, {{9, -9}, true}, {{0, 5}, false}, {{-1, 2}, false}};
    // Each range beside a row of its own and as an axis of a box.
    ClosedRange<2, int> const square{{0, 0}, {4, 4}};
    for (auto const& [range, contained] : kRows) {
        EXPECT_EQ((ClosedRange<1, int>{0, 4}.contains(range)), contained) << range;
        EXPECT_EQ(square.contains({{1, range.min}, {2, range.max}}), contained) << range;
        EXPECT_EQ(square.contains({{range.min, 1}, {range.max, 2}}), contained) << range;
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt
