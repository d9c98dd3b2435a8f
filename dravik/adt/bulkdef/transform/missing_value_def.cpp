// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/transform/missing_value_def.h"

#include "dravik/adt/core/hasher.h"

#include <bit>
#include <cstdint>
#include <ostream>

namespace Quorvel::Dravik::Adt::BulkDef::Transform {

namespace {

std::uint64_t bitsOf(double value) {
    return std::bit_cast<std::uint64_t>(value);
}

}  // namespace

MissingValueDef const* MissingValueDef::Cast(TransformDef const* transform) noexcept {
    return dynamic_cast<MissingValueDef const*>(transform);
}

int MissingValueDef::getHashCode() const {
    return Hasher(31)(static_cast<unsigned int>(bitsOf(lowest_) >> 32))(
        static_cast<unsigned int>(bitsOf(highest_) >> 32));
}

void MissingValueDef::print(std::ostream& out) const {
    out << "MissingValueDef(" << lowest_;
    if (bitsOf(lowest_) != bitsOf(highest_)) {
        out << " to " << highest_;
    }
    out << ")";
}

bool MissingValueDef::compare(TransformDef const& other) const {
    auto const* const missing = Cast(&other);
    return missing != nullptr && bitsOf(lowest_) == bitsOf(missing->lowest_) &&
           bitsOf(highest_) == bitsOf(missing->highest_);
}

std::unique_ptr<TransformDef> MissingValueDef::makeClone() const {
    return std::make_unique<MissingValueDef>(*this);
}

}  // namespace Quorvel::Dravik::Adt::BulkDef::Transform
