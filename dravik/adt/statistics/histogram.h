// SPDX-License-Identifier: Apache-2.0
#pragma once

// Histogram: counts float samples into equally wide bins, with running statistics. A value that owns its bins. Threads:
// one at a time, const operations included.

#include "dravik/adt/export.h"
#include "dravik/adt/statistics/detail/histogram_tally.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <span>
#include <vector>

namespace Quorvel::Dravik::Adt {

/// Bin counts and statistics of samples.
///
/// A fixed histogram has its range from the start; samples outside are counted as underflows and overflows. A flexible
/// one places a narrow range around its first finite sample and, whenever a finite sample falls outside, widens it by a
/// whole factor to that side, merging neighbouring bins: the resolution stays, and the opposite end stays where it is.
/// A range that would have to begin below the lowest float stays, too; the sample is then an underflow.
/// Statistics are those of the samples in bins; NaN is ignored everywhere. Unit: that of the samples.
///
/// Adding a sample puts it aside; samples are counted 256 at a time, or when a result is asked for. So const operations
/// change what is inside as well.
/// @threads one at a time may use a histogram, be it to read; to count on several, give each its own and merge
///
///     Histogram heights(Histogram::fixed, -11000, 9000, 400);
///     heights.add(samples);
///     heights.mean();
class DRAVIK_ADT_EXPORT Histogram {
  public:
    enum Fixed { fixed };        ///< the range is given and stays
    enum Flexible { flexible };  ///< the range follows the samples

    /// Flexible, of 10000 bins.
    Histogram() : Histogram(flexible, 0) {}
    /// Of `resolution` bins, 10000 for 0; the range is placed by the first finite sample.
    Histogram(Flexible, unsigned resolution);
    /// As above with a range to begin with; the ends may be given in any order. A range that is too narrow for its
    /// magnitude is widened.
    Histogram(Flexible, float low, float high, unsigned resolution);
    Histogram(Fixed, float low, float high, unsigned resolution);
    /// Fixed, rebuilt from results kept elsewhere: the range is taken as it is, nothing lies outside the bins.
    Histogram(
        Fixed, float low, float high, std::vector<std::int64_t> const& bins, float mean, float stddev, float min,
        float max);

    Histogram(Histogram const&) = default;
    Histogram& operator=(Histogram const&) = default;
    ~Histogram() = default;

    void add(float value) {
        pending_[pendingCount_++] = value;
        if (pendingCount_ == kPendingCapacity) {
            settle();
        }
    }
    /// As adding the samples one by one, in a fraction of the time.
    void add(float const* first, std::size_t count);
    void add(std::span<float const> samples) { add(samples.data(), samples.size()); }

    /// Counts what `other` counted as well. Sums are added as they stand, so they may differ in the last bits from
    /// those of one histogram that saw every sample.
    /// @throws std::invalid_argument with both shapes unless kind, resolution and range are the same; nothing is
    /// changed then
    void merge(Histogram const& other);

    /// Samples in bins.
    std::int64_t nofSamples() const { return tally().inside.count; }
    /// Samples in one bin; 0 for a bin that is not there.
    std::int64_t nofSamples(unsigned bin) const;
    /// Whether no sample is in a bin, whatever may lie outside.
    bool empty() const { return nofSamples() == 0; }
    float sum() const { return static_cast<float>(tally().inside.sum); }
    /// 0 without a sample.
    float mean() const;
    /// The standard deviation of the population that the samples are taken from; 0 with fewer than two.
    float stddev() const;
    /// The smallest and the largest sample in a bin; +infinity and -infinity while there is none.
    float min() const { return tally().inside.minimum; }
    float max() const { return tally().inside.maximum; }
    std::int64_t underflows() const { return tally().underflows; }
    std::int64_t overflows() const { return tally().overflows; }
    /// The smallest and the largest sample, in a bin or not.
    float underflowMin() const;
    float overflowMax() const;

    /// Whether the range follows the samples.
    bool isFlexible() const noexcept { return tally_.flexible; }
    /// Number of bins.
    unsigned resolution() const noexcept { return static_cast<unsigned>(tally_.bins.size()); }
    /// Width of all bins together; NaN while a flexible histogram has no range.
    float range() const;
    /// The lower border of the first bin and the upper one of the last.
    void capacity(float& low, float& high) const;

    /// The counts carried over to `n` bins between two values, in any order, or over the whole capacity. Each bin goes
    /// to the new one that its centre falls into; the first and last new bin take whole the ones that the ends lie in.
    /// @complexity O(n + resolution)
    std::vector<std::int64_t> bins(unsigned n, float low, float high) const;
    std::vector<std::int64_t> bins(unsigned n) const;

    /// The n + 1 borders of such bins, each the one before plus the width; none for a negative `n`.
    std::vector<float> binBorders(int n, float low, float high) const;
    std::vector<float> binBorders(int n) const;

    /// Whether kind, range, counts and statistics are the same.
    friend DRAVIK_ADT_EXPORT bool operator==(Histogram const& left, Histogram const& right);

    /// Writes "10 bins over [0,10): 3 samples, 1.5 to 4, mean 2.5, stddev 1.25, 0 below, 2 above".
    template <class Traits>
    friend std::basic_ostream<char, Traits>& operator<<(
        std::basic_ostream<char, Traits>& out, Histogram const& histogram) {
        float low = 0;
        float high = 0;
        histogram.capacity(low, high);
        return out << histogram.resolution() << " bins over [" << low << "," << high << "): " << histogram.nofSamples()
                   << " samples, " << histogram.min() << " to " << histogram.max() << ", mean " << histogram.mean()
                   << ", stddev " << histogram.stddev() << ", " << histogram.underflows() << " below, "
                   << histogram.overflows() << " above";
    }

  private:
    static constexpr unsigned kPendingCapacity = 256;

    Detail::HistogramTally const& tally() const {
        if (pendingCount_ != 0) {
            settle();
        }
        return tally_;
    }
    void settle() const noexcept;

    mutable Detail::HistogramTally tally_;
    mutable float pending_[kPendingCapacity] = {};
    mutable unsigned pendingCount_ = 0;
};

}  // namespace Quorvel::Dravik::Adt

template <>
struct std::hash<Quorvel::Dravik::Adt::Histogram> {
    DRAVIK_ADT_EXPORT std::size_t operator()(Quorvel::Dravik::Adt::Histogram const& histogram) const;
};
