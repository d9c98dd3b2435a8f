// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/transform/multires_def.h"

#include "dravik/adt/bulkdef/detail/print.h"
#include "dravik/adt/core/hasher.h"

#include <utility>

namespace Quorvel::Dravik::Adt::BulkDef::Transform {

std::string const& MultiresDef::BasicAverage = *new std::string("BasicAverage");
std::string const& MultiresDef::FirstValid = *new std::string("FirstValid");
std::string const& MultiresDef::Decimation = *new std::string("Decimation");

MultiresDef::MultiresDef(int factor, std::string name) : name_(std::move(name)), factor_(factor) {}

MultiresDef const* MultiresDef::Cast(TransformDef const* transform) noexcept {
    return dynamic_cast<MultiresDef const*>(transform);
}

int MultiresDef::getHashCode() const {
    return Hasher(13)(static_cast<unsigned int>(factor_));
}

void MultiresDef::print(std::ostream& out) const {
    out << "MultiresDef(" << factor_ << ", " << Detail::Quoted{name_} << ")";
}

bool MultiresDef::compare(TransformDef const& other) const {
    auto const* const multires = Cast(&other);
    return multires != nullptr && factor_ == multires->factor_;
}

std::unique_ptr<TransformDef> MultiresDef::makeClone() const {
    return std::make_unique<MultiresDef>(factor_, name_);
}

}  // namespace Quorvel::Dravik::Adt::BulkDef::Transform
