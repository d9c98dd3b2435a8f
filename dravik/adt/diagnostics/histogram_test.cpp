#include "dravik/adt/diagnostics/histogram.h"

#include "dravik/adt/testing/random.h"

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
#include <type_traits>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt {
namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

static_assert(std::is_nothrow_destructible_v<Histogram> && std::is_copy_assignable_v<Histogram>);
static_assert(std::is_same_v<decltype(Histogram().bins(1)), std::vector<std::int64_t>>);

// One sample at a time, every bin looked at on every occasion, in the same float steps.
struct Model {
    bool flexible;
    std::vector<std::int64_t> bins;
    float origin = kNaN, density = kNaN;
    std::uint32_t count = 0, below = 0, above = 0;
    float min = kInf, max = -kInf, belowMin = kInf, aboveMax = -kInf;
    double sum = 0, squares = 0;

    void place(float low, float high, float places) {
        float const middle = (low + high) * 0.5f;
        float half = 0.5f * places * std::fmax(std::fabs(low), std::fabs(high)) * 1.1920928955078125e-07f;
        half = std::fmax(half, FLT_MIN);
        low = std::fmin(low, middle - half);
        high = std::fmax(high, middle + half);
        origin = low;
        density = static_cast<float>(bins.size()) / (high - low);
        density = flexible && !std::isfinite(density) ? FLT_MAX : density;
    }

    // The bin as a whole number that may lie anywhere.
    double index(float value) const {
        float const place = (value - origin) * density;
        double const whole = std::isnan(place) ? -2147483648.0 : std::trunc(static_cast<double>(place));
        return value < origin && whole > -2147483648.0 ? whole - 1 : whole;
    }

    bool outside(float value) const { return index(value) < 0 || index(value) >= static_cast<double>(bins.size()); }

    void grow(float value) {
        if (std::isnan(origin)) {
            std::size_t const tenth = bins.size() / 10;
            place(value, value, static_cast<float>(tenth < 11 ? 10 : tenth));
            return;
        }
        bool const down = index(value) < 0;
        double const width = static_cast<double>(bins.size()) / static_cast<double>(density);
        double reach = (static_cast<double>(value) - static_cast<double>(origin)) / width;
        reach = reach < 0 ? 1 - reach : reach;
        double const factor = std::ceil(reach * 1.0000001192092896);
        double const limited = std::fmin(std::fmax(factor, 1), 4294967295.0);
        std::size_t const step = static_cast<std::size_t>(limited);
        std::size_t const merged = (bins.size() + step - 1) / step;
        std::vector<std::int64_t> grown(bins.size());
        for (std::size_t bin = 0; bin < bins.size(); ++bin) {
            grown[bin / step + (down ? bins.size() - merged : 0)] += bins[bin];
        }
        bins = grown;
        if (down) {
            origin = static_cast<float>(static_cast<double>(origin) - (std::fmax(factor, 1) - 1) * width);
        }
        density = static_cast<float>(static_cast<double>(density) / std::fmax(factor, 1));
    }

    void add(float value) {
        if (std::isnan(value)) {
            return;
        }
        if (flexible && std::isfinite(value) && outside(value)) {
            grow(value);
        }
        if (index(value) < 0) {
            ++below;
            belowMin = value < belowMin ? value : belowMin;
        } else if (outside(value)) {
            ++above;
            aboveMax = value > aboveMax ? value : aboveMax;
        } else {
            ++bins[static_cast<std::size_t>(index(value))];
            ++count;
            min = value < min ? value : min;
            max = value > max ? value : max;
            sum += static_cast<double>(value);
            squares += static_cast<double>(value) * static_cast<double>(value);
        }
    }

    // Every old bin by itself: the first new bin whose border lies beyond it takes it.
    std::vector<std::int64_t> resampled(unsigned n, float low, float high) const {
        std::vector<std::int64_t> counts(n);
        float const step = (high - low) / static_cast<float>(n);
        float const half = 1.0f / (2.0f * density);
        for (std::size_t bin = 0; bin < bins.size(); ++bin) {
            auto const isBefore = [&](float border) { return static_cast<double>(bin) < index(border); };
            unsigned target = 0;
            while (target < n && !isBefore(
                                     target + 1 < n ? static_cast<float>(target + 1) * step + low + half
                                                    : static_cast<float>(n) * step + low + half + half)) {
                ++target;
            }
            if (target < n && !isBefore(low)) {
                counts[target] += bins[bin];
            }
        }
        return counts;
    }
};

