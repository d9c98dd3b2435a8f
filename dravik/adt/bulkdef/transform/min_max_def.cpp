// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/transform/min_max_def.h"

#include "dravik/adt/core/hasher.h"

#include <ostream>

namespace Quorvel::Dravik::Adt::BulkDef::Transform {

MinMaxDef::MinMaxDef(FixedVector<3, int> binSize) : binSize_(binSize) {}

MinMaxDef const* MinMaxDef::Cast(TransformDef const* transform) noexcept {
    return dynamic_cast<MinMaxDef const*>(transform);
}

int MinMaxDef::getHashCode() const {
    Hasher hasher(15);
    for (int const size : binSize_) {
        hasher(static_cast<unsigned int>(size));
    }
    return hasher;
}

void MinMaxDef::print(std::ostream& out) const {
    out << "MinMaxDef(" << binSize_ << ")";
}

bool MinMaxDef::compare(TransformDef const& other) const {
    auto const* const minMax = Cast(&other);
    return minMax != nullptr && binSize_ == minMax->binSize_;
}

std::unique_ptr<TransformDef> MinMaxDef::makeClone() const {
    return std::make_unique<MinMaxDef>(binSize_);
}

}  // namespace Quorvel::Dravik::Adt::BulkDef::Transform
