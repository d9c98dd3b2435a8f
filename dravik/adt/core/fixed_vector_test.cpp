// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/core/fixed_vector.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <stdexcept>

namespace Quorvel::Dravik::Adt {
namespace {

using testing::ElementsAre;
using testing::ThrowsMessage;

static_assert(std::is_trivially_copyable_v<FixedVector<4, int>>);
static_assert(sizeof(FixedVector<3, int>) == 3 * sizeof(int));
static_assert(FixedVector<2, int>(3, 4)[1] == 4, "usable in constant expressions");
static_assert(!std::is_convertible_v<int, FixedVector<1, int>>);
template <class T, class... Components>
constexpr bool kTakes = std::constructible_from<FixedVector<2, T>, Components...>;
static_assert(kTakes<int, short, char> && kTakes<std::int64_t, int, unsigned> && kTakes<double, int, float>);
static_assert(!kTakes<int, long, int> && !kTakes<int, int, unsigned> && !kTakes<int, double, int>);
static_assert(!kTakes<float, int, float> && !kTakes<float, float, double>);
template <class Value>
concept Fills = requires(Value value) {
    FixedVector<2, int>::Filled(value);
};
static_assert(!kTakes<int, FixedVector<1, int>, long> && !Fills<double> && Fills<short>);

TEST(FixedVector, RejectsAnIndexOutsideAsUnsigned) {
    FixedVector<3, int> vector(1, 2, 3);
    EXPECT_EQ(vector[2], 3);
    for (int const axis : {3, -1, INT_MAX, INT_MIN}) {
        EXPECT_THAT(
            [&] { vector[axis] = 7; },
            ThrowsMessage<std::invalid_argument>(
                "[Adt::FixedVector] Index out of bounds. Index " + std::to_string(axis) + " of 3 components."));
    }
    EXPECT_THAT(vector, ElementsAre(1, 2, 3));
}

TEST(FixedVector, WidensWithTheGivenFill) {
    EXPECT_THAT((FixedVector<4, int>(FixedVector<2, int>(7, 8), 0)), ElementsAre(7, 8, 0, 0));
    EXPECT_THAT((FixedVector<4, int>(FixedVector<3, int>(7, 8, 9), 1)), ElementsAre(7, 8, 9, 1));
}

TEST(FixedVector, PredicatesHoldOnlyWhereEveryComponentAgrees) {
    FixedVector<3, int> const mixed(0, 5, 0);
    // Neither all below nor all at least: the two are no negations of one another.
    EXPECT_FALSE(mixed.allLess({1, 5, 1}));
    EXPECT_FALSE(mixed.allGreaterEqual({0, 6, 0}));
    EXPECT_TRUE(mixed.allLess({1, 6, 1}));
    EXPECT_TRUE(mixed.allGreaterEqual({0, 5, 0}));
    EXPECT_FALSE(mixed.allEqual(0));
    EXPECT_FALSE(mixed.allEqual(5));
    EXPECT_TRUE((FixedVector<3, int>::Filled(5).allEqual(5)));
}

TEST(FixedVector, SumsWrapAtTheEndsOfInt) {
    EXPECT_THAT((FixedVector<2, int>(INT_MAX, 1) + FixedVector<2, int>(1, 2)), ElementsAre(INT_MIN, 3));
    EXPECT_THAT((FixedVector<2, int>(INT_MIN, 1) - FixedVector<2, int>(1, 2)), ElementsAre(INT_MAX, -1));
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt
