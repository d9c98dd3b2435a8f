// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/statistics/histogram.h"

#include "dravik/adt/testing/random.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt {
namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

static_assert(std::is_nothrow_destructible_v<Histogram> && std::is_copy_assignable_v<Histogram>);
static_assert(std::is_same_v<decltype(Histogram().bins(1)), std::vector<std::int64_t>>);

// Samples that lean on what is hard: a few magnitudes, borders of bins, both zeros, what is no number.
float anySample(Testing::Random& random, float scale) {
    switch (random.between(0, 30)) {
    case 0:
        return random.oneOf({kNaN, kInf, -kInf});
    case 1:
        return random.oneOf({FLT_MIN, -FLT_TRUE_MIN, scale * 1e4f, -scale * 1e7f});
    case 2: {
        float const towards = random.oneOf({-kInf, kInf});  // first, whatever the compiler's order of arguments
        return std::nextafter(scale * static_cast<float>(random.between(-3, 3)), towards);
    }
    default:
        return scale * static_cast<float>(random.between(-400, 600)) / 256.0f;
    }
}

// All that a histogram tells, bit by bit.
void digest(Histogram const& histogram, Testing::Random& random, float scale, std::uint64_t& sum) {
    auto const take = [&](std::uint64_t bits) { sum = (sum ^ bits) * 0x100000001b3; };
    auto const takeFloat = [&](float value) { take(std::isnan(value) ? 1 : std::bit_cast<std::uint32_t>(value)); };
    float low = 0, high = 0;
    histogram.capacity(low, high);
    for (float const value :
         {low, high, histogram.range(), histogram.min(), histogram.max(), histogram.underflowMin(),
          histogram.overflowMax(), histogram.sum(), histogram.mean(), histogram.stddev()}) {
        takeFloat(value);
    }
    for (std::int64_t const count : {histogram.nofSamples(), histogram.underflows(), histogram.overflows()}) {
        take(static_cast<std::uint64_t>(count));
    }
    for (unsigned bin = 0; bin <= histogram.resolution(); ++bin) {
        take(static_cast<std::uint64_t>(histogram.nofSamples(bin)));
    }
    float const from = scale * static_cast<float>(random.between(-20, 5)) / 8;
    float const to = from + scale * static_cast<float>(random.between(0, 40)) / 8;
    for (std::int64_t const count : histogram.bins(random.oneOf({1u, 2u, 7u, 50u}), from, to)) {
        take(static_cast<std::uint64_t>(count));
    }
}

// What is counted of fixed scripts, in one number; and in runs as one by one.
TEST(Histogram, CountsFixedScriptsAlike) {
    Testing::Random random(20031);
    std::uint64_t sum = 0xcbf29ce484222325;
    for (int round = 0; round < 600; ++round) {
        bool const flexible = random.chance(50), placed = !flexible || random.chance(30);
        unsigned const resolution = random.oneOf({1u, 2u, 3u, 10u, 109u, 110u, 1000u, 0u});
        float const scale = random.oneOf({1.0f, 1e-30f, 1e30f, 37.5f, FLT_MAX, 0.0f});
        float const from = scale * random.oneOf({-1.0f, 0.0f, 2.0f}), to = scale * random.oneOf({2.0f, 2.0f, 0.0f});
        Histogram histogram = !placed    ? Histogram(Histogram::flexible, resolution)
                              : flexible ? Histogram(Histogram::flexible, from, to, resolution)
                                         : Histogram(Histogram::fixed, from, to, resolution);
        Histogram oneByOne(histogram);
        // Some rounds have whole blocks inside the bins, some have outsiders everywhere.
        bool const tame = random.chance(40);
        for (int piece = 0; piece < 6; ++piece) {
            std::vector<float> samples(random.oneOf({0u, 1u, 63u, 64u, 65u, 256u, 700u}));
            for (float& sample : samples) {
                sample = random.chance(2) ? random.oneOf({0.0f, -0.0f, 0.0f, kNaN})
                         : tame ? scale * static_cast<float>(random.between(from < 0 ? -255 : 0, 511)) / 256.0f
                                : anySample(random, scale);
                oneByOne.add(sample);
            }
            histogram.add(samples);
            histogram = Histogram(histogram);  // a copy goes on where it was made
        }
        ASSERT_EQ(histogram, oneByOne) << "scale " << scale;
        digest(histogram, random, scale, sum);
    }
    EXPECT_EQ(sum, 0x8fab90c3fc70dec8);
}

