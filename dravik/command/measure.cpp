// SPDX-License-Identifier: Apache-2.0
#include "dravik/command/measure.h"

#include "dravik/adt/bulkview/regions/access_traits.h"
#include "dravik/adt/bulkview/regions/for_each_block.h"
#include "dravik/adt/bulkview/regions/region_histogram.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <vector>

namespace Quorvel::Dravik::Command {

namespace {

constexpr int kBins = 65536;

// Reads all of the text as a number.
bool readNumber(std::string const& text, double& number) {
    char* end = nullptr;
    number = std::strtod(text.c_str(), &end);
    return !text.empty() && *end == '\0' && std::isfinite(number);
}

}  // namespace

void Moments::add(std::span<double const> samples) {
    Moments own;
    double sum = 0;
    for (double const sample : samples) {
        if (std::isnan(sample)) {
            ++own.missing_;
            continue;
        }
        own.min_ = own.count_ == 0 ? sample : std::min(own.min_, sample);
        own.max_ = own.count_ == 0 ? sample : std::max(own.max_, sample);
        ++own.count_;
        sum += sample;
    }
    own.mean_ = own.count_ > 0 ? sum / static_cast<double>(own.count_) : 0;
    for (double const sample : samples) {
        double const beside = sample - own.mean_;
        own.squares_ += std::isnan(sample) ? 0 : beside * beside;
    }
    merge(own);
}

// Means and squares of two parts, as Chan, Golub and LeVeque join them.
void Moments::merge(Moments const& other) {
    missing_ += other.missing_;
    if (other.count_ == 0) {
        return;
    }
    std::int64_t const missing = missing_;
    if (count_ == 0) {
        *this = other;
        missing_ = missing;
        return;
    }
    auto const ours = static_cast<double>(count_), theirs = static_cast<double>(other.count_);
    double const apart = other.mean_ - mean_;
    squares_ += other.squares_ + apart * apart * ours * theirs / (ours + theirs);
    mean_ += apart * theirs / (ours + theirs);
    min_ = std::min(min_, other.min_);
    max_ = std::max(max_, other.max_);
    count_ += other.count_;
}

double Moments::deviation() const {
    return count_ > 0 ? std::sqrt(squares_ / static_cast<double>(count_)) : 0;
}

Moments momentsOf(Opened& data, Session& session) {
    auto const options = session.transfer("statistics");
    std::int64_t const budget = options.byteBudget / static_cast<std::int64_t>(sizeof(double)) / options.workers;
    Adt::BulkView::Blocks const blocks(
        Adt::BulkView::traitsOf(*data.data.chain), data.box(), std::clamp<std::int64_t>(budget, 1, 1 << 20));
    Moments all;
    std::mutex mutex;
    auto const add = [&](auto const& box, Adt::ArrayRef<4> const& array) {
        Moments part;
        part.add({reinterpret_cast<double const*>(array.data()), static_cast<std::size_t>(box.pointCount())});
        std::lock_guard const lock(mutex);
        all.merge(part);
    };
    Adt::BulkView::forEachBlock<double>(*data.data.chain, blocks, add, options);
    return all;
}

Adt::Histogram histogramOf(Opened& data, Moments const& moments, Session& session) {
    // The largest sample belongs into the last bin, and of whole numbers each into one of its own, while there are
    // enough.
    double const count = moments.max() - moments.min() + 1;
    bool const isWhole = *data.sampleType != typeid(float) && *data.sampleType != typeid(double);
    auto const high = static_cast<float>(isWhole ? moments.max() + 1 : moments.max());
    Adt::Histogram histogram(
        Adt::Histogram::fixed, static_cast<float>(moments.min()),
        isWhole ? high : std::nextafter(high, std::numeric_limits<float>::infinity()),
        isWhole && count < kBins ? static_cast<unsigned>(count) : kBins);
    Adt::BulkView::addRegion(
        histogram, *data.data.chain, Adt::ExtentK<4, int>(data.box()), session.transfer("histogram"));
    return histogram;
}

double percentile(Adt::Histogram const& histogram, Moments const& moments, double share) {
    float low = 0, high = 0;
    histogram.capacity(low, high);
    auto const bins = histogram.bins(histogram.resolution());
    double const wanted = share * static_cast<double>(histogram.nofSamples());
    double const width = (double{high} - double{low}) / static_cast<double>(bins.size());
    double below = 0;
    for (std::size_t bin = 0; bin < bins.size(); ++bin) {
        auto const here = static_cast<double>(bins[bin]);
        if (here > 0 && below + here >= wanted) {
            // A bin one wide holds one whole number.
            double const inside = width == 1 ? 0 : (wanted - below) / here;
            return std::clamp(low + width * (static_cast<double>(bin) + inside), moments.min(), moments.max());
        }
        below += here;
    }
    return moments.max();
}

RangeWish rangeFrom(std::string const& text) {
    auto const colon = text.find(':', 1);
    std::string low = text.substr(0, colon), high = colon == std::string::npos ? "" : text.substr(colon + 1);
    RangeWish wish;
    wish.isShare = low.ends_with('%') && high.ends_with('%');
    if (wish.isShare) {
        low.pop_back();
        high.pop_back();
    }
    bool const isRange = readNumber(low, wish.low) && readNumber(high, wish.high) && wish.low < wish.high;
    if (!isRange || (wish.isShare && (wish.low < 0 || wish.high > 100))) {
        throw std::invalid_argument(text + " is no range: write two numbers as -1:1, or shares as 1%:99%");
    }
    return wish;
}

std::pair<double, double> endsOf(RangeWish const& wish, Opened& data, Session& session) {
    if (!wish.isShare) {
        return {wish.low, wish.high};
    }
    auto const moments = momentsOf(data, session);
    if (wish.low <= 0 && wish.high >= 100) {
        return {moments.min(), moments.max()};
    }
    auto const histogram = histogramOf(data, moments, session);
    return {percentile(histogram, moments, wish.low / 100), percentile(histogram, moments, wish.high / 100)};
}

}  // namespace Quorvel::Dravik::Command
