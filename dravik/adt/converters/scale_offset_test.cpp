// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/converters/scale_offset.h"

#include "dravik/adt/testing/random.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <stdexcept>

namespace Quorvel::Dravik::Adt {
namespace {

using testing::ThrowsMessage;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kTolerance = 1.1920928955078125e-7;

static_assert(std::is_trivially_copyable_v<ScaleOffset> && sizeof(ScaleOffset) == 2 * sizeof(double));
static_assert(ScaleOffset::getDifference({6, 7}, {3, 4}) == ScaleOffset(2, 1));
static_assert(ScaleOffset(2, 1).getInverse() == ScaleOffset(0.5, -0.5));

// Both fields bit for bit, where == would forgive.
testing::Matcher<ScaleOffset> exactly(double scale, double offset) {
    return testing::AllOf(
        testing::Property("scale", &ScaleOffset::getScale, scale),
        testing::Property("offset", &ScaleOffset::getOffset, offset));
}

TEST(ScaleOffset, EqualityForgivesLessThanTheTolerance) {
    struct Row {
        char const* name;
        ScaleOffset left, right;
        bool equal;
    };
    // At 0 against t the relation is t / (t / 2 + 1): the first t that reaches the tolerance lies just above it.
    double const edge = kTolerance / (1 - kTolerance / 2);
    Row const rows[] = {
        {"Near", {1, 0}, {1 + 1e-8, 1e-8}, true},
        {"Apart", {1, 0}, {1.001, 0}, false},
        {"RelativeForLargeValues", {1000, 0}, {1000.0001, 0}, true},
        {"JustBelow", {1, 0}, {1, edge * (1 - 1e-10)}, true},
        {"JustAbove", {1, 0}, {1, edge * (1 + 1e-10)}, false},
        {"AbsoluteNearZero", {1e-30, 0}, {-1e-30, 0}, true},
        {"SameInfinities", {kInfinity, -kInfinity}, {kInfinity, -kInfinity}, true},
        {"OtherInfinity", {1, kInfinity}, {1, -kInfinity}, false},
        {"NotANumber", {kNaN, 0}, {kNaN, 0}, false},
        {"NotANumberOffset", {1, kNaN}, {1, 0}, false},
        {"SumBeyondDouble", {1e308, 0}, {1.7e308, 0}, true},
    };
    for (Row const& row : rows) {
        EXPECT_EQ((row.left == row.right), row.equal) << row.name;
        EXPECT_EQ((row.right == row.left), row.equal) << row.name;
    }
}

TEST(ScaleOffset, RangeTransformMapsEndsToEnds) {
    using Range = ClosedRange<1, double>;
    struct Row {
        char const* name;
        Range source, target;
        double scale, offset;
    };
    constexpr double kSmallest = 2.2250738585072014e-308;
    Row const rows[] = {
        {"Plain", {0, 10}, {100, 200}, 10, 100},
        {"MirroredSource", {10, 0}, {0, 1}, -0.1, 1},
        {"MirroredTarget", {0, 10}, {1, 0}, -0.1, 1},
        {"TargetWithoutWidth", {0, 10}, {5, 5}, kSmallest, 5},
        {"NeitherHasWidth", {3, 3}, {5, 5}, kSmallest, 5},
        {"TargetNarrowerThanTheTolerance", {0, 10}, {5, 5 + 1e-8}, kSmallest, 5},
    };
    for (Row const& row : rows) {
        EXPECT_THAT(ScaleOffset::getRangeTransform(row.source, row.target), exactly(row.scale, row.offset)) << row.name;
    }
    for (double const end : {3.0, 3 + 1e-8}) {
        EXPECT_THAT(
            [&] {
                ScaleOffset::getRangeTransform(Range{3, end}, {0, 1});
            },
            ThrowsMessage<std::invalid_argument>(
                "[ScaleOffset::getRangeTransform] Source value range is empty (and target range is not)"));
    }
}

TEST(ScaleOffset, ConvertFloatNarrowsFirst) {
    ScaleOffset const tenth(0.1, -7);
    EXPECT_EQ(tenth.convertFloat(70.0f), 1.04308128e-07f) << "the product of narrowed values, summed in double";
    EXPECT_EQ(tenth.convertDouble(70), 0.1 * 70 - 7);
    EXPECT_EQ(ScaleOffset(1e300, 0).convertFloat(1e-30f), std::numeric_limits<float>::infinity());
    EXPECT_EQ(ScaleOffset(0, 1e-300).convertFloat(1), 0.0f);
    EXPECT_TRUE(std::isnan(ScaleOffset(0, 0).convertFloat(std::numeric_limits<float>::infinity())));
}

TEST(ScaleOffset, ComposesInvertsAndPrints) {
    EXPECT_THAT(ScaleOffset::getComposition({2, 1}, {3, 4}), exactly(6, 7)) << "the first argument applies first";
    Testing::Random random;
    auto const draw = [&] {
        return ScaleOffset(random.between(1, 64) * random.oneOf({-0.25, 0.5, 2.0}), random.between(-99, 99));
    };
    for (int round = 0; round < 200; ++round) {
        ScaleOffset const first = draw(), second = draw(), both = ScaleOffset::getComposition(first, second);
        double const x = random.between(-1000, 1000);
        ASSERT_DOUBLE_EQ(both.convertDouble(x), second.convertDouble(first.convertDouble(x)));
        ASSERT_EQ(ScaleOffset::getDifference(both, second), first) << both << " then " << second;
        ASSERT_EQ(ScaleOffset::getComposition(first, first.getInverse()), ScaleOffset::identity()) << first;
    }
    EXPECT_THAT(ScaleOffset(0, 1).getInverse(), exactly(kInfinity, -kInfinity));
    EXPECT_THAT(ScaleOffset::identity(), exactly(1, 0));
    std::ostringstream out;
    out << ScaleOffset(2, 0) << ' ' << ScaleOffset(-0.5, -3);
    EXPECT_EQ(out.str(), "2*x+0 -0.5*x-3");
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt
