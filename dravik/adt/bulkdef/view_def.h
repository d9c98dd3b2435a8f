// SPDX-License-Identifier: Apache-2.0
#pragma once

// ViewDef: root of the definitions that say which part of a data set is looked at.

#include "dravik/adt/bulkdef/equal_definitions.h"
#include "dravik/adt/export.h"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <iosfwd>
#include <memory>

namespace Quorvel::Dravik::Adt::BulkDef {

/// The part of a target that a consumer sees, and how its indices relate to the target's.
/// Contract and thread rule are those of EntityDef.
class DRAVIK_ADT_EXPORT ViewDef {
  public:
    ViewDef() = default;
    ViewDef(ViewDef const&) = default;
    ViewDef& operator=(ViewDef const&) = default;
    virtual ~ViewDef();

    /// The same for equal definitions.
    virtual int getHashCode() const = 0;

    /// Whether each of the two accepts the other; `other` is not asked when this one says no.
    bool equals(ViewDef const& other) const;

    /// A copy on the heap that shares nothing which can change.
    boost::shared_ptr<ViewDef> clone() const;

    /// Writes one readable line, definitions inside this one included.
    friend DRAVIK_ADT_EXPORT std::ostream& operator<<(std::ostream& out, ViewDef const& def);

  protected:
    /// Whether `other` is of this class, or of one derived from it, and describes the same.
    virtual bool compare(ViewDef const& other) const = 0;

    /// A new object of this very class.
    virtual std::unique_ptr<ViewDef> makeClone() const = 0;
};

}  // namespace Quorvel::Dravik::Adt::BulkDef
