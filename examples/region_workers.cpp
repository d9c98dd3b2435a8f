// SPDX-License-Identifier: Apache-2.0
// A volume worked on by all processors: every tenth trace, the mean of each trace, an 8-bit copy, a horizon, a
// histogram.

#include "thread_pool.h"

#include <dravik/adt/bulkview/accessors/memory_accessor.h>
#include <dravik/adt/bulkview/regions/blocks.h>
#include <dravik/adt/bulkview/regions/for_each_block.h>
#include <dravik/adt/bulkview/regions/gather.h>
#include <dravik/adt/bulkview/regions/lent_blocks.h>
#include <dravik/adt/bulkview/regions/region.h>
#include <dravik/adt/bulkview/regions/region_histogram.h>
#include <dravik/adt/core/shared_array.h>

#include <cstddef>
#include <iostream>
#include <numeric>
#include <span>

using namespace Quorvel::Dravik::Adt;
using namespace Quorvel::Dravik::Adt::BulkView;

namespace {

using Box = OpenEndedRange<4, int>;
using Extent = ExtentImpl<int>;

constexpr int kTraces = 40, kSamples = 300;

template <class T, int N>
std::span<T> samplesOf(SharedArray<N> const& array) {
    return {reinterpret_cast<T*>(array.data()), static_cast<std::size_t>(array.range().pointCount())};
}

// 1 inline of 40 traces of 300 samples: sample k of trace j is j + k / 2.
SharedArray<4> makeVolume() {
    auto volume = SharedArray<4>::Make<float>(Box::OfSize({1, kTraces, kSamples, 1}));
    for (int place = 0; float& sample : samplesOf<float>(volume)) {
        sample = static_cast<float>(place / kSamples) + static_cast<float>(place % kSamples) / 2;
        ++place;
    }
    return volume;
}

template <class Values>
void print(char const* title, Values const& values) {
    std::cout << title << ":";
    for (auto const& value : values) {
        std::cout << ' ' << +value;
    }
    std::cout << '\n';
}

void printMeans(IBufferAccessor& volume, Box const& whole, TransferOptions const& options) {
    //! [means]
    std::vector<double> sums(kTraces);
    std::mutex mutex;
    Blocks const blocks(traitsOf(volume), whole, /*sampleBudget=*/4096);
    auto const add = [&](Box const& box, ArrayRef<4> const& array) {
        auto const* trace = reinterpret_cast<float const*>(array.data());
        for (int j = box.min[1]; j < box.max[1]; ++j, trace += box.size(2)) {
            double const sum = std::accumulate(trace, trace + box.size(2), 0.0);
            std::lock_guard const lock(mutex);
            sums[static_cast<std::size_t>(j)] += sum;
        }
    };
    forEachBlock<float>(volume, blocks, add, options);
    //! [means]
    std::cout << "means: " << sums[0] / kSamples << " to " << sums[kTraces - 1] / kSamples << '\n';
}

void printBlocks(IBufferAccessor& volume, Box const& whole) {
    //! [lent]
    std::int64_t count = 0;
    for (LentBlocks::Block const& block : LentBlocks(volume, whole, typeid(float), 32)) {
        count += block.box.pointCount();  // block.samples is the accessor's own memory
    }
    //! [lent]
    std::cout << "lent without a copy: " << count << '\n';
}

}  // namespace

int main() {
    Accessors::MemoryAccessor volume(makeVolume());
    auto const whole = Box::OfSize(volume.getSize());

    //! [options]
    ThreadPool pool(1);
    TransferOptions options;
    options.workers = 2;  // the caller and one helper
    options.executor = [&pool](std::function<void()> task) { pool.start(std::move(task)); };
    //! [options]

    //! [tenth]
    ExtentK<4, int> const tenth(Extent{0, 1, 1}, Extent{0, 10, kTraces / 10}, Extent{0, 1, 3}, Extent{0, 1, 1});
    auto const traces = SharedArray<4>::Make<float>(Box::OfSize({1, kTraces / 10, 3, 1}));
    readRegion(volume, tenth, traces, options);
    //! [tenth]
    print("every tenth trace", samplesOf<float>(traces));

    printMeans(volume, whole, options);

    //! [copy]
    Accessors::MemoryAccessor bytes(SharedArray<4>::Make<unsigned char>(whole));
    copyRegion(volume, bytes, options);
    flush(bytes);
    //! [copy]
    print("the copy in 8 bits", samplesOf<unsigned char>(bytes.data()).subspan(kSamples, 6));

    //! [horizon]
    std::vector<FixedVector<4, int>> horizon;
    for (int j = 0; j < kTraces; j += 8) {
        horizon.emplace_back(0, j, 2 * j, 0);  // where it crosses trace j
    }
    auto const picked = SharedArray<1>::Make<float>({{}, FixedVector<1, int>(static_cast<int>(horizon.size()))});
    gatherSamples(volume, horizon, picked);
    //! [horizon]
    print("horizon", samplesOf<float>(picked));

    //! [histogram]
    Histogram histogram(Histogram::fixed, 0, 200, 4);
    addRegion(histogram, volume, ExtentK<4, int>(whole), options);
    //! [histogram]
    print("histogram", histogram.bins(4));

    printBlocks(volume, whole);
}
