// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/statistics/histogram.h"

#include "dravik/adt/core/detail/hash.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

namespace Quorvel::Dravik::Adt {
namespace {

constexpr unsigned kDefaultResolution = 10000;

Detail::HistogramTally tallyOf(bool flexible, std::size_t resolution) {
    Detail::HistogramTally tally;
    tally.flexible = flexible;
    tally.bins.resize(resolution == 0 ? kDefaultResolution : resolution);
    return tally;
}

// The width of each of `n` bins, also where that of all together is beyond float.
float stepOf(float low, float high, float n) noexcept {
    float const width = high - low;
    return std::isinf(width)
               ? static_cast<float>((static_cast<double>(high) - static_cast<double>(low)) / static_cast<double>(n))
               : width / n;
}

// Where the bin before place `n` ends, shifted by `half`; added up in double where float is left on the way.
float borderOf(float n, float step, float low, float half) noexcept {
    float const border = n * step + low + half;
    return std::isfinite(border) ? border
                                 : static_cast<float>(
                                       static_cast<double>(n) * static_cast<double>(step) + static_cast<double>(low) +
                                       static_cast<double>(half));
}

std::string shapeOf(Histogram const& histogram) {
    float low = 0;
    float high = 0;
    histogram.capacity(low, high);
    std::ostringstream out;
    out << (histogram.isFlexible() ? "flexible, " : "fixed, ") << histogram.resolution() << " bins over [" << low << ","
        << high << ")";
    return std::move(out).str();
}

// Counts given from elsewhere may be of any size: their sum wraps.
std::int64_t sumOf(std::int64_t left, std::int64_t right) noexcept {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(left) + static_cast<std::uint64_t>(right));
}

}  // namespace

Histogram::Histogram(Flexible, unsigned resolution) : tally_(tallyOf(/*flexible=*/true, resolution)) {}

Histogram::Histogram(Flexible, float low, float high, unsigned resolution) : Histogram(flexible, resolution) {
    tally_.placeFlexible(low, high);
}

Histogram::Histogram(Fixed, float low, float high, unsigned resolution)
    : tally_(tallyOf(/*flexible=*/false, resolution)) {
    tally_.placeFixed(low, high);
}

Histogram::Histogram(
    Fixed, float low, float high, std::vector<std::int64_t> const& bins, float mean, float stddev, float min,
    float max) {
    tally_.flexible = false;
    tally_.bins = bins;
    tally_.setRange(low, high);
    tally_.inside.minimum = min;
    tally_.inside.maximum = max;
    tally_.inside.count = std::accumulate(bins.begin(), bins.end(), std::int64_t{0}, sumOf);
    if (tally_.inside.count != 0) {
        double const count = static_cast<double>(tally_.inside.count);
        double const deviation = stddev;
        tally_.inside.sum = count * static_cast<double>(mean);
        tally_.inside.squares = tally_.inside.sum * tally_.inside.sum / count + deviation * deviation * (count - 1);
    }
}

void Histogram::settle() const noexcept {
    tally_.add(pending_, std::exchange(pendingCount_, 0));
}

void Histogram::add(float const* first, std::size_t count) {
    settle();
    tally_.add(first, count);
}

void Histogram::merge(Histogram const& other) {
    settle();
    auto const& more = other.tally();
    if (!tally_.isLaidOutAs(more)) {
        throw std::invalid_argument(
            "[Histogram::merge] Invalid argument: kind, resolution or range differs: " + shapeOf(*this) + " and " +
            shapeOf(other) + ".");
    }
    std::transform(more.bins.begin(), more.bins.end(), tally_.bins.begin(), tally_.bins.begin(), sumOf);
    tally_.inside.count = sumOf(tally_.inside.count, more.inside.count);
    tally_.inside.minimum = std::min(tally_.inside.minimum, more.inside.minimum);
    tally_.inside.maximum = std::max(tally_.inside.maximum, more.inside.maximum);
    tally_.underflows += more.underflows;
    tally_.overflows += more.overflows;
    tally_.underflowMinimum = std::min(tally_.underflowMinimum, more.underflowMinimum);
    tally_.overflowMaximum = std::max(tally_.overflowMaximum, more.overflowMaximum);
    tally_.inside.sum += more.inside.sum;
    tally_.inside.squares += more.inside.squares;
}

