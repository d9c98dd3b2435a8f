// SPDX-License-Identifier: Apache-2.0
#pragma once

// EntityDef: root of the definitions that say which data set is meant.

#include "dravik/adt/bulkdef/detail/definition_root.h"
#include "dravik/adt/export.h"

#include <memory>

namespace Quorvel::Dravik::Adt::BulkDef {

/// A data set: one that lies somewhere, or one that is computed from others.
///
/// Contract of this root and of SourceDef, TransformDef and ViewDef: a definition describes and never touches a sample.
/// It is built, filled and from then on immutable; what keeps a definition keeps a clone of it through a shared pointer
/// to const. Every derived class overrides compare(), accepting no other class than its own: with an inherited one, a
/// base and a derived object could be equal. Threads: read by any number of them once shared.
class DRAVIK_ADT_EXPORT EntityDef : public Detail::DefinitionRoot<EntityDef> {
  public:
    EntityDef() = default;
    EntityDef(EntityDef const&) = default;
    EntityDef& operator=(EntityDef const&) = default;
    virtual ~EntityDef();

    /// The same for equal definitions.
    virtual int getHashCode() const = 0;

  protected:
    /// Whether `other` is of this class, or of one derived from it, and describes the same.
    virtual bool compare(EntityDef const& other) const = 0;

    /// A new object of this very class.
    virtual std::unique_ptr<EntityDef> makeClone() const = 0;

  private:
    friend class Detail::DefinitionRoot<EntityDef>;
};

extern template class Detail::DefinitionRoot<EntityDef>;

}  // namespace Quorvel::Dravik::Adt::BulkDef