std::uint32_t bits(float value) {
    return std::bit_cast<std::uint32_t>(value);
}

void expectSame(Histogram const& histogram, Model const& model) {
    ASSERT_EQ(histogram.nofSamples(), model.count);
    ASSERT_EQ(histogram.underflows(), model.below);
    ASSERT_EQ(histogram.overflows(), model.above);
    ASSERT_EQ(bits(histogram.min()), bits(model.min));
    ASSERT_EQ(bits(histogram.max()), bits(model.max));
    ASSERT_EQ(histogram.underflowMin(), std::fmin(model.belowMin, model.min));
    ASSERT_EQ(histogram.overflowMax(), std::fmax(model.aboveMax, model.max));
    ASSERT_EQ(bits(histogram.sum()), bits(static_cast<float>(model.sum)));
    if (model.count > 1) {
        double const count = model.count;
        double const variance = (model.squares - model.sum * model.sum / count) / (count - 1);
        ASSERT_EQ(histogram.mean(), static_cast<float>(model.sum / count));
        ASSERT_EQ(histogram.stddev(), static_cast<float>(std::sqrt(std::fmax(variance, 0))));
    }
    float low = 0;
    float high = 0;
    histogram.capacity(low, high);
    ASSERT_TRUE(low == model.origin || (std::isnan(low) && std::isnan(model.origin)));
    ASSERT_EQ(bits(histogram.range()), bits(static_cast<float>(model.bins.size()) / model.density));
    for (unsigned bin = 0; bin < model.bins.size(); ++bin) {
        ASSERT_EQ(histogram.nofSamples(bin), model.bins[bin]) << "bin " << bin;
    }
}

// Samples that lean on what is hard: a few magnitudes, borders of bins, both zeros, what is no number.
float anySample(Testing::Random& random, float scale) {
    switch (random.between(0, 30)) {
    case 0:
        return random.oneOf({kNaN, kInf, -kInf});
    case 1:
        return random.oneOf({0.0f, -0.0f});
    case 2:
        return random.oneOf({FLT_MIN, -FLT_TRUE_MIN, scale * 1e4f, -scale * 1e7f});
    case 3:
    case 4:
        return std::nextafter(scale * static_cast<float>(random.between(-3, 3)), random.oneOf({-kInf, kInf}));
    default:
        return scale * static_cast<float>(random.between(-400, 600)) / 256.0f;
    }
}

TEST(Histogram, CountsAsTheModelDoesSampleBySampleAndInRuns) {
    Testing::Random random;
    for (int round = 0; round < 400; ++round) {
        bool const flexible = random.chance(50);
        unsigned const resolution = random.oneOf({1u, 2u, 3u, 10u, 109u, 110u, 1000u});
        float const scale = random.oneOf({1.0f, 1e-30f, 1e30f, 37.5f});
        Histogram histogram = flexible ? Histogram(Histogram::flexible, resolution)
                                       : Histogram(Histogram::fixed, -scale, scale * 2, resolution);
        Model model{flexible, std::vector<std::int64_t>(resolution)};
        if (!flexible) {
            model.place(-scale, scale * 2, static_cast<float>(resolution));
        }
        // Some rounds have whole blocks inside the bins, some have outsiders everywhere.
        bool const tame = random.chance(40);
        for (int piece = 0; piece < 6; ++piece) {
            std::vector<float> samples(random.oneOf({0u, 1u, 63u, 64u, 65u, 256u, 700u}));
            for (float& sample : samples) {
                sample =
                    tame ? scale * static_cast<float>(random.between(-255, 511)) / 256.0f : anySample(random, scale);
                model.add(sample);
            }
            if (random.chance(50)) {
                histogram.add(samples);
            } else {
                std::for_each(samples.begin(), samples.end(), [&](float sample) { histogram.add(sample); });
            }
        }
        expectSame(histogram, model);
        if (HasFatalFailure()) {
            FAIL() << (flexible ? "flexible " : "fixed ") << resolution << " bins, scale " << scale;
        }
        float const low = scale * static_cast<float>(random.between(-20, 5)) / 8;
        float const high = low + scale * static_cast<float>(random.between(0, 40)) / 8;
        unsigned const n = random.oneOf({1u, 2u, 7u, 50u});
        ASSERT_EQ(histogram.bins(n, low, high), model.resampled(n, low, high)) << n << " over " << low << "," << high;
        ASSERT_EQ(histogram.bins(n, high, low), histogram.bins(n, low, high));
    }
}

