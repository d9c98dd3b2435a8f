// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/transform/concat_def.h"

#include "dravik/adt/core/hasher.h"

#include <ostream>

namespace Quorvel::Dravik::Adt::BulkDef::Transform {

ConcatDef const* ConcatDef::Cast(TransformDef const* transform) noexcept {
    return dynamic_cast<ConcatDef const*>(transform);
}

int ConcatDef::getHashCode() const {
    return Hasher(25)(numInputs_)(static_cast<unsigned int>(axis_));
}

void ConcatDef::print(std::ostream& out) const {
    out << "ConcatDef(" << numInputs_ << " along " << axis_ << ")";
}

bool ConcatDef::compare(TransformDef const& other) const {
    auto const* const concat = Cast(&other);
    return concat != nullptr && numInputs_ == concat->numInputs_ && axis_ == concat->axis_;
}

std::unique_ptr<TransformDef> ConcatDef::makeClone() const {
    return std::make_unique<ConcatDef>(numInputs_, axis_);
}

}  // namespace Quorvel::Dravik::Adt::BulkDef::Transform
