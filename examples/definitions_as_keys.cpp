// SPDX-License-Identifier: Apache-2.0
// A host finds the data that it has open already by what the data is, and works out which part of it a window needs.

#include <dravik/adt/bulkdef/definition_containers.h>
#include <dravik/adt/bulkdef/entity/derived_entity_def.h>
#include <dravik/adt/bulkdef/entity/source_entity_def.h>
#include <dravik/adt/bulkdef/source/bulk_file_def.h>
#include <dravik/adt/bulkdef/transform/decimate_def.h>
#include <dravik/adt/bulkdef/view/array_subset_def.h>
#include <dravik/adt/bulkdef/view/array_view_converter.h>
#include <dravik/adt/bulkdef/view/composite_view_def.h>
#include <dravik/text/definition_text.h>

#include <iostream>

using namespace Quorvel::Dravik::Adt;
using namespace Quorvel::Dravik::Adt::BulkDef;

int main() {
    //! [entities]
    Entity::SourceEntityDef const relief(Source::BulkFileDef("relief.vol", Source::BulkFileDef::FILEFORMAT_OTHER));
    Transform::DecimateDef const everyFourth({4, 4, 1, 1}, {0, 0, 0, 0});
    Entity::DerivedEntityDef const coarse(everyFourth, relief);
    //! [entities]

    //! [keys]
    DefinitionMap<EntityDef, char const*> open;
    open.emplace(relief.clone(), "the file itself");
    open.emplace(coarse.clone(), "the overview");

    Entity::DerivedEntityDef const wanted(everyFourth, relief);  // another object that describes the same
    std::cout << wanted << "\n  is open as " << open.find(wanted)->second << '\n';
    //! [keys]

    //! [views]
    using Extent = ExtentImpl<int>;
    View::ArraySubsetDef<2> const northUp({Extent{11, -1, 12}, Extent{0, 1, 16}});
    View::ArraySubsetDef<2> const window({Extent{2, 3, 3}, Extent{4, 3, 4}});
    auto const shown = View::CompositeViewDef::compose(/*inner=*/northUp, /*outer=*/window);
    std::cout << *shown << '\n';
    //! [views]

    //! [text]
    std::cout << Quorvel::Dravik::Text::toText({.entity = wanted.clone(), .view = shown}) << '\n';
    //! [text]

    //! [converter]
    View::ArrayViewConverter<2> const toTarget(shown);
    OpenEndedRange<2, int> const firstRow{{0, 0}, {1, 4}};
    std::cout << firstRow << " of the window needs " << toTarget.convert(firstRow) << " of the file\n";
    //! [converter]
}
