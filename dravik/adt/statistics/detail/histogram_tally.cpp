// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/statistics/detail/histogram_tally.h"

#include <algorithm>
#include <bit>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <numeric>
#include <tuple>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Quorvel::Dravik::Adt::Detail {
namespace {

// Four samples side by side. Every operation on them rounds as the same operation on one.
using Floats [[gnu::vector_size(16)]] = float;
using Ints [[gnu::vector_size(16)]] = int;

constexpr std::size_t kLanes = 4;
// Few enough for the processor to look at the next block while it still adds up this one.
constexpr std::size_t kBlock = 64;

Floats loaded(float const* samples) noexcept {
    Floats floats;
    std::memcpy(&floats, samples, sizeof floats);
    return floats;
}

// The ends of a range; the upper one may lie beyond float.
using Ends = std::pair<float, double>;

// Widens a range until float can tell `binCount` places in it apart. Infinite ends become the ends of float.
Ends widened(float low, float high, unsigned binCount) noexcept {
    if (high < low) {
        std::swap(low, high);
    }
    low = std::clamp(low, -FLT_MAX, FLT_MAX);
    high = std::clamp(high, -FLT_MAX, FLT_MAX);
    float const middle = static_cast<float>((static_cast<double>(low) + static_cast<double>(high)) * 0.5);
    float const magnitude = std::max(std::abs(low), std::abs(high));
    // The power of two first: the product of the others may overflow.
    float half = 0.5f * 0x1p-23f * static_cast<float>(binCount) * magnitude;
    half = half < FLT_MIN ? FLT_MIN : half;
    float const upper = middle + half;
    return {
        std::max(std::min(low, middle - half), -FLT_MAX),
        std::isinf(upper) ? static_cast<double>(middle) + static_cast<double>(half) : std::max(high, upper)};
}

// Equal, or both not a number.
bool isSame(double left, double right) noexcept {
    return left == right || (std::isnan(left) && std::isnan(right));
}

// Lowest and highest of a block, and whether all of it are numbers. Where both zeros are the lowest or the highest,
// either may be given.
struct BlockEnds {
    explicit BlockEnds(float const* samples) noexcept {
        Floats low = loaded(samples);
        Floats high = low;
        Ints missing{};
        for (std::size_t at = 0; at < kBlock; at += kLanes) {
            Floats const four = loaded(samples + at);
            missing |= four != four;
            low = four < low ? four : low;
            high = four > high ? four : high;
        }
        lowest = std::min(std::min(low[0], low[1]), std::min(low[2], low[3]));
        highest = std::max(std::max(high[0], high[1]), std::max(high[2], high[3]));
        allNumbers = (missing[0] | missing[1] | missing[2] | missing[3]) == 0;
    }

    float lowest;
    float highest;
    bool allNumbers;
};

// A bit for each sample of a block.
using BlockMask = std::uint64_t;
static_assert(kBlock == 64);

// A bit for each lane, all of whose bits are set or none.
int bitsOf(Ints lanes) noexcept {
#if defined(__SSE2__)
    return _mm_movemask_ps(std::bit_cast<__m128>(lanes));
#else
    Ints const bits = lanes & Ints{1, 2, 4, 8};
    return bits[0] | bits[1] | bits[2] | bits[3];
#endif
}

// The samples for which `isTaken`, asked about four at a time, has all bits set.
template <class Condition>
BlockMask maskOf(float const* samples, Condition isTaken) noexcept {
    BlockMask mask = 0;
    for (std::size_t at = 0; at < kBlock; at += kLanes) {
        mask |= static_cast<BlockMask>(bitsOf(isTaken(loaded(samples + at)))) << at;
    }
    return mask;
}

// Calls `use` with the place of each bit that is set.
template <class Use>
void forEach(BlockMask mask, Use use) noexcept {
    for (; mask != 0; mask &= mask - 1) {
        use(static_cast<std::size_t>(std::countr_zero(mask)));
    }
}

}  // namespace

void HistogramTally::setDensity(float binsPerUnit) noexcept {
    density = binsPerUnit;
    isVast = std::isinf(static_cast<float>(bins.size()) / density);
}

void HistogramTally::setRange(float low, double high) noexcept {
    origin = low;
    float const width = static_cast<float>(high) - low;
    setDensity(
        std::isinf(width) ? static_cast<float>(static_cast<double>(bins.size()) / (high - static_cast<double>(low)))
                          : static_cast<float>(bins.size()) / width);
}

void HistogramTally::placeFixed(float low, float high) noexcept {
    auto const [from, to] = widened(low, high, static_cast<unsigned>(bins.size()));
    setRange(from, to);
}

