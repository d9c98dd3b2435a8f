// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/entity/source_entity_def.h"

#include <ostream>

namespace Quorvel::Dravik::Adt::BulkDef::Entity {

SourceEntityDef::SourceEntityDef(SourceDef const& source) : source_(source.clone()) {}

void SourceEntityDef::setSource(SourceDef const& source) {
    source_ = source.clone();
}

SourceEntityDef const* SourceEntityDef::Cast(EntityDef const* entity) noexcept {
    return dynamic_cast<SourceEntityDef const*>(entity);
}

int SourceEntityDef::getHashCode() const {
    return source_->getHashCode();
}

void SourceEntityDef::print(std::ostream& out) const {
    out << "SourceEntityDef(" << *source_ << ")";
}

bool SourceEntityDef::compare(EntityDef const& other) const {
    auto const* const entity = Cast(&other);
    return entity != nullptr && source_->equals(*entity->source_);
}

std::unique_ptr<EntityDef> SourceEntityDef::makeClone() const {
    return std::make_unique<SourceEntityDef>(*source_);
}

}  // namespace Quorvel::Dravik::Adt::BulkDef::Entity
