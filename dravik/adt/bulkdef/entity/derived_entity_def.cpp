// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/entity/derived_entity_def.h"

#include "dravik/adt/exceptions/plain_exception.h"

#include <algorithm>
#include <ostream>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkDef::Entity {

DerivedEntityDef::DerivedEntityDef(TransformDef const& transform)
    : inputs_(transform.numInputs()), transform_(transform.clone()) {}

DerivedEntityDef::DerivedEntityDef(Transform::UnaryTransDef const& transform, EntityDef const& input)
    : DerivedEntityDef(transform) {
    setInput(0, input);
}

EntityDef const& DerivedEntityDef::getInput(unsigned int i) const {
    if (i >= inputs_.size()) {
        throw std::invalid_argument("[DerivedEntityDef::getInput] Index is out of range.");
    }
    if (!inputs_[i]) {
        throw Exceptions::PlainException("[DerivedEntityDef::getInput] Input entity is not set.");
    }
    return *inputs_[i];
}

boost::shared_ptr<EntityDef const> DerivedEntityDef::getInputPtr(unsigned int i) const {
    if (i >= inputs_.size()) {
        throw std::invalid_argument("[DerivedEntityDef::getInputPtr] Index is out of range.");
    }
    return inputs_[i];
}

void DerivedEntityDef::setInput(unsigned int i, EntityDef const& entity) {
    if (i >= inputs_.size()) {
        throw std::invalid_argument("[DerivedEntityDef::setInput] Index is out of range.");
    }
    inputs_[i] = entity.clone();
}

DerivedEntityDef const* DerivedEntityDef::Cast(EntityDef const* entity) noexcept {
    return dynamic_cast<DerivedEntityDef const*>(entity);
}

int DerivedEntityDef::getHashCode() const {
    return transform_->getHashCode();
}

void DerivedEntityDef::print(std::ostream& out) const {
    out << "DerivedEntityDef(" << *transform_;
    for (auto const& input : inputs_) {
        if (input) {
            out << ", " << *input;
        } else {
            out << ", unset";
        }
    }
    out << ")";
}

bool DerivedEntityDef::compare(EntityDef const& other) const {
    auto const* const derived = Cast(&other);
    return derived != nullptr && transform_->equals(*derived->transform_) &&
           std::equal(
               inputs_.begin(), inputs_.end(), derived->inputs_.begin(), derived->inputs_.end(), EqualDefinitions());
}

std::unique_ptr<EntityDef> DerivedEntityDef::makeClone() const {
    return std::make_unique<DerivedEntityDef>(*this);
}

}  // namespace Quorvel::Dravik::Adt::BulkDef::Entity
