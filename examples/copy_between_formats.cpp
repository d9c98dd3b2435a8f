// SPDX-License-Identifier: Apache-2.0
// A grid in a netCDF file is copied to a raw file of single bytes and back: one call each, converted on the way.

#include <dravik/adt/bulkdef/entity/derived_entity_def.h>
#include <dravik/adt/bulkdef/entity/source_entity_def.h>
#include <dravik/adt/bulkdef/transform/convert_def.h>
#include <dravik/adt/bulkview/regions/region.h>
#include <dravik/adt/bulkview/views/typed_2d_views.h>
#include <dravik/files/netcdf/netcdf_file.h>
#include <dravik/files/raw/raw_file.h>

#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <string>
#include <utility>

using namespace Quorvel::Dravik;
using namespace Quorvel::Dravik::Adt;
using namespace Quorvel::Dravik::Adt::BulkView;
using namespace Quorvel::Dravik::Adt::BulkDef;
namespace fs = std::filesystem;

namespace {

// A netCDF file to begin with: heights of 0 to 2350 m in steps of 50.
void makeGrid(fs::path const& path) {
    Files::NetcdfLayout layout;
    layout.variable = "height";
    layout.shape = {6, 8};
    layout.axisNames = {"y", "x"};
    layout.unit = "m";
    Files::createNetcdf(path, layout);
    auto const file = Files::NetcdfFileDef(path, "height", {.isPacked = false, .isWritable = true});
    auto grid = Files::openNetcdf(file, Openers::standard());
    Typed2dRwView<float> view(grid.chain->createClone());
    for (int k = 0; k < 48; ++k) {
        view.set(k / 8, k % 8, 50.0f * static_cast<float>(k));
    }
    flush(*grid.chain);
}

}  // namespace

int main() {
    fs::path const folder = fs::temp_directory_path() / ("copy_between_formats." + std::to_string(getpid()));
    fs::create_directories(folder);
    makeGrid(folder / "grid.nc");

    //! [open]
    // What a file is, its own bytes tell; single bytes of ten metres each are a definition on top.
    auto const source = Openers::standard().sourceAt(folder / "grid.nc");
    Entity::DerivedEntityDef const bytes(Transform::ConvertDef("uint8", 0.1, 0), Entity::SourceEntityDef(*source));
    auto from = Openers::standard().open(bytes);
    //! [open]

    //! [copy]
    Files::RawLayout layout;
    layout.shape = {6, 8};
    layout.sampleType = "uint8";
    Files::createRaw(folder / "grid.raw", layout);
    Files::RawFileDef const raw(folder / "grid.raw", layout, /*writable=*/true);
    auto to = Files::openRaw(raw, Openers::standard());
    copyRegion(*from.chain, *to.chain);
    flush(*to.chain);
    //! [copy]
    std::cout << from.info.valueName << " along " << from.info.axes[0].name << " and " << from.info.axes[1].name << ", "
              << fs::file_size(folder / "grid.raw") << " bytes\n";

    // And back, into another file.
    Files::NetcdfLayout again;
    again.variable = "height";
    again.shape = {6, 8};
    Files::createNetcdf(folder / "again.nc", again);
    Files::NetcdfFileDef const target(folder / "again.nc", "height", {.isPacked = false, .isWritable = true});
    auto back = Files::openNetcdf(target, Openers::standard());
    auto metres = Openers::standard().open(
        Entity::DerivedEntityDef(Transform::ConvertDef("float32", 10, 0), Entity::SourceEntityDef(raw)));
    copyRegion(*metres.chain, *back.chain);
    flush(*back.chain);
    Typed2dRoView<float> const view(std::move(back.chain));
    std::cout << view(5, 7) << " m of 2350 m in steps of ten\n";
    fs::remove_all(folder);
}