TEST(Histogram, FixedRangeIsHalfOpenAndKeepsOutsidersApart) {
    Histogram histogram(Histogram::fixed, 0, 10, 10);
    for (float const sample : {0.0f, 9.99f, 10.0f, -0.5f, 0x1p31f, kInf, -kInf, kNaN}) {
        histogram.add(sample);
    }
    EXPECT_EQ(histogram.nofSamples(0), 1u);
    EXPECT_EQ(histogram.nofSamples(9), 1u);
    EXPECT_EQ(histogram.nofSamples(histogram.resolution()), 0u);
    EXPECT_EQ(histogram.nofSamples(), 2u);
    EXPECT_EQ(histogram.underflows(), 2u);
    EXPECT_EQ(histogram.overflows(), 3u);
    EXPECT_EQ(histogram.underflowMin(), -kInf);
    EXPECT_EQ(histogram.overflowMax(), kInf);
    EXPECT_EQ(Histogram(Histogram::fixed, 10, 0, 10), Histogram(Histogram::fixed, 0, 10, 10));
}

TEST(Histogram, NarrowRangesAreWidenedToWhatFloatCanTell) {
    struct Row {
        char const* name;
        Histogram histogram;
        float range;
    };
    Row const rows[] = {
        {"FixedPoint", {Histogram::fixed, 8, 8, 16}, 8 * 16 * 0x1p-23f},
        {"FixedAtZero", {Histogram::fixed, 0, 0, 4}, 2 * FLT_MIN},
        {"FixedWideEnough", {Histogram::fixed, 8, 9, 16}, 1},
        {"FlexibleOfFewBins", {Histogram::flexible, 8, 8, 109}, 8 * 10 * 0x1p-23f},
        {"FlexibleOfManyBins", {Histogram::flexible, 8, 8, 160}, 8 * 16 * 0x1p-23f},
    };
    for (Row const& row : rows) {
        EXPECT_NEAR(row.histogram.range() / row.range, 1, 0.02) << row.name;
    }
    Histogram point(Histogram::fixed, 5, 5, 0);
    EXPECT_EQ(point.resolution(), 10000u);
    point.add(5);
    EXPECT_EQ(point.nofSamples(), 1u);
    Histogram tiny(Histogram::flexible, 0, 0, 10000);
    EXPECT_EQ(tiny.range(), 10000 / FLT_MAX) << "the density of a flexible histogram stays finite";
}

TEST(Histogram, FlexibleRangeGrowsToTheSideOfTheSampleOnly) {
    Histogram histogram;
    histogram.add(kInf);
    EXPECT_EQ(histogram.underflows(), 1u) << "there is nothing to be above of before the first finite sample";
    histogram.add(100);
    float low = 0;
    float high = 0;
    histogram.capacity(low, high);
    EXPECT_TRUE(low < 100 && 100 < high && high - low < 0.02f);
    EXPECT_EQ(histogram.min(), 100.0f);

    histogram.add(1000);
    float grownLow = 0;
    float grownHigh = 0;
    histogram.capacity(grownLow, grownHigh);
    EXPECT_EQ(grownLow, low);
    EXPECT_GT(grownHigh, 1000);
    histogram.add(-50000);
    float const before = grownHigh;
    histogram.capacity(grownLow, grownHigh);
    EXPECT_NEAR(grownHigh, before, 0.1f);
    EXPECT_LT(grownLow, -50000);
    histogram.add(kInf);
    EXPECT_EQ(histogram.nofSamples(), 3u);
    EXPECT_EQ(histogram.overflows(), 1u);
    EXPECT_EQ(histogram.underflows(), 1u);
    auto const counts = histogram.bins(histogram.resolution());
    EXPECT_EQ(std::accumulate(counts.begin(), counts.end(), std::int64_t{0}), 3);
}

