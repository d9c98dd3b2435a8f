// SPDX-License-Identifier: Apache-2.0
// Makes a netCDF file and opens it by its path: knows the format by the component that it links alone.

#include <dravik/adt/adt.h>
#include <dravik/files/netcdf/netcdf_file.h>

#include <iostream>

int main(int, char** arguments) {
    using namespace Quorvel::Dravik;
    Files::createNetcdf(arguments[1], {.variable = "height", .shape = {6, 8}, .sampleType = "int16"});
    auto const source = Adt::BulkView::Openers::standard().sourceAt(arguments[1]);
    auto const grid = Adt::BulkView::Openers::standard().open(Adt::BulkDef::Entity::SourceEntityDef(*source));
    Adt::BulkView::Typed2dRoView<short> const view(grid.chain->createClone());
    std::cout << grid.info.valueName << ", " << view.size() << " samples\n";
    return grid.info.valueName == "height" && view.size() == Adt::FixedVector<2, int>(6, 8) ? 0 : 1;
}
