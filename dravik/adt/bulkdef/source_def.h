// SPDX-License-Identifier: Apache-2.0
#pragma once

// SourceDef: root of the definitions that say where a data set comes from.

#include "dravik/adt/bulkdef/detail/definition_root.h"
#include "dravik/adt/export.h"

#include <memory>
#include <string>

namespace Quorvel::Dravik::Adt::BulkDef {

/// The place a data set comes from, such as a file or an item of a project.
/// Contract and thread rule are those of EntityDef.
class DRAVIK_ADT_EXPORT SourceDef : public Detail::DefinitionRoot<SourceDef> {
  public:
    SourceDef() = default;
    SourceDef(SourceDef const&) = default;
    SourceDef& operator=(SourceDef const&) = default;
    virtual ~SourceDef();

    /// The same for equal definitions.
    virtual int getHashCode() const = 0;

    /// A text of the host's own making.
    /// @throws Exceptions::PlainException "[SourceDef::toString] Default implementation not supported." unless
    /// overridden
    virtual std::string toString() const;

  protected:
    /// Whether `other` is of this class, or of one derived from it, and describes the same.
    virtual bool compare(SourceDef const& other) const = 0;

    /// A new object of this very class.
    virtual std::unique_ptr<SourceDef> makeClone() const = 0;

  private:
    friend class Detail::DefinitionRoot<SourceDef>;
};

extern template class Detail::DefinitionRoot<SourceDef>;

}  // namespace Quorvel::Dravik::Adt::BulkDef
