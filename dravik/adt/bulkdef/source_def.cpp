// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/source_def.h"

#include "dravik/adt/bulkdef/detail/print.h"
#include "dravik/adt/exceptions/plain_exception.h"

namespace Quorvel::Dravik::Adt::BulkDef {

SourceDef::~SourceDef() = default;

std::string SourceDef::toString() const {
    throw Exceptions::PlainException("[SourceDef::toString] Default implementation not supported.");
}

bool SourceDef::equals(SourceDef const& other) const {
    return compare(other) && other.compare(*this);
}

boost::shared_ptr<SourceDef> SourceDef::clone() const {
    return makeClone();
}

std::ostream& operator<<(std::ostream& out, SourceDef const& def) {
    return Detail::printDefinition(out, def);
}

}  // namespace Quorvel::Dravik::Adt::BulkDef
