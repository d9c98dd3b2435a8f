// SPDX-License-Identifier: Apache-2.0
#pragma once

// What regions of any accessor have to be: its samples one by one. Nothing is shared between threads.

#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/core/shared_array.h"
#include "dravik/adt/testing/conformance.h"
#include "dravik/adt/testing/random.h"

#include <algorithm>

namespace Quorvel::Dravik::Adt::Testing {

/// A region of any order and decimation inside `size`.
inline ExtentK<4, int> randomRegion(Random& random, FixedVector<4, int> const& size) {
    ExtentK<4, int> region;
    for (int axis = 0; axis < 4; ++axis) {
        int const step = random.oneOf({-2, -1, 1, 1, 3});
        int const origin = random.between(0, size[axis] - 1);
        int const room = (step > 0 ? size[axis] - 1 - origin : origin) / std::abs(step);
        region[axis] = {origin, step, random.between(1, room + 1)};
    }
    return region;
}

/// The sample at `index` as a request lends it.
template <class T>
T lentSample(BulkView::IBufferAccessor& accessor, FixedVector<4, int> const& index) {
    Borrower reader;
    reader.request(accessor, index, BulkView::AdtEnums::Read);
    return reader.handle.isNull() ? BulkView::Detail::nullSample<T>()
                                  : static_cast<T const*>(reader.handle.buffer())[reader.handle.offset(index)];
}

/// Reads regions of `accessor`, and where it can be written, writes others; both are its samples afterwards.
template <class T>
void expectRegionsAreItsSamples(BulkView::IBufferAccessor& accessor, bool writes) {
    Random random;
    for (int round = 0; round < 12 && !testing::Test::HasFailure(); ++round) {
        auto const region = randomRegion(random, accessor.getSize());
        FixedVector<4, int> size;
        std::transform(region.data(), region.data() + 4, size.begin(), [](auto const& axis) { return axis.count; });
        auto const array = SharedArray<4>::Make<T>(OpenEndedRange<4, int>::OfSize(size));
        auto* const samples = reinterpret_cast<T*>(array.data());
        bool const isWritten = writes && round % 2 != 0;
        if (isWritten) {
            std::generate_n(samples, array.range().pointCount(), [&] { return static_cast<T>(random.between(0, 90)); });
            writeRegion(accessor, region, array);
            flush(accessor);
        } else {
            readRegion(accessor, region, array);
        }
        forEachIndex(array.range(), [&](FixedVector<4, int> const& place) {
            EXPECT_TRUE(sameSample(lentSample<T>(accessor, region.at(place)), samples[array.position(place)]))
                << "at " << place << " of the region " << region << (isWritten ? " written" : " read");
            return !testing::Test::HasFailure();
        });
    }
}

}  // namespace Quorvel::Dravik::Adt::Testing
