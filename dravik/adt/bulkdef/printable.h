// SPDX-License-Identifier: Apache-2.0
#pragma once

// IPrintable: what a definition class implements to print itself in words of its own.

#include "dravik/adt/export.h"

#include <iosfwd>

namespace Quorvel::Dravik::Adt::BulkDef {

/// A definition that knows its text. Every class of this library is one; a class of a host that is not prints as the
/// name of its type.
class DRAVIK_ADT_EXPORT IPrintable {
  public:
    /// Writes one line without a line end: the class and, in brackets, what equality and hash look at and what they do
    /// not, definitions inside this one included.
    virtual void print(std::ostream& out) const = 0;

  protected:
    IPrintable() = default;
    IPrintable(IPrintable const&) = default;
    IPrintable& operator=(IPrintable const&) = default;
    ~IPrintable() = default;
};

}  // namespace Quorvel::Dravik::Adt::BulkDef
