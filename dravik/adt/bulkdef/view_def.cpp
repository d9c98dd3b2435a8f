// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/view_def.h"

#include "dravik/adt/bulkdef/detail/print.h"

namespace Quorvel::Dravik::Adt::BulkDef {

ViewDef::~ViewDef() = default;

bool ViewDef::equals(ViewDef const& other) const {
    return compare(other) && other.compare(*this);
}

boost::shared_ptr<ViewDef> ViewDef::clone() const {
    return makeClone();
}

std::ostream& operator<<(std::ostream& out, ViewDef const& def) {
    return Detail::printDefinition(out, def);
}

}  // namespace Quorvel::Dravik::Adt::BulkDef
