// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/transform/convert_def.h"

#include "dravik/adt/bulkdef/detail/print.h"
#include "dravik/adt/core/hasher.h"

#include <bit>
#include <cstdint>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkDef::Transform {

namespace {

std::uint64_t bitsOf(double value) {
    return std::bit_cast<std::uint64_t>(value);
}

}  // namespace

ConvertDef::ConvertDef(std::string sampleType, double scale, double offset)
    : sampleType_(std::move(sampleType)), scale_(scale), offset_(offset) {}

ConvertDef const* ConvertDef::Cast(TransformDef const* transform) noexcept {
    return dynamic_cast<ConvertDef const*>(transform);
}

int ConvertDef::getHashCode() const {
    return Hasher(21)(sampleType_)(static_cast<unsigned int>(bitsOf(scale_) >> 32));
}

void ConvertDef::print(std::ostream& out) const {
    out << "ConvertDef(" << Detail::Quoted{sampleType_} << ", scale " << scale_ << ", offset " << offset_ << ")";
}

bool ConvertDef::compare(TransformDef const& other) const {
    auto const* const convert = Cast(&other);
    return convert != nullptr && sampleType_ == convert->sampleType_ && bitsOf(scale_) == bitsOf(convert->scale_) &&
           bitsOf(offset_) == bitsOf(convert->offset_);
}

std::unique_ptr<TransformDef> ConvertDef::makeClone() const {
    return std::make_unique<ConvertDef>(sampleType_, scale_, offset_);
}

}  // namespace Quorvel::Dravik::Adt::BulkDef::Transform
