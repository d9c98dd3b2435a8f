// SPDX-License-Identifier: Apache-2.0
// What counting a sample costs, one by one and in runs, beside a plain loop and Boost.Histogram with the same
// statistics.

#include "report.h"

#include "dravik/adt/statistics/histogram.h"

#include <boost/histogram.hpp>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace Quorvel::Dravik::Adt::Benchmarks {
namespace {

constexpr float kLow = -5;
constexpr float kHigh = 5;
constexpr std::size_t kSamples = std::size_t{1} << 20;

struct Statistics {
    std::int64_t count = 0;
    double sum = 0;
    double squares = 0;
    float min = std::numeric_limits<float>::infinity();
    float max = -std::numeric_limits<float>::infinity();

    void add(float value) {
        ++count;
        sum += static_cast<double>(value);
        squares += static_cast<double>(value) * static_cast<double>(value);
        min = value < min ? value : min;
        max = value > max ? value : max;
    }
    std::uint64_t checksum() const { return checksumOf(static_cast<float>(sum), count, min, max); }

    static std::uint64_t checksumOf(float sum, std::int64_t count, float min, float max) {
        return (std::uint64_t{std::bit_cast<std::uint32_t>(sum)} << 32) + static_cast<std::uint64_t>(count) +
               std::bit_cast<std::uint32_t>(min) + std::bit_cast<std::uint32_t>(max);
    }
};

std::uint64_t checksumOf(Histogram const& histogram) {
    return Statistics::checksumOf(histogram.sum(), histogram.nofSamples(), histogram.min(), histogram.max());
}

// What one writes without a library.
std::uint64_t plainLoop(std::vector<float> const& samples, unsigned resolution) {
    std::vector<std::int64_t> bins(resolution);
    float const density = static_cast<float>(resolution) / (kHigh - kLow);
    auto const end = static_cast<float>(resolution);
    std::int64_t below = 0;
    std::int64_t above = 0;
    Statistics statistics;
    for (float const value : samples) {
        float const place = (value - kLow) * density;
        if (place >= 0 && place < end) {
            ++bins[static_cast<std::size_t>(place)];
            statistics.add(value);
        } else if (place < 0) {
            ++below;
        } else if (place >= end) {
            ++above;
        }
    }
    // Counts that nobody looked at would not be counted.
    return statistics.checksum() + (bins[resolution / 2] + below + above < 0 ? 1 : 0);
}

std::uint64_t boostHistogram(std::vector<float> const& samples, unsigned resolution) {
    namespace bh = boost::histogram;
    auto histogram =
        bh::make_histogram_with(std::vector<std::int64_t>(), bh::axis::regular<float>(resolution, kLow, kHigh));
    Statistics statistics;
    for (float const value : samples) {
        if (histogram(value); value >= kLow && value < kHigh) {
            statistics.add(value);
        }
    }
    return statistics.checksum();
}

// What one cannot do without: the sums, in the order of the samples.
std::uint64_t statisticsAlone(std::vector<float> const& samples) {
    Statistics statistics;
    for (float const value : samples) {
        if (value >= kLow && value < kHigh) {
            statistics.add(value);
        }
    }
    return statistics.checksum();
}

constexpr char const* kSumsInOrder =
    "the sums are formed in the order of the samples, as adding one by one does, so each addition waits for the one "
    "before: a loop that does nothing else takes as long.";
constexpr char const* kSortedOut =
    "every second block of 64 has a sample that lies outside or is no number, and is sorted out before it is counted.";
constexpr char const* kPutAside =
    "a sample is first put aside, and counted in a run of 256: that costs a store and a test.";

void compete(Report& report, std::string const& title, std::vector<float> const& samples, unsigned resolution) {
    bool const isTame = std::all_of(samples.begin(), samples.end(), [](float v) { return std::isfinite(v); });
    Contest contest(title);
    contest.enter("plain loop", [&] { return plainLoop(samples, resolution); });
    contest.enter("add, a run at a time", [&] {
        Histogram histogram(Histogram::fixed, kLow, kHigh, resolution);
        histogram.add(samples);
        return checksumOf(histogram);
    });
    contest.enter("add, one by one", [&] {
        Histogram histogram(Histogram::fixed, kLow, kHigh, resolution);
        for (float const value : samples) {
            histogram.add(value);
        }
        return checksumOf(histogram);
    });
    contest.enter("flexible, a run at a time", [&] {
        Histogram histogram(Histogram::flexible, kLow, kHigh, resolution);
        histogram.add(samples);
        return checksumOf(histogram);
    });
    contest.enter("statistics alone", [&] { return statisticsAlone(samples); });
    contest.enter("Boost.Histogram and the statistics", [&] { return boostHistogram(samples, resolution); });
    contest.run();
    report.ratio(contest, "add, a run at a time", "plain loop", {0.6, isTame ? kSumsInOrder : kSortedOut});
    report.ratio(contest, "add, a run at a time", "statistics alone");
    report.ratio(contest, "add, a run at a time", "Boost.Histogram and the statistics");
    report.ratio(contest, "flexible, a run at a time", "plain loop");
    report.ratio(contest, "add, one by one", "plain loop", {1, kPutAside});
    report.ratio(contest, "add, one by one", "Boost.Histogram and the statistics", {0.9, kPutAside});
}

// Normally distributed; `wild` of a million lie outside, half of them not a number.
std::vector<float> samplesWith(int wild) {
    std::mt19937 engine(20031);
    std::normal_distribution<float> values(0, 1);
    std::uniform_int_distribution<int> draw(0, 999999);
    std::vector<float> samples(kSamples);
    for (float& sample : samples) {
        sample = std::clamp(values(engine), -4.9f, 4.9f);
        if (int const lot = draw(engine); lot < wild) {
            sample = lot % 2 == 0 ? std::numeric_limits<float>::quiet_NaN() : std::numeric_limits<float>::infinity();
        }
    }
    return samples;
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Benchmarks

int main() {
    using namespace Quorvel::Dravik::Adt::Benchmarks;
    Report report("Histograms", "2²⁰ samples counted, with their sum, sum of squares and extremes.");
    auto const tame = samplesWith(0);
    compete(report, "256 bins", tame, 256);
    compete(report, "10 000 bins", tame, 10000);
    compete(report, "10 000 bins, one in a hundred outside or missing", samplesWith(10000), 10000);
}
