// SPDX-License-Identifier: Apache-2.0
#pragma once

// TransformDef: root of the definitions that say how a data set is computed from others.

#include "dravik/adt/bulkdef/detail/definition_root.h"
#include "dravik/adt/export.h"

#include <memory>

namespace Quorvel::Dravik::Adt::BulkDef {

/// How data sets are computed from data sets; computing them is the host's business.
/// Contract and thread rule are those of EntityDef.
class DRAVIK_ADT_EXPORT TransformDef : public Detail::DefinitionRoot<TransformDef> {
  public:
    TransformDef() = default;
    TransformDef(TransformDef const&) = default;
    TransformDef& operator=(TransformDef const&) = default;
    virtual ~TransformDef();

    /// Data sets that go in and that come out.
    virtual unsigned int numInputs() const = 0;
    virtual unsigned int numOutputs() const = 0;

    /// The same for equal definitions.
    virtual int getHashCode() const = 0;

  protected:
    /// Whether `other` is of this class, or of one derived from it, and describes the same.
    virtual bool compare(TransformDef const& other) const = 0;

    /// A new object of this very class.
    virtual std::unique_ptr<TransformDef> makeClone() const = 0;

  private:
    friend class Detail::DefinitionRoot<TransformDef>;
};

extern template class Detail::DefinitionRoot<TransformDef>;

}  // namespace Quorvel::Dravik::Adt::BulkDef
