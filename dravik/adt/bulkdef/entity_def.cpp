// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/entity_def.h"

#include "dravik/adt/bulkdef/detail/print.h"
#include "dravik/adt/bulkdef/entity/derived_entity_def.h"

namespace Quorvel::Dravik::Adt::BulkDef {

EntityDef::~EntityDef() = default;

bool EntityDef::equals(EntityDef const& other) const {
    // Derived entities ask their inputs in either direction already. Asking them twice at every level would take time
    // that doubles with each level below.
    bool const bothDerived = typeid(*this) == typeid(Entity::DerivedEntityDef) && typeid(other) == typeid(*this);
    return compare(other) && (bothDerived || other.compare(*this));
}

boost::shared_ptr<EntityDef> EntityDef::clone() const {
    return makeClone();
}

std::ostream& operator<<(std::ostream& out, EntityDef const& def) {
    return Detail::printDefinition(out, def);
}

}  // namespace Quorvel::Dravik::Adt::BulkDef
