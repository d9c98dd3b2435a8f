#include "dravik/adt/bulkdef/entity_def.h"

#include "dravik/adt/bulkdef/detail/print.h"

namespace Quorvel::Dravik::Adt::BulkDef {

EntityDef::~EntityDef() = default;

bool EntityDef::equals(EntityDef const& other) const {
    return compare(other) && other.compare(*this);
}

boost::shared_ptr<EntityDef> EntityDef::clone() const {
    return makeClone();
}

std::ostream& operator<<(std::ostream& out, EntityDef const& def) {
    return Detail::printDefinition(out, def);
}

}  // namespace Quorvel::Dravik::Adt::BulkDef
