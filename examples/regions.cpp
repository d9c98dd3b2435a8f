// SPDX-License-Identifier: Apache-2.0
// Whole regions of a volume in one call each: a time slice, every second trace, an 8-bit copy, and writing a box back.

#include <dravik/adt/bulkview/accessors/memory_accessor.h>
#include <dravik/adt/bulkview/regions/access_traits.h>
#include <dravik/adt/bulkview/regions/region.h>
#include <dravik/adt/core/shared_array.h>

#include <cstdint>
#include <iostream>

using namespace Quorvel::Dravik::Adt;
using namespace Quorvel::Dravik::Adt::BulkView;

namespace {

using Extent = ExtentImpl<int>;
using Box = OpenEndedRange<4, int>;

constexpr Extent kOne{0, 1, 1};

// 4 inlines of 6 traces of 50 samples that tell where they are: 100 i + 10 j + k / 100.
SharedArray<4> makeVolume() {
    auto volume = SharedArray<4>::Make<float>(Box::OfSize({4, 6, 50, 1}));
    auto* sample = reinterpret_cast<float*>(volume.data());
    for (int trace = 0; trace < 4 * 6; ++trace) {
        for (int k = 0; k < 50; ++k) {
            *sample++ = static_cast<float>(100 * (trace / 6) + 10 * (trace % 6)) + static_cast<float>(k) / 100;
        }
    }
    return volume;
}

template <class T>
void print(char const* title, SharedArray<4> const& array) {
    std::cout << title << ":";
    auto const* const samples = reinterpret_cast<T const*>(array.data());
    for (std::int64_t at = 0; at < array.range().pointCount(); ++at) {
        std::cout << ' ' << +samples[at];
    }
    std::cout << '\n';
}

}  // namespace

int main() {
    Accessors::MemoryAccessor volume(makeVolume());

    //! [slice]
    // A time slice at sample 25: a fixed index is a count of 1.
    ExtentK<4, int> const slice(Extent{0, 1, 4}, Extent{0, 1, 6}, Extent{25, 1, 1}, kOne);
    auto const map = SharedArray<4>::Make<float>(Box::OfSize({4, 6, 1, 1}));
    readRegion(volume, slice, map);
    //! [slice]
    print<float>("slice", map);

    //! [decimated]
    // Every second trace of inline 3, from the last one on, with the first three samples of each.
    ExtentK<4, int> const traces(Extent{3, 1, 1}, Extent{5, -2, 3}, Extent{0, 1, 3}, kOne);
    auto const gather = SharedArray<4>::Make<float>(Box::OfSize({1, 3, 3, 1}));
    readRegion(volume, traces, gather);
    //! [decimated]
    print<float>("every second trace", gather);

    //! [bytes]
    // The array's sample type is the type asked for. Its strides are the order of axes: here the traces lie side by
    // side.
    auto const bytes = SharedArray<4>::Make<unsigned char>(Box::OfSize({1, 3, 3, 1}), {0, 1, 3, 0});
    readRegion(volume, ExtentK<4, int>(Extent{1, 1, 1}, Extent{0, 1, 3}, Extent{0, 1, 3}, kOne), bytes);
    //! [bytes]
    print<unsigned char>("bytes", bytes);

    //! [write]
    writeRegion(volume, slice, SharedArray<4>::Make<float>(map.range()));  // zeros
    flush(volume);                                                         // tells what fails on the way down
    //! [write]
    readRegion(volume, slice, map);
    print<float>("after writing", map);
    std::cout << "bytes touched: " << bytesTouched(traitsOf(volume), slice) << '\n';
}
