// SPDX-License-Identifier: Apache-2.0
#pragma once

// Cloneable: clone() and throwClone() for a concrete class of the exception tree, the library's own or a host's.
// Threads: as std::string.

#include "dravik/adt/exceptions/cloneable_exception.h"

#include <boost/make_shared.hpp>

namespace Quorvel::Dravik::Adt::Exceptions {

/// `Base`, extended by what `Self` would write itself: copies of its own type. Every concrete class needs one of its
/// own, or its copies are those of the class above.
///
///     class TableFull : public Cloneable<TableFull, SimpleException> {
///       public:
///         explicit TableFull(std::string const& table) : Cloneable("Table full: " + table) {}
///     };
/// @pre `Self` derives from Cloneable<Self, Base> and can be copied
template <class Self, class Base>
class DRAVIK_ADT_EXPORT Cloneable : public Base {
  public:
    ICloneableException::ConstPtr clone() const override {
        return boost::make_shared<Self>(static_cast<Self const&>(*this));
    }
    [[noreturn]] void throwClone() const override { throw Self(static_cast<Self const&>(*this)); }

  protected:
    using Base::Base;
    Cloneable() = default;
};

}  // namespace Quorvel::Dravik::Adt::Exceptions
