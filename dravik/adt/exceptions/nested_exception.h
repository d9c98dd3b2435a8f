// SPDX-License-Identifier: Apache-2.0
#pragma once

// NestedException: a failure that another failure led to. Copies share the inner exception, which never changes.
// Threads: as std::string.

#include "dravik/adt/exceptions/cloneable_exception_base.h"

#include <exception>

namespace Quorvel::Dravik::Adt::Exceptions {

/// Base for exceptions with a cause: an outer message of its own and, where there is one, the inner exception.
///
/// Message: the outer message, then ": " and the inner exception's whole message when there is an inner exception, also
/// after an empty outer message. A concrete class derives from it through Cloneable.
class DRAVIK_ADT_EXPORT NestedException : public CloneableExceptionBase {
  public:
    NestedException(NestedException const&) = default;
    NestedException& operator=(NestedException const& other);
    ~NestedException() override;

    std::string const& outerMsg() const noexcept;
    void setOuterMsg(std::string const& outerMsg);

    /// The cause; null when there is none.
    ConstPtr innerException() const noexcept;
    void setInnerException(ConstPtr inner);

    /// Keeps a clone of `inner`: of its own type where it is cloneable, else as a ClonedStdException.
    void setInnerException(std::exception const& inner);

  protected:
    NestedException() noexcept = default;
    explicit NestedException(std::string const& outerMsg);
    NestedException(std::string const& outerMsg, ConstPtr inner);
    NestedException(std::string const& outerMsg, std::exception const& inner);

  private:
    void update(std::string outerMsg, ConstPtr inner);

    ConstPtr inner_;
    std::string outerMsg_;
};

}  // namespace Quorvel::Dravik::Adt::Exceptions
