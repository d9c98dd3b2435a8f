// SPDX-License-Identifier: Apache-2.0
#pragma once

// DefinitionSet and DefinitionMap: tables whose keys are definitions. Threads: as std::unordered_map.

#include "dravik/adt/bulkdef/equal_definitions.h"

#include <unordered_map>
#include <unordered_set>

namespace Quorvel::Dravik::Adt::BulkDef {

/// Definitions of one root, each once, by what they describe. Searched by pointer or, without a clone, by reference.
///
/// A table hashes a key when it goes in, so what a key describes must not change from then on: give it a clone.
/// @complexity a search compares with every key of the same hash code: all subset views share one, and so do all
/// entities derived by one transform
///
///     DefinitionMap<EntityDef, Grid> open;
///     open.emplace(entity.clone(), grid);
///     auto const found = open.find(entity);
template <class Root>
using DefinitionSet = std::unordered_set<boost::shared_ptr<Root const>, HashDefinitions, EqualDefinitions>;

/// The same with a value for each definition.
template <class Root, class Value>
using DefinitionMap = std::unordered_map<boost::shared_ptr<Root const>, Value, HashDefinitions, EqualDefinitions>;

}  // namespace Quorvel::Dravik::Adt::BulkDef
