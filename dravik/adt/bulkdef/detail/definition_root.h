// SPDX-License-Identifier: Apache-2.0
#pragma once

// DefinitionRoot: what EntityDef, SourceDef, TransformDef and ViewDef have in common.

#include "dravik/adt/export.h"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <iosfwd>

namespace Quorvel::Dravik::Adt::BulkDef::Detail {

/// Compares, copies and prints definitions of the kind `Root` through the protected operations of `Root`.
template <class Root>
class DRAVIK_ADT_EXPORT DefinitionRoot {
  public:
    /// Whether each of the two accepts the other; `other` is not asked when this one says no.
    bool equals(Root const& other) const;

    /// A copy on the heap that shares nothing which can change.
    boost::shared_ptr<Root> clone() const;

    /// Writes one readable line, definitions inside this one included.
    friend std::ostream& operator<<(std::ostream& out, Root const& def) { return DefinitionRoot::write(out, def); }

  protected:
    DefinitionRoot() = default;
    DefinitionRoot(DefinitionRoot const&) = default;
    DefinitionRoot& operator=(DefinitionRoot const&) = default;
    ~DefinitionRoot() = default;

  private:
    static std::ostream& write(std::ostream& out, Root const& def);
};

}  // namespace Quorvel::Dravik::Adt::BulkDef::Detail
