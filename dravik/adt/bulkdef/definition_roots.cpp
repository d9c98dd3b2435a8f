// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/detail/definition_root.h"

#include "dravik/adt/bulkdef/detail/print.h"
#include "dravik/adt/bulkdef/entity/derived_entity_def.h"
#include "dravik/adt/bulkdef/entity_def.h"
#include "dravik/adt/bulkdef/source_def.h"
#include "dravik/adt/bulkdef/transform_def.h"
#include "dravik/adt/bulkdef/view/inverse_array_view_def.h"
#include "dravik/adt/bulkdef/view_def.h"
#include "dravik/adt/exceptions/plain_exception.h"

#include <typeinfo>

namespace Quorvel::Dravik::Adt::BulkDef {

EntityDef::~EntityDef() = default;
SourceDef::~SourceDef() = default;
TransformDef::~TransformDef() = default;
ViewDef::~ViewDef() = default;

std::string SourceDef::toString() const {
    throw Exceptions::PlainException("[SourceDef::toString] Default implementation not supported.");
}

namespace Detail {

template <class Root>
bool DefinitionRoot<Root>::equals(Root const& other) const {
    auto const& self = static_cast<Root const&>(*this);
    auto const areBoth = [&](std::type_info const& type) { return typeid(self) == type && typeid(other) == type; };
    // These two ask what they hold in either direction already. Asking again at every level would take time that
    // doubles with each level below.
    bool const isSymmetric =
        areBoth(typeid(Entity::DerivedEntityDef)) || areBoth(typeid(View::ArrayViewDef::InverseArrayViewDef));
    return self.compare(other) && (isSymmetric || other.compare(self));
}

template <class Root>
boost::shared_ptr<Root> DefinitionRoot<Root>::clone() const {
    return static_cast<Root const&>(*this).makeClone();
}

template <class Root>
std::ostream& DefinitionRoot<Root>::write(std::ostream& out, Root const& def) {
    return printDefinition(out, def);
}

template class DefinitionRoot<EntityDef>;
template class DefinitionRoot<SourceDef>;
template class DefinitionRoot<TransformDef>;
template class DefinitionRoot<ViewDef>;

}  // namespace Detail

}  // namespace Quorvel::Dravik::Adt::BulkDef
