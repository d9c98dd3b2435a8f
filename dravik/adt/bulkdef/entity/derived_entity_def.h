// SPDX-License-Identifier: Apache-2.0
#pragma once

// DerivedEntityDef: a data set that is computed from others. Threads: as every definition.

#include "dravik/adt/bulkdef/entity_def.h"
#include "dravik/adt/bulkdef/printable.h"
#include "dravik/adt/bulkdef/transform/unary_trans_def.h"
#include "dravik/adt/bulkdef/transform_def.h"

#include <vector>

namespace Quorvel::Dravik::Adt::BulkDef::Entity {

/// What a transform makes of its inputs: one slot per input, each empty until it is set.
///
/// An index at or above the number of slots is refused with both numbers.
/// Holds clones of the transform and of the inputs; copies and clones of this definition share them. The hash is the
/// transform's alone.
class DRAVIK_ADT_EXPORT DerivedEntityDef : public EntityDef, public IPrintable {
  public:
    /// As many empty slots as `transform` has inputs; the number stays.
    explicit DerivedEntityDef(TransformDef const& transform);

    /// The same, with `input` in slot 0.
    DerivedEntityDef(Transform::UnaryTransDef const& transform, EntityDef const& input);

    // Without moves: a definition that was moved from would hold nothing.
    DerivedEntityDef(DerivedEntityDef const&) = default;
    DerivedEntityDef& operator=(DerivedEntityDef const&) = default;
    ~DerivedEntityDef() override;

    TransformDef const& transform() const noexcept { return *transform_; }
    /// Never empty.
    boost::shared_ptr<TransformDef const> const& transformPtr() const noexcept { return transform_; }

    unsigned int numInputs() const noexcept { return static_cast<unsigned int>(inputs_.size()); }

    /// The entity in slot `i`.
    /// @throws std::invalid_argument "[DerivedEntityDef::getInput] Index is out of range. (index 2, 2 inputs)"
    /// @throws Exceptions::PlainException "[DerivedEntityDef::getInput] Input entity is not set."
    EntityDef const& getInput(unsigned int i) const;

    /// The pointer in slot `i`, empty where no entity is set.
    /// @throws std::invalid_argument "[DerivedEntityDef::getInputPtr] Index is out of range. (index 2, 2 inputs)"
    boost::shared_ptr<EntityDef const> getInputPtr(unsigned int i) const;

    /// Puts a clone of `entity` into slot `i`; on failure the slot stays as it was.
    /// @throws std::invalid_argument "[DerivedEntityDef::setInput] Index is out of range. (index 2, 2 inputs)"
    void setInput(unsigned int i, EntityDef const& entity);

    /// `entity` itself where it is derived, else null.
    static DerivedEntityDef const* Cast(EntityDef const* entity) noexcept;

    int getHashCode() const override;
    void print(std::ostream& out) const override;

  protected:
    bool compare(EntityDef const& other) const override;
    std::unique_ptr<EntityDef> makeClone() const override;

  private:
    std::vector<boost::shared_ptr<EntityDef const>> inputs_;  // first, so that a failed assignment changes nothing
    boost::shared_ptr<TransformDef const> transform_;
};

}  // namespace Quorvel::Dravik::Adt::BulkDef::Entity
