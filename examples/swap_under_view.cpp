// SPDX-License-Identifier: Apache-2.0
// Exchanging the data below an open view: the view stays, and follows to the new size.

#include <dravik/adt/bulkview/accessors/memory_accessor.h>
#include <dravik/adt/bulkview/filters/proxy_filter.h>
#include <dravik/adt/bulkview/views/typed_2d_views.h>

#include <boost/smart_ptr/make_shared.hpp>

#include <iostream>
#include <memory>

using namespace Quorvel::Dravik::Adt;
using namespace Quorvel::Dravik::Adt::BulkView;

namespace {

// A grid whose samples are all `value`.
std::unique_ptr<IBufferAccessor> makeGrid(int rows, int columns, float value) {
    auto grid = std::make_unique<Accessors::MemoryAccessor>(SharedArray<2>::Make<float>({{0, 0}, {rows, columns}}));
    Typed2dRwView<float> view(grid->createClone());  // clones share the samples
    for (int row = 0; row < rows; ++row) {
        for (int column = 0; column < columns; ++column) {
            view.set(row, column, value);
        }
    }
    return grid;
}

void print(Typed2dRoView<float> const& view) {
    std::cout << "size " << view.size() << ", first sample " << view(0, 0) << '\n';
}

}  // namespace

int main() {
    //! [swap]
    using Filters::ProxyFilter;
    auto const controller = boost::make_shared<ProxyFilter::ProxyTargetController>();
    Typed2dRoView<float> const view(ProxyFilter::MakeProxy(makeGrid(2, 3, 1.5f), controller));
    Typed2dRoView<float> const copy(view);  // with a chain of its own, and the same controller
    print(view);

    controller->setTarget(makeGrid(400, 600, 2.5f));  // no view may be in use on another thread now
    print(view);
    print(copy);

    try {
        controller->setTarget(nullptr);
    } catch (ProxyFilter::Error const& error) {
        std::cout << error.what() << '\n';
    }
    print(view);
    //! [swap]
}
