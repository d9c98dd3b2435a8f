// SPDX-License-Identifier: Apache-2.0
#pragma once

// SourceDef: root of the definitions that say where a data set comes from.

#include "dravik/adt/bulkdef/equal_definitions.h"
#include "dravik/adt/export.h"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <iosfwd>
#include <memory>
#include <string>

namespace Quorvel::Dravik::Adt::BulkDef {

/// The place a data set comes from, such as a file or an item of a project.
/// Contract and thread rule are those of EntityDef.
class DRAVIK_ADT_EXPORT SourceDef {
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

    /// Whether each of the two accepts the other; `other` is not asked when this one says no.
    bool equals(SourceDef const& other) const;

    /// A copy on the heap that shares nothing which can change.
    boost::shared_ptr<SourceDef> clone() const;

    /// Writes one readable line, definitions inside this one included.
    friend DRAVIK_ADT_EXPORT std::ostream& operator<<(std::ostream& out, SourceDef const& def);

  protected:
    /// Whether `other` is of this class, or of one derived from it, and describes the same.
    virtual bool compare(SourceDef const& other) const = 0;

    /// A new object of this very class.
    virtual std::unique_ptr<SourceDef> makeClone() const = 0;
};

}  // namespace Quorvel::Dravik::Adt::BulkDef
