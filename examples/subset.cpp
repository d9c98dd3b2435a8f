// SPDX-License-Identifier: Apache-2.0
// A part of a grid, turned round and thinned out, as a grid of its own; no sample is moved for it.

#include <dravik/adt/bulkdef/view/array_subset_def.h>
#include <dravik/adt/bulkview/accessors/memory_accessor.h>
#include <dravik/adt/bulkview/filters/filter_factory.h>
#include <dravik/adt/bulkview/filters/subset_filter.h>
#include <dravik/adt/bulkview/views/typed_2d_views.h>
#include <dravik/adt/bulkview/views/typed_view_iterator.h>
#include <dravik/text/definition_text.h>

#include <iostream>
#include <memory>
#include <utility>

using namespace Quorvel::Dravik::Adt;
using namespace Quorvel::Dravik::Adt::BulkView;

namespace {

using Extent = ExtentImpl<int>;

// 6 rows of 8 samples that tell where they are: the sample at (r,c) is 10 r + c.
std::unique_ptr<IBufferAccessor> makeGrid() {
    Typed2dRwView<float> view;
    auto grid = std::make_unique<Accessors::MemoryAccessor>(SharedArray<2>::Make<float>({{0, 0}, {6, 8}}));
    view.init(grid->createClone());  // clones share the samples
    for (int row = 0; row < 6; ++row) {
        for (int column = 0; column < 8; ++column) {
            view.set(row, column, static_cast<float>(10 * row + column));
        }
    }
    return grid;
}

void print(char const* title, std::unique_ptr<IBufferAccessor> grid) {
    Typed2dRoView<float> const view(std::move(grid));
    std::cout << title << ", " << view.size() << ":";
    for (float const sample : view.samples()) {
        std::cout << ' ' << sample;
    }
    std::cout << '\n';
}

}  // namespace

int main() {
    using Filters::SubsetFilter;

    //! [subset]
    // Rows 5, 3 and 1; every second column from 2 on. Each axis: first index, step, count.
    ExtentK<4, int> const part({Extent{5, -2, 3}, Extent{2, 2, 3}, Extent{0, 1, 1}, Extent{0, 1, 1}});
    print("reversed and decimated", SubsetFilter::MakeSubset(makeGrid(), part));
    //! [subset]

    //! [fold]
    ExtentK<4, int> const firstRow({Extent{0, 1, 1}, Extent{0, 1, 3}, Extent{0, 1, 1}, Extent{0, 1, 1}});
    auto const row = SubsetFilter::MakeSubset(SubsetFilter::MakeSubset(makeGrid(), part), firstRow);
    std::cout << "its first row is " << dynamic_cast<SubsetFilter const&>(*row).getSubset() << " of the grid\n";
    //! [fold]

    //! [definition]
    BulkDef::View::ArraySubsetDef<2> const corner({Extent{4, 1, 2}, Extent{7, -1, 2}});
    print("a corner by its definition", Filters::FilterFactory::MakeView(makeGrid(), corner));
    std::cout << "which is " << Quorvel::Dravik::Text::toText(corner) << '\n';
    //! [definition]
}
