// SPDX-License-Identifier: Apache-2.0
#pragma once

// HistogramTally: the counts and statistics of a histogram and their float arithmetic, which is compiled here and
// nowhere else, so that no user's compiler flags change a bin. Threads: as std::vector.

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace Quorvel::Dravik::Adt::Detail {

/// Counts in equally wide bins over [origin, origin + bins.size() / density).
///
/// All arithmetic on values is in float unless it says otherwise, one rounding per operation. A flexible tally without
/// a range has NaN as origin and density.
struct HistogramTally {
    static constexpr float kInfinity = std::numeric_limits<float>::infinity();

    struct Statistics {
        std::int64_t count = 0;
        float minimum = kInfinity;
        float maximum = -kInfinity;
        double sum = 0;
        double squares = 0;

        void add(float value) noexcept {
            ++count;
            minimum = value < minimum ? value : minimum;
            maximum = value > maximum ? value : maximum;
            double const wide = value;
            sum += wide;
            squares += wide * wide;
        }

        friend bool operator==(Statistics const& left, Statistics const& right) noexcept;
    };

    std::vector<std::int64_t> bins;  ///< never resized; first, so that an assignment that fails has changed nothing
    bool flexible = true;            ///< grows for finite samples outside the bins
    float density = std::numeric_limits<float>::quiet_NaN();  ///< bins per unit of value
    float origin = std::numeric_limits<float>::quiet_NaN();   ///< lower border of the first bin
    bool isVast = false;  ///< the range is wider than the largest float; places in it are found in double
    Statistics inside;    ///< of the samples in bins
    std::int64_t underflows = 0;
    std::int64_t overflows = 0;
    float underflowMinimum = kInfinity;
    float overflowMaximum = -kInfinity;

    /// Sets the range to [low, high), as it is given.
    void setRange(float low, double high) noexcept;
    /// Sets a range for samples from `low` to `high`, no narrower than float can tell its bins apart.
    void placeFixed(float low, float high) noexcept;
    /// As placeFixed, but for a tenth of the bins, or for ten where there are fewer than 110.
    void placeFlexible(float low, float high) noexcept;

    /// The bin of `value`, below 0 or from bins.size() on when it is outside: whole bins, limited to int. A value below
    /// the origin by a whole number of bins gets one less.
    int binIndex(float value) const noexcept;
    /// The bin of `value`, limited to [0, bins.size()].
    std::size_t nearestBin(float value) const noexcept;

    /// Counts samples, in the same bits as one by one.
    void add(float const* first, std::size_t count) noexcept;

    friend bool operator==(HistogramTally const& left, HistogramTally const& right) noexcept;
    /// Whether both are of one kind, resolution and range.
    bool isLaidOutAs(HistogramTally const& other) const noexcept;

  private:
    void add(float value) noexcept;
    void growFor(float value, int bin) noexcept;
    void setDensity(float binsPerUnit) noexcept;
    void mergeBins(std::uint32_t factor, bool towardsEnd) noexcept;
    void addOutside(float value, int bin) noexcept;
    /// Whether the samples of a block are numbers and all inside the bins; then counts them.
    bool addBlockInside(float const* samples) noexcept;
    /// Counts a block of which some lie outside or are no numbers, unless the range has to grow for one of them. Where
    /// one sample in a hundred does, a run takes a quarter less time than without this.
    bool addMixedBlock(float const* samples) noexcept;
    /// Counts where `samples` lie and sums up `summands`.
    void countBlock(float const* samples, float const* summands, float lowest, float highest) noexcept;
    /// Counts the samples of a block that have their bit set, one at least; they lie inside the bins.
    void countInsiders(float const* samples, std::uint64_t insiders) noexcept;
    void addScattered(float const* first, std::size_t count) noexcept;
    /// Counts samples until one lies outside the bins or is no number; where that one is.
    float const* addWhileInside(float const* first, float const* end) noexcept;
    /// The bins, so that counts given from elsewhere wrap instead of overflowing.
    std::uint64_t* counts() noexcept { return reinterpret_cast<std::uint64_t*>(bins.data()); }
    /// Places from 0 to below this are those of bins, and fit into int; 0 for a vast range, which has no places in
    /// float.
    float placeLimit() const noexcept;
};

}  // namespace Quorvel::Dravik::Adt::Detail
