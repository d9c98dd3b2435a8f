// SPDX-License-Identifier: Apache-2.0
#pragma once

// ICloneableException: root of the library's own exceptions. Copies share nothing that can change, so an object belongs
// to its holder; a clone may be kept, dropped and thrown on any thread.

#include "dravik/adt/exceptions/detail/std_exception_text.h"
#include "dravik/adt/export.h"

#include <boost/shared_ptr.hpp>

#include <string>

namespace Quorvel::Dravik::Adt {

/// An exception that can be kept beyond its catch block and thrown again later, as the same type with the same message.
///
///     boost::shared_ptr<ICloneableException const> failure;
///     try { work(); } catch (ICloneableException const& e) { failure = e.clone(); }
///     …                                       // on any thread
///     if (failure) { failure->throwClone(); }
class DRAVIK_ADT_EXPORT ICloneableException : public Exceptions::Detail::StdExceptionText {
  public:
    /// A clone: owned together with everybody who copies the pointer, never changed.
    using ConstPtr = boost::shared_ptr<ICloneableException const>;

    ~ICloneableException() override;

    /// The characters of msg().
    char const* what() const noexcept override;

    /// The whole message.
    virtual std::string const& msg() const noexcept = 0;

    /// A copy on the heap, of the same dynamic type.
    virtual ConstPtr clone() const = 0;

    /// Throws a copy by value, of the same dynamic type.
    [[noreturn]] virtual void throwClone() const = 0;

  protected:
    ICloneableException() noexcept;
    ICloneableException(ICloneableException const&) noexcept = default;
    ICloneableException& operator=(ICloneableException const&) noexcept = default;
};

}  // namespace Quorvel::Dravik::Adt
