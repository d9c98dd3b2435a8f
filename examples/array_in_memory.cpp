// SPDX-License-Identifier: Apache-2.0
// An array in memory, read and written through a view of it: single samples, a box of them, a trace.

#include <dravik/adt/bulkview/accessors/memory_accessor.h>
#include <dravik/adt/bulkview/views/typed_3d_views.h>
#include <dravik/adt/bulkview/views/typed_view_iterator.h>
#include <dravik/adt/bulkview/views/view_exceptions.h>

#include <iostream>
#include <memory>
#include <vector>

using namespace Quorvel::Dravik::Adt;
using namespace Quorvel::Dravik::Adt::BulkView;

int main() {
    //! [array]
    std::vector<float> samples(4 * 5 * 6);  // 4 inlines, 5 crosslines, 6 samples down
    auto const volume = SharedArray<3>::Wrap<float>(samples, {{0, 0, 0}, {4, 5, 6}});  // copies nothing
    Typed3dRwView<float> view(std::make_unique<Accessors::MemoryAccessor>(volume));
    //! [array]

    //! [samples]
    view.set(1, 2, 3, 7.5f);
    std::cout << "the view says " << view(1, 2, 3) << ", the vector " << samples[(1 * 5 + 2) * 6 + 3] << '\n';
    try {
        view.set(1, 2, 6, 1.0f);
    } catch (ViewBoundsException const& error) {
        std::cout << error.what() << '\n';
    }
    //! [samples]

    //! [box]
    float sum = 0;
    for (float const sample : view.samples({1, 2, 0}, {1, 1, 6})) {  // from (1,2,0) on, so many along each axis
        sum += sample;
    }
    float trace[6];
    view.prototypeGetKTrace(1, 2, 0, trace, 6);
    std::cout << "the trace sums up to " << sum << ", its fourth sample is " << trace[3] << '\n';
    //! [box]
}
