// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/entity/derived_entity_def.h"

#include "dravik/adt/exceptions/plain_exception.h"

#include <iterator>
#include <new>
#include <optional>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkDef::Entity {

namespace {

// Derived entities may hold derived entities in chains of any length: nothing here recurs from one into the next.

using Inputs = std::vector<boost::shared_ptr<EntityDef const>>;

// `entity` where it is derived and of no class derived from that, else null.
DerivedEntityDef const* plainlyDerived(EntityDef const* entity) noexcept {
    bool const isPlain = entity != nullptr && typeid(*entity) == typeid(DerivedEntityDef);
    return isPlain ? static_cast<DerivedEntityDef const*>(entity) : nullptr;
}

// Pairs of inputs that are still to be compared.
class InputPairs {
  public:
    using Pair = std::pair<EntityDef const*, EntityDef const*>;

    // Adds the inputs, slot by slot; false if the entities differ in anything else.
    bool add(DerivedEntityDef const& left, DerivedEntityDef const& right) {
        if (left.numInputs() != right.numInputs() || !left.transform().equals(right.transform())) {
            return false;
        }
        // Several slots may share the entities below them. Each pair counts once, or the time would double at each
        // level.
        bool const isNew = left.numInputs() < 2 || met_.emplace(&left, &right).second;
        for (unsigned int slot = left.numInputs(); isNew && slot-- > 0;) {
            Pair const pair(left.getInputPtr(slot).get(), right.getInputPtr(slot).get());
            slot == 0 ? void(next_ = pair) : others_.push_back(pair);
        }
        return true;
    }

    std::optional<Pair> take() noexcept {
        if (!next_ && !others_.empty()) {
            next_ = others_.back();
            others_.pop_back();
        }
        return std::exchange(next_, std::nullopt);
    }

  private:
    std::optional<Pair> next_;  // apart, so that chains with one input per entity need no memory
    std::vector<Pair> others_;
    std::set<Pair> met_;
};

void requireSlot(std::string const& caller, unsigned int slot, std::size_t count) {
    if (slot >= count) {
        throw std::invalid_argument(
            "[DerivedEntityDef::" + caller + "] Index is out of range. (index " + std::to_string(slot) + ", " +
            std::to_string(count) + " inputs)");
    }
}

// The inputs of the entities that this thread destroys just now.
constinit thread_local Inputs* released = nullptr;

}  // namespace

DerivedEntityDef::DerivedEntityDef(TransformDef const& transform)
    : inputs_(transform.numInputs()), transform_(transform.clone()) {}

DerivedEntityDef::DerivedEntityDef(Transform::UnaryTransDef const& transform, EntityDef const& input)
    : DerivedEntityDef(transform) {
    setInput(0, input);
}

DerivedEntityDef::~DerivedEntityDef() {
    if (released != nullptr) {
        try {
            released->insert(
                released->end(), std::make_move_iterator(inputs_.begin()), std::make_move_iterator(inputs_.end()));
        } catch (std::bad_alloc const&) {
            // They go with this entity, one level deeper.
        }
        return;
    }
    Inputs inputs = std::move(inputs_);
    released = &inputs;
    while (!inputs.empty()) {
        auto const last = std::move(inputs.back());
        inputs.pop_back();
    }
    released = nullptr;
}

EntityDef const& DerivedEntityDef::getInput(unsigned int i) const {
    requireSlot("getInput", i, inputs_.size());
    if (!inputs_[i]) {
        throw Exceptions::PlainException("[DerivedEntityDef::getInput] Input entity is not set.");
    }
    return *inputs_[i];
}

boost::shared_ptr<EntityDef const> DerivedEntityDef::getInputPtr(unsigned int i) const {
    requireSlot("getInputPtr", i, inputs_.size());
    return inputs_[i];
}

void DerivedEntityDef::setInput(unsigned int i, EntityDef const& entity) {
    requireSlot("setInput", i, inputs_.size());
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
    // Entities whose inputs are being written, each with the next slot.
    std::vector<std::pair<DerivedEntityDef const*, std::size_t>> open{{this, 0}};
    while (!open.empty()) {
        auto& [entity, slot] = open.back();
        if (slot == entity->inputs_.size()) {
            out << ")";
            open.pop_back();
            continue;
        }
        EntityDef const* const input = entity->inputs_[slot++].get();
        if (auto const* const derived = plainlyDerived(input)) {
            out << ", DerivedEntityDef(" << *derived->transform_;
            open.emplace_back(derived, 0);
        } else if (input != nullptr) {
            out << ", " << *input;
        } else {
            out << ", unset";
        }
    }
}

bool DerivedEntityDef::compare(EntityDef const& other) const {
    auto const* const derived = Cast(&other);
    InputPairs pairs;
    if (derived == nullptr || !pairs.add(*this, *derived)) {
        return false;
    }
    while (auto const pair = pairs.take()) {
        auto const [left, right] = *pair;
        auto const* const leftDerived = plainlyDerived(left);
        auto const* const rightDerived = plainlyDerived(right);
        bool const areEqual = left == right || (leftDerived != nullptr && rightDerived != nullptr
                                                    ? pairs.add(*leftDerived, *rightDerived)
                                                    : left != nullptr && right != nullptr && left->equals(*right));
        if (!areEqual) {
            return false;
        }
    }
    return true;
}

std::unique_ptr<EntityDef> DerivedEntityDef::makeClone() const {
    return std::make_unique<DerivedEntityDef>(*this);
}

}  // namespace Quorvel::Dravik::Adt::BulkDef::Entity
