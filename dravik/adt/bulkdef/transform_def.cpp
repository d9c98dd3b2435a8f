// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/transform_def.h"

#include "dravik/adt/bulkdef/detail/print.h"

namespace Quorvel::Dravik::Adt::BulkDef {

TransformDef::~TransformDef() = default;

bool TransformDef::equals(TransformDef const& other) const {
    return compare(other) && other.compare(*this);
}

boost::shared_ptr<TransformDef> TransformDef::clone() const {
    return makeClone();
}

std::ostream& operator<<(std::ostream& out, TransformDef const& def) {
    return Detail::printDefinition(out, def);
}

}  // namespace Quorvel::Dravik::Adt::BulkDef
