// SPDX-License-Identifier: Apache-2.0
#pragma once

// TransformDef: root of the definitions that say how a data set is computed from others.

#include "dravik/adt/bulkdef/equal_definitions.h"
#include "dravik/adt/export.h"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <iosfwd>
#include <memory>

namespace Quorvel::Dravik::Adt::BulkDef {

/// How data sets are computed from data sets; computing them is the host's business.
/// Contract and thread rule are those of EntityDef.
class DRAVIK_ADT_EXPORT TransformDef {
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

    /// Whether each of the two accepts the other; `other` is not asked when this one says no.
    bool equals(TransformDef const& other) const;

    /// A copy on the heap that shares nothing which can change.
    boost::shared_ptr<TransformDef> clone() const;

    /// Writes one readable line, definitions inside this one included.
    friend DRAVIK_ADT_EXPORT std::ostream& operator<<(std::ostream& out, TransformDef const& def);

  protected:
    /// Whether `other` is of this class, or of one derived from it, and describes the same.
    virtual bool compare(TransformDef const& other) const = 0;

    /// A new object of this very class.
    virtual std::unique_ptr<TransformDef> makeClone() const = 0;
};

}  // namespace Quorvel::Dravik::Adt::BulkDef
