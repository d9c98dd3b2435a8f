// SPDX-License-Identifier: Apache-2.0
// A region read by the workers of oneTBB: its task group is the executor.

#include <dravik/adt/bulkview/accessors/memory_accessor.h>
#include <dravik/adt/bulkview/regions/region.h>
#include <dravik/adt/core/shared_array.h>

#include <tbb/task_group.h>

#include <iostream>
#include <numeric>

using namespace Quorvel::Dravik::Adt;
using namespace Quorvel::Dravik::Adt::BulkView;

int main() {
    auto const array = SharedArray<4>::Make<float>(OpenEndedRange<4, int>::OfSize({64, 64, 64, 1}));
    auto* const samples = reinterpret_cast<float*>(array.data());
    std::iota(samples, samples + array.range().pointCount(), 0.0f);
    Accessors::MemoryAccessor volume(array);
    auto const read = SharedArray<4>::Make<float>(array.range());

    //! [tbb]
    tbb::task_group group;
    TransferOptions options;
    options.workers = 4;
    options.executor = [&group](std::function<void()> task) { group.run(std::move(task)); };
    readRegion(volume, ExtentK<4, int>(array.range()), read, options);
    group.wait();  // for helpers that begin after the call, and do nothing
    //! [tbb]
    std::cout << "last sample: " << reinterpret_cast<float const*>(read.data())[read.range().pointCount() - 1] << '\n';
}