void HistogramTally::placeFlexible(float low, float high) noexcept {
    unsigned const tenth = static_cast<unsigned>(bins.size()) / 10;
    auto const [from, to] = widened(low, high, tenth >= 11 ? tenth : 10);
    setRange(from, to);
    if (!std::isfinite(density)) {
        setDensity(FLT_MAX);
    }
}

float HistogramTally::placeLimit() const noexcept {
    return isVast ? 0 : std::min(static_cast<float>(bins.size()), 0x1p31f);
}

int HistogramTally::binIndex(float value) const noexcept {
    float const place =
        isVast ? static_cast<float>(
                     (static_cast<double>(value) - static_cast<double>(origin)) * static_cast<double>(density))
               : (value - origin) * density;
    if (!(place > -0x1p31f)) {
        return INT_MIN;
    }
    int const whole = place >= 0x1p31f ? INT_MAX : static_cast<int>(place);
    return value < origin ? whole - 1 : whole;
}

std::size_t HistogramTally::nearestBin(float value) const noexcept {
    int const bin = binIndex(value);
    return bin < 0 ? 0 : std::min(static_cast<std::size_t>(bin), bins.size());
}

void HistogramTally::add(float value) noexcept {
    if (std::isnan(value)) {
        return;
    }
    auto const isOutside = [this](int bin) { return bin < 0 || static_cast<std::size_t>(bin) >= bins.size(); };
    int bin = binIndex(value);
    if (flexible && isOutside(bin) && std::isfinite(value)) {
        growFor(value, bin);
        bin = binIndex(value);
    }
    if (isOutside(bin)) {
        addOutside(value, bin);
        return;
    }
    ++counts()[bin];
    inside.add(value);
}

void HistogramTally::add(float const* first, std::size_t count) noexcept {
    for (; count >= kBlock; first += kBlock, count -= kBlock) {
        if (!addBlockInside(first) && !addMixedBlock(first)) {
            addScattered(first, kBlock);
        }
    }
    addScattered(first, count);
}

bool HistogramTally::addBlockInside(float const* samples) noexcept {
    BlockEnds const ends(samples);
    // A place never falls while the value rises, so if the ends are inside, everything is.
    if (!ends.allNumbers || !(density >= 0) || !(ends.lowest >= origin) ||
        !((ends.highest - origin) * density < placeLimit())) {
        return false;
    }
    countBlock(samples, samples, ends.lowest, ends.highest);
    return true;
}

bool HistogramTally::addMixedBlock(float const* samples) noexcept {
    constexpr std::size_t kMostBins = std::size_t{1} << 24;  // up to here float knows their number
    if (!(density >= 0) || bins.size() > kMostBins) {
        return false;
    }
    float const limit = placeLimit();
    BlockMask const insiders =
        maskOf(samples, [&](Floats four) { return (four >= origin) & ((four - origin) * density < limit); });
    auto const isFinite = [](Floats four) { return (four >= -FLT_MAX) & (four <= FLT_MAX); };
    if (insiders == 0 || (flexible && (maskOf(samples, isFinite) & ~insiders) != 0)) {
        return false;
    }
    countInsiders(samples, insiders);
    forEach(~insiders, [&](std::size_t at) { add(samples[at]); });
    return true;
}

void HistogramTally::countInsiders(float const* samples, std::uint64_t insiders) noexcept {
    // In the place of each outsider one that is inside is counted, and then taken back; no sum changes by -0.
    float const substitute = samples[std::countr_zero(insiders)];
    float counted[kBlock];
    float summands[kBlock];
    std::copy_n(samples, kBlock, counted);
    std::copy_n(samples, kBlock, summands);
    forEach(~insiders, [&](std::size_t at) {
        counted[at] = substitute;
        summands[at] = -0.0f;
    });
    BlockEnds const ends(counted);
    countBlock(counted, summands, ends.lowest, ends.highest);
    int const outsiders = std::popcount(~insiders);
    counts()[binIndex(substitute)] -= static_cast<std::uint64_t>(outsiders);
    inside.count -= outsiders;
}

