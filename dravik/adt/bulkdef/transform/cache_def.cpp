// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/transform/cache_def.h"

#include "dravik/adt/core/hasher.h"

#include <ostream>

namespace Quorvel::Dravik::Adt::BulkDef::Transform {

CacheDef const* CacheDef::Cast(TransformDef const* transform) noexcept {
    return dynamic_cast<CacheDef const*>(transform);
}

int CacheDef::getHashCode() const {
    return Hasher(23)(static_cast<unsigned int>(sampleBudget_));
}

void CacheDef::print(std::ostream& out) const {
    out << "CacheDef(" << sampleBudget_ << ")";
}

bool CacheDef::compare(TransformDef const& other) const {
    auto const* const cache = Cast(&other);
    return cache != nullptr && sampleBudget_ == cache->sampleBudget_;
}

std::unique_ptr<TransformDef> CacheDef::makeClone() const {
    return std::make_unique<CacheDef>(sampleBudget_);
}

}  // namespace Quorvel::Dravik::Adt::BulkDef::Transform
