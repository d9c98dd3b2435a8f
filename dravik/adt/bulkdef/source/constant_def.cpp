// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/source/constant_def.h"

#include "dravik/adt/bulkdef/detail/print.h"
#include "dravik/adt/core/hasher.h"

#include <bit>
#include <cstdint>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkDef::Source {

ConstantDef::ConstantDef(FixedVector<4, int> const& size, std::string sampleType, double value)
    : sampleType_(std::move(sampleType)), size_(size), value_(value) {}

ConstantDef const* ConstantDef::Cast(SourceDef const* source) noexcept {
    return dynamic_cast<ConstantDef const*>(source);
}

int ConstantDef::getHashCode() const {
    Hasher hash(23);
    hash(sampleType_)(static_cast<unsigned int>(std::bit_cast<std::uint64_t>(value_) >> 32));
    for (int const length : size_) {
        hash(static_cast<unsigned int>(length));
    }
    return hash;
}

void ConstantDef::print(std::ostream& out) const {
    out << "ConstantDef(" << size_ << ", " << Detail::Quoted{sampleType_} << ", " << value_ << ")";
}

bool ConstantDef::compare(SourceDef const& other) const {
    auto const* const constant = Cast(&other);
    return constant != nullptr && size_ == constant->size_ && sampleType_ == constant->sampleType_ &&
           std::bit_cast<std::uint64_t>(value_) == std::bit_cast<std::uint64_t>(constant->value_);
}

std::unique_ptr<SourceDef> ConstantDef::makeClone() const {
    return std::make_unique<ConstantDef>(*this);
}

}  // namespace Quorvel::Dravik::Adt::BulkDef::Source
