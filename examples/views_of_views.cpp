// SPDX-License-Identifier: Apache-2.0
// Grids of several years joined to a volume, padded with a constant, its axes exchanged, and a coarse level of it: all
// by definitions, of which no sample is moved before it is read.

#include <dravik/adt/bulkdef/entity/derived_entity_def.h>
#include <dravik/adt/bulkdef/entity/source_entity_def.h>
#include <dravik/adt/bulkdef/source/constant_def.h>
#include <dravik/adt/bulkdef/transform/concat_def.h>
#include <dravik/adt/bulkdef/transform/multires_def.h>
#include <dravik/adt/bulkdef/view/array_subset_def.h>
#include <dravik/adt/bulkdef/view/axes_view_def.h>
#include <dravik/adt/bulkdef/view/composite_view_def.h>
#include <dravik/adt/bulkview/accessors/function_accessor.h>
#include <dravik/adt/bulkview/stores/openers.h>
#include <dravik/adt/bulkview/views/typed_3d_views.h>
#include <dravik/text/definition_text.h>

#include <iostream>
#include <utility>

using namespace Quorvel::Dravik;
using namespace Quorvel::Dravik::Adt;
using namespace Quorvel::Dravik::Adt::BulkDef;
using Quorvel::Dravik::Adt::BulkView::Openers;

namespace {

void show(char const* what, BulkView::OpenedData data) {
    auto const size = data.chain->getSize();
    BulkView::Typed3dRoView<float> const view(std::move(data.chain));
    std::cout << what << ' ' << size << ", first " << view(0, 0, 0) << ", last "
              << view(size[0] - 1, size[1] - 1, size[2] - 1) << '\n';
}

}  // namespace

int main() {
    //! [join]
    // Two cubes of constants end to end along the third axis.
    using Entity::DerivedEntityDef;
    using Entity::SourceEntityDef;
    using Source::ConstantDef;
    DerivedEntityDef years(Transform::ConcatDef(2, 2));
    years.setInput(0, SourceEntityDef(ConstantDef({4, 6, 8, 1}, "float32", 1)));
    years.setInput(1, SourceEntityDef(ConstantDef({4, 6, 2, 1}, "float32", 3)));
    show("joined", Openers::standard().open(years));
    //! [join]

    //! [axes]
    // The third axis first, and of the joined one every third index backwards.
    View::AxesViewDef<3> const axes({2, 0, 1});
    using Extent = ExtentImpl<int>;
    View::ArraySubsetDef<3> const part({Extent{9, -3, 4}, Extent{0, 1, 4}, Extent{0, 1, 6}});
    auto const view = View::CompositeViewDef::compose(axes, part);
    std::cout << *view << '\n';
    show("seen otherwise", Openers::standard().open(years, *view));
    std::cout << Text::toText(Text::Definitions{years.clone(), {}, {}, view}) << '\n';
    //! [axes]

    //! [coarse]
    // Means of four samples along each axis, and of what is left at the end.
    DerivedEntityDef const coarse(Transform::MultiresDef(4, Transform::MultiresDef::BasicAverage), years);
    show("coarser", Openers::standard().open(coarse));
    //! [coarse]

    //! [function]
    // A source in code: tests and masks need no file.
    auto ramp = std::make_unique<BulkView::Accessors::FunctionAccessor<float>>(
        FixedVector<4, int>(3, 3, 3, 1), FixedVector<4, int>(1, 3, 3, 1),
        [](FixedVector<4, int> const& index) { return static_cast<float>(index[0] * 100 + index[1] * 10 + index[2]); });
    show("computed", {std::move(ramp), {}});
    //! [function]
}