// A copy of what is inside after each step of growth that was worked out by hand: 8 bins of 0.125, then of 0.25, ...
TEST(Histogram, MergesNeighboursWhenItGrows) {
    Histogram histogram(Histogram::flexible, 0, 1, 8);
    std::vector<float> const eighths{0.05f, 0.2f, 0.2f, 0.3f, 0.4f, 0.6f, 0.7f, 0.8f, 0.95f};
    histogram.add(eighths);
    auto const counts = [&] {
        std::vector<std::uint32_t> all;
        for (unsigned bin = 0; bin < 8; ++bin) {
            all.push_back(histogram.nofSamples(bin));
        }
        return all;
    };
    EXPECT_EQ(counts(), (std::vector<std::uint32_t>{1, 2, 1, 1, 1, 1, 1, 1}));
    histogram.add(1.0f);
    EXPECT_EQ(counts(), (std::vector<std::uint32_t>{3, 2, 2, 2, 1, 0, 0, 0})) << "the end itself needs twice the width";
    histogram.add(-2.5f);
    EXPECT_EQ(counts(), (std::vector<std::uint32_t>{0, 0, 1, 0, 0, 7, 3, 0})) << "by three: 8 bins make 3";
    EXPECT_EQ(histogram.range(), 6.0f);
}

TEST(Histogram, ResamplingLosesNothingInsideTheRange) {
    Testing::Random random;
    Histogram histogram(Histogram::fixed, -3, 5, 160);
    for (int sample = 0; sample < 5000; ++sample) {
        histogram.add(static_cast<float>(random.between(-3000, 4999)) / 1000);
    }
    for (unsigned const n : {1u, 3u, 159u, 160u, 161u, 1000u}) {
        auto const counts = histogram.bins(n);
        EXPECT_EQ(std::accumulate(counts.begin(), counts.end(), std::int64_t{0}), 5000) << n;
    }
    EXPECT_TRUE(histogram.bins(0).empty());
    EXPECT_EQ(histogram.binBorders(4, 1, 0), (std::vector<float>{0, 0.25f, 0.5f, 0.75f, 1}));
    EXPECT_EQ(histogram.binBorders(2), (std::vector<float>{-3, 1, 5}));
    EXPECT_EQ(histogram.binBorders(0, 7, 9), std::vector<float>{7});
    EXPECT_TRUE(histogram.binBorders(-1, 7, 9).empty());
    auto const many = histogram.binBorders(10, 0, 1);
    EXPECT_NE(many.back(), 1.0f) << "borders are added up in float";
}

TEST(Histogram, RebuiltOneGivesBackWhatWasKept) {
    Histogram histogram(Histogram::fixed, 0, 8, 64);
    for (float const sample : {1.0f, 2.0f, 3.0f, 3.5f, 7.75f}) {
        histogram.add(sample);
    }
    Histogram const rebuilt(
        Histogram::fixed, 0, 8, histogram.bins(64), histogram.mean(), histogram.stddev(), histogram.min(),
        histogram.max());
    EXPECT_EQ(rebuilt.nofSamples(), 5u);
    EXPECT_EQ(rebuilt.mean(), histogram.mean());
    EXPECT_EQ(rebuilt.stddev(), histogram.stddev());
    EXPECT_EQ(rebuilt.min(), 1.0f);
    EXPECT_EQ(rebuilt.max(), 7.75f);
    EXPECT_EQ(rebuilt.bins(64), histogram.bins(64));

    Histogram empty(Histogram::fixed, 0, 8, std::vector<std::int64_t>(4), 3, 3, kInf, -kInf);
    EXPECT_EQ(empty.mean() + empty.stddev() + empty.sum(), 0.0f);
    empty.add(1);
    empty.add(3);
    EXPECT_EQ(empty.stddev(), std::sqrt(2.0f));
    EXPECT_EQ(Histogram(Histogram::fixed, 5, 5, {1}, 5, 0, 5, 5).range(), 0.0f) << "no widening";
    Histogram backwards(Histogram::fixed, 8, 0, {1, 2, std::int64_t{1} << 32}, 3, 3, 0, 8);
    EXPECT_EQ(backwards.nofSamples(), 3u) << "counts wrap at 32 bits";
    std::vector<float> const samples(300, 16.0f);
    backwards.add(samples);
    EXPECT_EQ(backwards.underflows(), 300u);

    Histogram full(Histogram::fixed, 0, 1, {std::numeric_limits<std::int64_t>::max()}, std::nanf(""), 0, 0, 1);
    EXPECT_EQ(full, Histogram(full)) << "what is no number is the same everywhere";
    full.add(0.5f);
    full.merge(full);
    EXPECT_EQ(full.bins(1).front(), 0) << "counts wrap at 64 bits";
}