bool operator==(Histogram const& left, Histogram const& right) {
    return left.tally() == right.tally();
}

std::int64_t Histogram::nofSamples(unsigned bin) const {
    auto const& bins = tally().bins;
    return bin < bins.size() ? bins[bin] : 0;
}

float Histogram::mean() const {
    auto const& tally = this->tally();
    return tally.inside.count == 0 ? 0 : static_cast<float>(tally.inside.sum / static_cast<double>(tally.inside.count));
}

float Histogram::stddev() const {
    auto const& tally = this->tally();
    if (tally.inside.count < 2) {
        return 0;
    }
    double const count = static_cast<double>(tally.inside.count);
    double const variance = (tally.inside.squares - tally.inside.sum * tally.inside.sum / count) / (count - 1);
    // Rounding may leave a little less than nothing of samples that are all alike.
    return variance < 0 ? 0 : static_cast<float>(std::sqrt(variance));
}

float Histogram::underflowMin() const {
    return std::min(tally().underflowMinimum, tally().inside.minimum);
}

float Histogram::overflowMax() const {
    return std::max(tally().overflowMaximum, tally().inside.maximum);
}

float Histogram::range() const {
    return static_cast<float>(resolution()) / tally().density;
}

void Histogram::capacity(float& low, float& high) const {
    low = tally().origin;
    high = low + range();
    if (tally().isVast) {
        high = static_cast<float>(low + resolution() / static_cast<double>(tally().density));
    }
}

std::vector<std::int64_t> Histogram::bins(unsigned n, float low, float high) const {
    std::vector<std::int64_t> counts(n);
    if (high < low) {
        std::swap(low, high);
    }
    auto const& tally = this->tally();
    float const step = stepOf(low, high, static_cast<float>(n));
    float const half = 1 / (2 * tally.density);
    std::size_t start = tally.nearestBin(low);
    for (unsigned target = 0; target < n; ++target) {
        float border = borderOf(static_cast<float>(target + 1), step, low, half);
        if (target + 1 == n) {
            border += half;
        }
        std::size_t const end = tally.nearestBin(border);
        for (std::size_t bin = start; bin < end; ++bin) {
            counts[target] = sumOf(counts[target], tally.bins[bin]);
        }
        start = end;
    }
    return counts;
}

std::vector<std::int64_t> Histogram::bins(unsigned n) const {
    float low = 0;
    float high = 0;
    capacity(low, high);
    return bins(n, low, high);
}

std::vector<float> Histogram::binBorders(int n, float low, float high) const {
    if (n < 0) {
        return {};
    }
    if (high < low) {
        std::swap(low, high);
    }
    float const step = stepOf(low, high, static_cast<float>(n));
    std::vector<float> borders(static_cast<std::size_t>(n) + 1, low);
    for (std::size_t border = 1; border < borders.size(); ++border) {
        borders[border] = borders[border - 1] + step;
    }
    return borders;
}

std::vector<float> Histogram::binBorders(int n) const {
    float low = 0;
    float high = 0;
    capacity(low, high);
    return binBorders(n, low, high);
}

}  // namespace Quorvel::Dravik::Adt

std::size_t std::hash<Quorvel::Dravik::Adt::Histogram>::operator()(
    Quorvel::Dravik::Adt::Histogram const& histogram) const {
    return Quorvel::Dravik::Adt::Detail::hashOf(
        histogram.resolution(), histogram.nofSamples(), histogram.sum(), histogram.min(), histogram.max(),
        histogram.underflows(), histogram.overflows());
}
