// SPDX-License-Identifier: Apache-2.0
#include "grid.h"

#include "netcdf_store.h"
#include "terrain_store.h"

#include <dravik/adt/bulkdef/source/bulk_file_def.h>

#include <stdexcept>
#include <string_view>

namespace Relief {
namespace {

using BulkDef::Source::BulkFileDef;

constexpr std::string_view kGenerated = "generated";
constexpr BrickShape kGeneratedSize{2161, 4320};

Grid generatedGrid(BrickShape size) {
    return {std::make_shared<TerrainStore>(size.rows, size.columns), "generated terrain", "meters", true};
}

Grid fileGrid(std::string const& path, std::string const& variable) {
    auto const store = std::make_shared<NetcdfStore>(path, variable);
    std::string const name = store->variable() + " of " + path;
    if (store->rank() != 2) {
        throw std::runtime_error(name + " is no grid: it has " + std::to_string(store->rank()) + " axes, not two");
    }
    return {store, name, store->unit(), store->risesAlong(0)};
}

}  // namespace

BulkDef::Entity::SourceEntityDef entityOf(std::string const& input) {
    return BulkDef::Entity::SourceEntityDef(BulkFileDef(input, BulkFileDef::FILEFORMAT_OTHER));
}

Grid openGrid(BulkDef::EntityDef const& entity, std::string const& variable) {
    auto const* const sourced = BulkDef::Entity::SourceEntityDef::Cast(&entity);
    auto const* const file = sourced == nullptr ? nullptr : BulkFileDef::Cast(&sourced->source());
    if (file == nullptr) {
        throw std::runtime_error("only data sets in files can be opened");
    }
    std::string const& path = file->fileName();
    if (path == kGenerated) {
        return generatedGrid(kGeneratedSize);
    }
    if (path.starts_with(kGenerated) && path[kGenerated.size()] == ':') {
        auto const size = parseShape(path.substr(kGenerated.size() + 1));
        return size ? generatedGrid(*size) : throw std::runtime_error("'" + path + "' names no size");
    }
    return fileGrid(path, variable);
}

}  // namespace Relief