TEST(Histogram, OfTwoZerosTheOneThatCameFirstIsTheEnd) {
    std::vector<float> samples(256, 1.0f);
    samples[5] = -0.0f;
    samples[8] = 0.0f;
    Histogram inRuns(Histogram::fixed, 0, 10, 10);
    inRuns.add(samples);
    samples[5] = 0.0f;
    inRuns.add(samples);
    EXPECT_TRUE(std::signbit(inRuns.min()));
    Histogram oneByOne(Histogram::fixed, 0, 10, 10);
    oneByOne.add(0.0f);
    oneByOne.add(-0.0f);
    EXPECT_FALSE(std::signbit(oneByOne.min()) || std::signbit(oneByOne.max()));
}

TEST(Histogram, SpreadOfEqualSamplesIsNoLessThanNothing) {
    Histogram histogram(Histogram::fixed, 0, 1, 10);
    std::vector<float> const alike(1000003, 0.1f);
    histogram.add(alike);
    EXPECT_GE(histogram.stddev(), 0.0f);
    EXPECT_LT(histogram.stddev(), 1e-3f);
    Histogram three;
    for (float const sample : {1.0f, 2.0f, 3.0f}) {
        EXPECT_EQ(three.stddev() + three.mean(), sample == 1 ? 0.0f : sample == 2 ? 1.0f : 1.5f + std::sqrt(0.5f));
        three.add(sample);
    }
    EXPECT_EQ(three.mean(), 2.0f);
    EXPECT_EQ(three.stddev(), 1.0f);
}

TEST(Histogram, MergingAddsWhatPartsHaveCounted) {
    Testing::Random random;
    Histogram whole(Histogram::fixed, 0, 100, 50);
    Histogram parts[3] = {whole, whole, whole};
    for (int sample = 0; sample < 3000; ++sample) {
        auto const value = static_cast<float>(random.between(-20, 120));
        whole.add(value);
        parts[sample % 3].add(value);
    }
    for (auto const& [part, outsider] : {std::pair(1, -900.0f), std::pair(2, 900.0f)}) {
        whole.add(outsider);
        parts[part].add(outsider);
    }
    Histogram const first = parts[0];
    parts[0].merge(parts[1]);
    parts[0].merge(parts[2]);
    EXPECT_EQ(parts[0], whole) << "whole numbers add up exactly in any order";
    EXPECT_EQ(whole.overflowMax(), 900.0f);
    EXPECT_NE(parts[0], first);
    EXPECT_EQ(std::hash<Histogram>()(parts[0]), std::hash<Histogram>()(whole));
    Histogram const before = whole;
    for (Histogram const& other :
         {Histogram(Histogram::fixed, 0, 100, 51), Histogram(Histogram::fixed, 0, 101, 50),
          Histogram(Histogram::flexible, 0, 100, 50), Histogram(Histogram::flexible, 50)}) {
        EXPECT_THROW(whole.merge(other), std::invalid_argument) << other;
    }
    EXPECT_EQ(whole, before);
    Histogram unplaced;
    unplaced.merge(Histogram());
    EXPECT_EQ(unplaced, Histogram());
}

TEST(Histogram, CopiesGoTheirOwnWayAndKeepTheirKind) {
    Histogram original;
    original.add(1);
    Histogram copy = original;
    copy = *&copy;
    copy.add(1000);
    EXPECT_EQ(original.nofSamples(), 1u);
    EXPECT_EQ(copy.nofSamples(), 2u);
    EXPECT_EQ(copy.overflows(), 0u) << "it still grows";
    EXPECT_NE(original, copy);
    std::ostringstream out;
    Histogram printed(Histogram::fixed, 0, 10, 10);
    printed.add(4);
    printed.add(12);
    out << printed;
    EXPECT_EQ(out.str(), "10 bins over [0,10): 1 samples, 4 to 4, mean 4, stddev 0, 0 below, 1 above");
}

TEST(Histogram, SurvivesRangesAtTheEndsOfFloat) {
    for (float const first : {FLT_MAX, -FLT_MAX, 1e36f, FLT_TRUE_MIN}) {
        Histogram histogram;
        for (float const sample : {first, -first, 0.0f, FLT_MAX, -FLT_MAX}) {
            histogram.add(sample);
        }
        EXPECT_EQ(histogram.nofSamples() + histogram.underflows() + histogram.overflows(), 5u) << first;
    }
    Histogram endless(Histogram::flexible, -kInf, 3, 10);
    endless.add(5);
    EXPECT_EQ(endless.nofSamples() + endless.underflows() + endless.overflows(), 1u);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt
