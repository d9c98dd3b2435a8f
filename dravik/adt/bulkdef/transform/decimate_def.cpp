// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/transform/decimate_def.h"

#include "dravik/adt/core/hasher.h"

#include <ostream>

namespace Quorvel::Dravik::Adt::BulkDef::Transform {

DecimateDef::DecimateDef(FixedVector<4, int> const& decimation, FixedVector<4, int> const& offset)
    : decimation_(decimation), offset_(offset) {}

DecimateDef const* DecimateDef::Cast(TransformDef const* transform) noexcept {
    return dynamic_cast<DecimateDef const*>(transform);
}

int DecimateDef::getHashCode() const {
    Hasher hasher(17);
    for (FixedVector<4, int> const* const numbers : {&decimation_, &offset_}) {
        for (int const number : *numbers) {
            hasher(static_cast<unsigned int>(number));
        }
    }
    return hasher;
}

void DecimateDef::print(std::ostream& out) const {
    out << "DecimateDef(" << decimation_ << ", offset " << offset_ << ")";
}

bool DecimateDef::compare(TransformDef const& other) const {
    auto const* const decimate = Cast(&other);
    return decimate != nullptr && decimation_ == decimate->decimation_ && offset_ == decimate->offset_;
}

std::unique_ptr<TransformDef> DecimateDef::makeClone() const {
    return std::make_unique<DecimateDef>(decimation_, offset_);
}

}  // namespace Quorvel::Dravik::Adt::BulkDef::Transform
