// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/regions/region_histogram.h"

#include "dravik/adt/bulkview/regions/blocks.h"
#include "dravik/adt/bulkview/regions/detail/dense_blocks.h"
#include "dravik/adt/bulkview/regions/detail/region_checks.h"
#include "dravik/adt/bulkview/regions/detail/workers.h"
#include "dravik/adt/bulkview/regions/region.h"

#include <algorithm>
#include <cstddef>
#include <span>

namespace Quorvel::Dravik::Adt::BulkView {

namespace {

using Region = ExtentK<4, int>;
using Box = OpenEndedRange<4, int>;

constexpr int kBytes = sizeof(float);

std::int64_t pointCount(Region const& region) {
    std::int64_t count = 1;
    for (int axis = 0; axis < 4; ++axis) {
        count *= region.data()[axis].count;
    }
    return count;
}

Box boundsOf(Region const& region) {
    Box bounds;
    for (int axis = 0; axis < 4; ++axis) {
        auto const closed = region.data()[axis].bounds();
        bounds.min.data()[axis] = closed.min;
        bounds.max.data()[axis] = closed.max + 1;
    }
    return bounds;
}

// The indices of `region` inside `box`; empty where there are none.
Region insideOf(Region const& region, Box const& box) {
    Region inside = region;
    for (int axis = 0; axis < 4; ++axis) {
        inside.data()[axis] =
            region.data()[axis].intersection({box.min.data()[axis], 1, static_cast<int>(box.size(axis))});
    }
    return inside;
}

Histogram emptyLike(Histogram const& histogram) {
    float low = 0, high = 0;
    histogram.capacity(low, high);
    std::vector<std::int64_t> const none(histogram.resolution());
    // From its bins, since a range that is given once more may be widened once more.
    return {
        Histogram::fixed,
        low,
        high,
        none,
        0,
        0,
        std::numeric_limits<float>::infinity(),
        -std::numeric_limits<float>::infinity()};
}

// Boxes to count one by one: what a processor keeps close, and enough of them to share out.
Blocks blocksOf(AccessTraits const& traits, Region const& region, TransferOptions const& options) {
    constexpr std::int64_t kMost = std::int64_t{1} << 18;  // samples
    auto const bounds = boundsOf(region);
    std::int64_t const budget = std::min(options.byteBudget / kBytes / std::max(options.workers, 1), kMost);
    return {traits, bounds, std::max(budget, Detail::samplesOfBlock(traits, bounds))};
}

// What the workers of a call count, each in a histogram of its own.
class Counters {
  public:
    Counters(Histogram const& histogram, IBufferAccessor& accessor, int workers)
        : chains_(accessor, workers),
          counted_(static_cast<std::size_t>(workers), workers > 1 ? emptyLike(histogram) : histogram),
          memory_(static_cast<std::size_t>(workers)) {}

    void add(int worker, Region const& part, TransferOptions const& options) {
        FixedVector<4, int> size;
        for (int axis = 0; axis < 4; ++axis) {
            size.data()[axis] = part.data()[axis].count;
        }
        auto const box = Box::OfSize(size);
        auto const count = static_cast<std::size_t>(box.pointCount());
        auto& own = memory_[static_cast<std::size_t>(worker)];
        own.resize(std::max(own.size(), count));
        TransferOptions reading;
        reading.stop = options.stop;
        reading.converter = options.converter;
        auto* const samples = reinterpret_cast<char*>(own.data());
        readRegion(chains_[worker], part, Detail::denseArray(samples, box, typeid(float), 8 * kBytes), reading);
        counted_[static_cast<std::size_t>(worker)].add(std::span(own).first(count));
    }

    // What the histogram has counted before, with what has been added.
    Histogram sum(Histogram const& before) const {
        if (counted_.size() == 1) {
            return counted_[0];
        }
        Histogram sum = before;
        for (Histogram const& each : counted_) {
            sum.merge(each);
        }
        return sum;
    }

  private:
    Detail::ChainPerWorker chains_;
    std::vector<Histogram> counted_;
    std::vector<std::vector<float>> memory_;
};

}  // namespace

void addRegion(Histogram& histogram, IBufferAccessor& accessor, Region const& region, TransferOptions const& options) {
    if (region.isEmpty()) {
        return;
    }
    Detail::requireInside(region, accessor.getSize());
    AccessTraits const traits = traitsOf(accessor);
    Blocks const blocks = blocksOf(traits, region, options);
    int const workers = histogram.isFlexible()
                            ? 1
                            : Detail::workersFor(options, {&traits}, blocks.size(), blocks.sampleCount() * kBytes);
    Counters counters(histogram, accessor, workers);
    Detail::Progress progress(options, pointCount(region));
    Detail::forEachPiece(options, workers, blocks.size(), [&](int worker, std::int64_t piece) {
        auto const part = insideOf(region, blocks[piece]);
        if (!part.isEmpty()) {
            counters.add(worker, part, options);
            progress.add(worker, pointCount(part));
        }
    });
    progress.finish();
    histogram = counters.sum(histogram);
}

}  // namespace Quorvel::Dravik::Adt::BulkView