void HistogramTally::countBlock(float const* samples, float const* summands, float lowest, float highest) noexcept {
    int places[kBlock];
    for (std::size_t at = 0; at < kBlock; ++at) {
        places[at] = static_cast<int>((samples[at] - origin) * density);
    }
    std::uint64_t* const counts = this->counts();
    double sum = inside.sum;
    double squares = inside.squares;
    for (std::size_t at = 0; at < kBlock; ++at) {
        double const wide = summands[at];
        ++counts[places[at]];
        sum += wide;
        squares += wide * wide;
    }
    inside.sum = sum;
    inside.squares = squares;
    inside.count += kBlock;
    // Of the two zeros, which are equal, the one that came first counts.
    auto const asItCame = [samples](float end) { return end == 0 ? *std::find(samples, samples + kBlock, 0.0f) : end; };
    inside.minimum = lowest < inside.minimum ? asItCame(lowest) : inside.minimum;
    inside.maximum = highest > inside.maximum ? asItCame(highest) : inside.maximum;
}

void HistogramTally::addScattered(float const* first, std::size_t count) noexcept {
    for (float const* const end = first + count; first != end; ++first) {
        first = addWhileInside(first, end);
        if (first == end) {
            return;
        }
        add(*first);
    }
}

float const* HistogramTally::addWhileInside(float const* first, float const* end) noexcept {
    // In variables of their own, or every sample would wait for the one before to reach memory and come back.
    Statistics running = inside;
    std::uint64_t* const counts = this->counts();
    float const start = origin;
    float const perUnit = density;
    float const limit = placeLimit();
    for (; first != end; ++first) {
        float const value = *first;
        float const place = (value - start) * perUnit;
        if (!(value >= start && place >= 0 && place < limit)) {
            break;
        }
        ++counts[static_cast<int>(place)];
        running.add(value);
    }
    inside = running;
    return first;
}

void HistogramTally::addOutside(float value, int bin) noexcept {
    if (bin < 0) {
        ++underflows;
        underflowMinimum = value < underflowMinimum ? value : underflowMinimum;
    } else {
        ++overflows;
        overflowMaximum = value > overflowMaximum ? value : overflowMaximum;
    }
}

void HistogramTally::growFor(float value, int bin) noexcept {
    if (std::isnan(origin)) {
        placeFlexible(value, value);
        return;
    }
    // Here in double: a quotient of floats would give other bins after a few growths.
    double const width = static_cast<double>(bins.size()) / static_cast<double>(density);
    double reach = (static_cast<double>(value) - static_cast<double>(origin)) / width;
    reach = reach < 0 ? 1 - reach : reach;
    double const factor = std::max(1.0, std::ceil(reach * 1.0000001192092896));
    bool const isBelow = bin < 0;
    double const lower = static_cast<double>(origin) - (factor - 1) * width;
    if (isBelow && lower < static_cast<double>(-FLT_MAX)) {
        return;  // no float is the lower end, so the range stays
    }
    mergeBins(factor >= UINT_MAX ? UINT_MAX : static_cast<std::uint32_t>(factor), /*towardsEnd=*/isBelow);
    if (isBelow) {
        origin = static_cast<float>(lower);
    }
    setDensity(static_cast<float>(static_cast<double>(density) / factor));
}

void HistogramTally::mergeBins(std::uint32_t factor, bool towardsEnd) noexcept {
    std::size_t const merged = (bins.size() + factor - 1) / factor;
    for (std::size_t target = 0; target < merged; ++target) {
        std::size_t const begin = target * factor;
        std::size_t const end = std::min<std::size_t>(begin + factor, bins.size());
        counts()[target] = std::accumulate(counts() + begin, counts() + end, std::uint64_t{0});
    }
    auto const mergedEnd = bins.begin() + static_cast<std::ptrdiff_t>(merged);
    if (towardsEnd) {
        std::fill(bins.begin(), std::move_backward(bins.begin(), mergedEnd, bins.end()), 0);
    } else {
        std::fill(mergedEnd, bins.end(), 0);
    }
}

bool HistogramTally::isLaidOutAs(HistogramTally const& other) const noexcept {
    return flexible == other.flexible && bins.size() == other.bins.size() && isSame(density, other.density) &&
           isSame(origin, other.origin);
}

bool operator==(HistogramTally::Statistics const& left, HistogramTally::Statistics const& right) noexcept {
    return left.count == right.count && isSame(left.minimum, right.minimum) && isSame(left.maximum, right.maximum) &&
           isSame(left.sum, right.sum) && isSame(left.squares, right.squares);
}

bool operator==(HistogramTally const& left, HistogramTally const& right) noexcept {
    return left.isLaidOutAs(right) && left.bins == right.bins && left.inside == right.inside &&
           left.underflows == right.underflows && left.overflows == right.overflows &&
           left.underflowMinimum == right.underflowMinimum && left.overflowMaximum == right.overflowMaximum;
}

}  // namespace Quorvel::Dravik::Adt::Detail
