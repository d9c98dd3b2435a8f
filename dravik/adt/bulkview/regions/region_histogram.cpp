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

}  // namespace

void addRegion(Histogram& histogram, IBufferAccessor& accessor, Region const& region, TransferOptions const& options) {
    if (region.isEmpty()) {
        return;
    }
    Detail::requireInside(region, accessor.getSize());
    AccessTraits const traits = traitsOf(accessor);
    constexpr std::int64_t kBytes = sizeof(float);
    constexpr std::int64_t kMost = std::int64_t{1} << 18;  // samples: what a processor keeps close, and enough boxes
    auto const bounds = boundsOf(region);
    std::int64_t const budget = std::min(options.byteBudget / kBytes / std::max(options.workers, 1), kMost);
    Blocks const blocks(traits, bounds, std::max(budget, Detail::samplesOfBlock(traits, bounds)));
    int const workers = histogram.isFlexible()
                            ? 1
                            : Detail::workersFor(options, {&traits}, blocks.size(), blocks.sampleCount() * kBytes);
    Detail::ChainPerWorker const chains(accessor, workers);
    std::vector<Histogram> counted(static_cast<std::size_t>(workers), workers > 1 ? emptyLike(histogram) : histogram);
    std::vector<std::vector<float>> memory(static_cast<std::size_t>(workers));
    std::int64_t total = 1;
    for (int axis = 0; axis < 4; ++axis) {
        total *= region.data()[axis].count;
    }
    Detail::Progress progress(options, total);
    Detail::forEachPiece(options, workers, blocks.size(), [&](int worker, std::int64_t piece) {
        auto const part = insideOf(region, blocks[piece]);
        if (part.isEmpty()) {
            return;
        }
        FixedVector<4, int> size;
        for (int axis = 0; axis < 4; ++axis) {
            size.data()[axis] = part.data()[axis].count;
        }
        auto const box = Box::OfSize(size);
        auto& own = memory[static_cast<std::size_t>(worker)];
        own.resize(std::max(own.size(), static_cast<std::size_t>(box.pointCount())));
        TransferOptions reading;
        reading.stop = options.stop;
        reading.converter = options.converter;
        readRegion(
            chains[worker], part,
            Detail::denseArray(reinterpret_cast<char*>(own.data()), box, typeid(float), 8 * sizeof(float)), reading);
        counted[static_cast<std::size_t>(worker)].add(std::span(own).first(static_cast<std::size_t>(box.pointCount())));
        progress.add(worker, box.pointCount());
    });
    progress.finish();
    if (workers == 1) {
        histogram = counted[0];
        return;
    }
    Histogram sum = histogram;
    for (Histogram const& each : counted) {
        sum.merge(each);
    }
    histogram = sum;
}

}  // namespace Quorvel::Dravik::Adt::BulkView