std::string printed(Histogram const& histogram) {
    std::ostringstream out;
    out << histogram;
    return out.str();
}

struct CountRow {
    char const* name;
    Histogram histogram;
    std::vector<float> samples;
    char const* text;
};

std::vector<CountRow> countRows() {
    constexpr auto kFixed = Histogram::fixed;
    constexpr auto kFlexible = Histogram::flexible;
    std::vector<std::int64_t> const none(4);
    return {
        {"HalfOpen",
         {kFixed, 0, 10, 10},
         {0, 9.99f, 10, -0.5f, 0x1p31f, kInf, -kInf, kNaN},
         "10 bins over [0,10): 2 samples, 0 to 9.99, mean 4.995, stddev 7.064, 2 below, 3 above"},
        {"GrowsUpAndDownButNotForInfinity",
         {},
         {kInf, 100, 1000, -50000, kInf},
         "10000 bins over [-50300.9,1000.01): 3 samples, -50000 to 1000, mean -16300, stddev 29188.5, 1 below, 1 "
         "above"},
        {"OneTwoThree",
         {},
         {1, 2, 3},
         "10000 bins over [0.99994,3.00027): 3 samples, 1 to 3, mean 2, stddev 1, 0 below, 0 above"},
        {"AllAlike",
         {kFixed, 0, 1, 10},
         std::vector<float>(1000003, 0.1f),
         "10 bins over [0,1): 1000003 samples, 0.1 to 0.1, mean 0.1, stddev 0, 0 below, 0 above"},
        {"NoOverflowOnTheWay",
         {kFixed, 0, 6.9e34f, 10000},
         {0, 1e34f, 5e34f},
         "10000 bins over [0,6.9e+34): 3 samples, 0 to 5e+34, mean 2e+34, stddev 2.64575e+34, 0 below, 0 above"},
        {"WiderThanFloat",
         {kFlexible, -3e38f, 3e38f, 10},
         {-3e38f, 0, 2.9e38f},
         "10 bins over [-3e+38,3e+38): 3 samples, -3e+38 to 2.9e+38, mean -3.33333e+36, stddev 2.95014e+38, 0 below, 0 "
         "above"},
        {"GrowsWiderThanFloat",
         {kFlexible, 2},
         {-3e38f, 3e38f},
         "2 bins over [-3e+38,3e+38): 2 samples, -3e+38 to 3e+38, mean 0, stddev inf, 0 below, 0 above"},
        {"NoRangeBelowFloat",
         {kFlexible, 0, 3e38f, 10},
         {-3e38f, 1e38f, -1e38f},
         "10 bins over [-3e+38,3e+38): 2 samples, -1e+38 to 1e+38, mean 0, stddev 1.41421e+38, 1 below, 0 above"},
        {"HighestFloat",
         {kFixed, FLT_MAX, FLT_MAX, 10},
         {FLT_MAX},
         "10 bins over [3.40282e+38,inf): 1 samples, 3.40282e+38 to 3.40282e+38, mean 3.40282e+38, stddev 0, 0 below, "
         "0 "
         "above"},
        {"InfiniteRange",
         {kFixed, -kInf, kInf, 10},
         {-FLT_MAX, 0, kInf, -kInf},
         "10 bins over [-3.40282e+38,3.40282e+38): 2 samples, -3.40282e+38 to 0, mean -1.70141e+38, stddev "
         "2.40616e+38, 1 "
         "below, 1 above"},
        {"Rebuilt",
         {kFixed, 0, 8, {1, 2, 0, 1}, 3, 2, 0.5f, 7},
         {},
         "4 bins over [0,8): 4 samples, 0.5 to 7, mean 3, stddev 2, 0 below, 0 above"},
        {"RebuiltFromNothing",
         {kFixed, 0, 8, none, 3, 3, kInf, -kInf},
         {1, 3},
         "4 bins over [0,8): 2 samples, 1 to 3, mean 2, stddev 1.41421, 0 below, 0 above"},
        {"RebuiltIsNotWidened",
         {kFixed, 5, 5, {1}, 5, 0, 5, 5},
         {},
         "1 bins over [5,5): 1 samples, 5 to 5, mean 5, stddev 0, 0 below, 0 above"},
        {"RebuiltBackwards",
         {kFixed, 8, 0, {1, 2, std::int64_t{1} << 32}, 3, 3, 0, 8},
         std::vector<float>(300, 16),
         "3 bins over [8,0): 4294967299 samples, 0 to 8, mean 3, stddev 3, 300 below, 0 above"},
    };
}

