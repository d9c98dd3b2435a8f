// SPDX-License-Identifier: Apache-2.0
#pragma once

// ViewDef: root of the definitions that say which part of a data set is looked at.

#include "dravik/adt/bulkdef/detail/definition_root.h"
#include "dravik/adt/export.h"

#include <memory>

namespace Quorvel::Dravik::Adt::BulkDef {

/// The part of a target that a consumer sees, and how its indices relate to the target's.
/// Contract and thread rule are those of EntityDef.
class DRAVIK_ADT_EXPORT ViewDef : public Detail::DefinitionRoot<ViewDef> {
  public:
    ViewDef() = default;
    ViewDef(ViewDef const&) = default;
    ViewDef& operator=(ViewDef const&) = default;
    virtual ~ViewDef();

    /// The same for equal definitions.
    virtual int getHashCode() const = 0;

  protected:
    /// Whether `other` is of this class, or of one derived from it, and describes the same.
    virtual bool compare(ViewDef const& other) const = 0;

    /// A new object of this very class.
    virtual std::unique_ptr<ViewDef> makeClone() const = 0;

  private:
    friend class Detail::DefinitionRoot<ViewDef>;
};

extern template class Detail::DefinitionRoot<ViewDef>;

}  // namespace Quorvel::Dravik::Adt::BulkDef
