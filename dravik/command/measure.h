// SPDX-License-Identifier: Apache-2.0
#pragma once

// Moments and percentiles of a data set, block by block. Threads: as the session.

#include "dravik/adt/statistics/histogram.h"
#include "dravik/command/input.h"
#include "dravik/command/session.h"

#include <cstdint>
#include <span>
#include <string>
#include <utility>

namespace Quorvel::Dravik::Command {

/// Of samples that are numbers; not-a-number counts as missing.
class Moments {
  public:
    void add(std::span<double const> samples);
    void merge(Moments const& other);

    std::int64_t count() const noexcept { return count_; }
    std::int64_t missing() const noexcept { return missing_; }
    double min() const noexcept { return min_; }
    double max() const noexcept { return max_; }
    double mean() const noexcept { return mean_; }
    /// The standard deviation of all samples, not an estimate from some.
    double deviation() const;

  private:
    std::int64_t count_ = 0, missing_ = 0;
    double min_ = 0, max_ = 0, mean_ = 0;
    double squares_ = 0;  // the sum of (x - mean)^2
};

Moments momentsOf(Opened& data, Session& session);

/// In 65536 bins between the ends of what `moments` tell.
Adt::Histogram histogramOf(Opened& data, Moments const& moments, Session& session);

/// The value below which `share` of the samples lie, exact to a bin.
double percentile(Adt::Histogram const& histogram, Moments const& moments, double share);

/// The ends of a range: "-1:1", or shares of the samples, "1%:99%".
struct RangeWish {
    double low = 0, high = 0;
    bool isShare = false;
};

/// @throws std::invalid_argument for a text that is no range
RangeWish rangeFrom(std::string const& text);

/// The range as numbers, for which shares are counted.
std::pair<double, double> endsOf(RangeWish const& wish, Opened& data, Session& session);

}  // namespace Quorvel::Dravik::Command