TEST(Histogram, SaysWhatItCounted) {
    for (CountRow const& row : countRows()) {
        Histogram histogram = row.histogram;
        histogram.add(row.samples);
        EXPECT_EQ(printed(histogram), row.text) << row.name;
    }
}

// Worked out by hand: 8 bins of 0.125, then of 0.25, then of 0.75.
TEST(Histogram, MergesNeighboursWhenItGrows) {
    Histogram histogram(Histogram::flexible, 0, 1, 8);
    histogram.add(std::vector{0.05f, 0.2f, 0.2f, 0.3f, 0.4f, 0.6f, 0.7f, 0.8f, 0.95f});
    using Counts = std::vector<std::int64_t>;
    EXPECT_EQ(histogram.bins(8), (Counts{1, 2, 1, 1, 1, 1, 1, 1}));
    histogram.add(1.0f);
    EXPECT_EQ(histogram.bins(8), (Counts{3, 2, 2, 2, 1, 0, 0, 0})) << "the end itself needs twice the width";
    histogram.add(-2.5f);
    EXPECT_EQ(histogram.bins(8), (Counts{0, 0, 1, 0, 0, 7, 3, 0})) << "by three: 8 bins make 3";
}

TEST(Histogram, ResamplingLosesNothingInsideTheRange) {
    Histogram histogram(Histogram::fixed, -3, 5, 160);
    for (int sample = -3000; sample < 5000; ++sample) {
        histogram.add(static_cast<float>(sample) / 1000);
    }
    for (unsigned const n : {1u, 3u, 159u, 160u, 161u, 1000u}) {
        auto const counts = histogram.bins(n);
        EXPECT_EQ(std::accumulate(counts.begin(), counts.end(), std::int64_t{0}), 8000) << n;
    }
    EXPECT_TRUE(histogram.bins(0).empty());
    using Borders = std::vector<float>;
    EXPECT_EQ(histogram.binBorders(4, 1, 0), (Borders{0, 0.25f, 0.5f, 0.75f, 1}));
    EXPECT_EQ(histogram.binBorders(2), (Borders{-3, 1, 5}));
    EXPECT_EQ(histogram.binBorders(0, 7, 9), Borders{7});
    EXPECT_EQ(histogram.binBorders(-1, 7, 9), Borders());
    EXPECT_NE(histogram.binBorders(10, 0, 1).back(), 1.0f) << "borders are added up in float";
    Histogram vast(Histogram::fixed, -3e38f, 3e38f, 40);
    vast.add(std::vector{-2.9e38f, -1e38f, 1e38f, 2.9e38f});
    EXPECT_EQ(vast.bins(4), (std::vector<std::int64_t>(4, 1)));
    EXPECT_EQ(vast.binBorders(2), (Borders{-3e38f, 0, 3e38f}));
}

