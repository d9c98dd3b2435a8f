// SPDX-License-Identifier: Apache-2.0
#pragma once

// Which grid the demo reads: from a definition that describes it to a store that has its samples.

#include "grid_store.h"
#include "options.h"

#include <dravik/adt/bulkdef/entity/source_entity_def.h>

#include <memory>
#include <string>

namespace Relief {

namespace BulkDef = Quorvel::Dravik::Adt::BulkDef;

/// An open grid of two axes.
struct Grid {
    std::shared_ptr<BulkView::IBrickStore const> store;
    std::string name;  ///< for people to read
    std::string unit;  ///< of a sample; may be empty
    bool rowsGoNorth;  ///< whether row 0 is the southernmost

    int rows() const { return store->size()[0]; }
    int columns() const { return store->size()[1]; }
};

/// The data set that a command line names: a file, or "generated" with or without a size.
BulkDef::Entity::SourceEntityDef entityOf(std::string const& input);

/// Opens what `entity` describes; of a file the variable of that name, or its largest grid.
/// @throws std::runtime_error with one line that says why there is no such grid
Grid openGrid(BulkDef::EntityDef const& entity, std::string const& variable);

}  // namespace Relief