TEST(Histogram, MergingAddsWhatBothHaveCounted) {
    Histogram whole(Histogram::fixed, 0, 8, {1, 2}, 3, 1, 1, 7), part(Histogram::fixed, 0, 8, {3, 4}, 5, 2, 0, 8);
    whole.add(std::vector{-1.0f, 20.0f});
    part.add(std::vector{-2.0f, -1.0f});
    part.add(30.0f);
    whole.merge(part);
    EXPECT_EQ(printed(whole), "2 bins over [0,8): 10 samples, 0 to 8, mean 4.4, stddev 1.95505, 3 below, 2 above");
    EXPECT_EQ(whole.bins(2), (std::vector<std::int64_t>{4, 6}));
    EXPECT_EQ(whole.underflowMin(), -2);
    EXPECT_EQ(whole.overflowMax(), 30);
    part.merge(Histogram(Histogram::fixed, 0, 8, {9, 0}, 1, 0, -1, 9));
    EXPECT_EQ(printed(part), "2 bins over [0,8): 16 samples, -1 to 9, mean 2.75, stddev 2.40832, 2 below, 1 above");
}

TEST(Histogram, CountsBeyondThirtyTwoBits) {
    Histogram vast(Histogram::fixed, 0, 1, 2);
    vast.add(std::vector{-1.0f, 0.5f, 2.0f});
    for (int doubling = 0; doubling < 33; ++doubling) {
        vast.merge(vast);
    }
    EXPECT_EQ(
        printed(vast),
        "2 bins over [0,1): 8589934592 samples, 0.5 to 0.5, mean 0.5, stddev 0, 8589934592 below, 8589934592 above");
    EXPECT_EQ(vast.nofSamples(1), std::int64_t{1} << 33);
}

// Histograms of different kinds, resolutions and ranges.
std::vector<Histogram> differentShapes() {
    constexpr auto kFixed = Histogram::fixed;
    Histogram placed;
    placed.add(5);
    return {
        placed,
        {},
        {kFixed, 0, 8, 2},
        {kFixed, 1, 9, 2},
        {kFixed, 0, 9, 2},
        {kFixed, 0, 8, 3},
        {Histogram::flexible, 0, 8, 2},
        {Histogram::flexible, 2}};
}

TEST(Histogram, RefusesToMergeAnotherShape) {
    auto const shapes = differentShapes();
    for (Histogram const& left : shapes) {
        for (Histogram const& right : shapes) {
            Histogram merged = left;
            if (&left != &right) {
                EXPECT_THROW(merged.merge(right), std::invalid_argument) << left << " and " << right;
                EXPECT_EQ(merged, left);
            }
        }
    }
    Histogram placed = shapes[0];
    EXPECT_THAT(
        [&] { placed.merge(shapes[2]); },
        testing::ThrowsMessage<std::invalid_argument>(
            "[Histogram::merge] Invalid argument: kind, resolution or range differs: flexible, 10000 bins over "
            "[4.9997,5.0003) and fixed, 2 bins over [0,8)."));
}

TEST(Histogram, DiffersInOneThingAlone) {
    std::vector<Histogram> different = differentShapes();
    auto const kept = [](std::vector<std::int64_t> const& bins, float mean, float stddev, float min, float max) {
        return Histogram(Histogram::fixed, 0, 8, bins, mean, stddev, min, max);
    };
    for (Histogram const& each :
         {kept({1, 2}, 3, 1, 1, 7), kept({2, 1}, 3, 1, 1, 7), kept({1, 3}, 3, 1, 1, 7), kept({1, 2}, 4, 1, 1, 7),
          kept({1, 2}, 3, 2, 1, 7), kept({1, 2}, 3, 1, 0, 7), kept({1, 2}, 3, 1, 1, 8)}) {
        different.push_back(each);
    }
    for (float const outsider : {-1.0f, -2.0f, 8.0f, 9.0f}) {
        different.push_back(kept({1, 2}, 3, 1, 1, 7));
        different.back().add(outsider);
    }
    for (Histogram const& each : different) {
        EXPECT_EQ(std::count(different.begin(), different.end(), each), 1) << each;
    }
    auto full = kept({1, std::numeric_limits<std::int64_t>::max()}, kNaN, 0, 0, 1);
    EXPECT_EQ(full, Histogram(full)) << "what is no number is the same everywhere";
    full.add(7);
    full.merge(full);
    EXPECT_EQ(full.bins(2), (std::vector<std::int64_t>{2, 0})) << "counts wrap at 64 bits";
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt
