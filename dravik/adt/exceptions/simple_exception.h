// SPDX-License-Identifier: Apache-2.0
#pragma once

// SimpleException: base of the exceptions that are nothing but a message. Threads: as std::string.

#include "dravik/adt/exceptions/cloneable_exception_base.h"

namespace Quorvel::Dravik::Adt::Exceptions {

/// An exception without fields of its own; the constructor's text is the complete message.
class DRAVIK_ADT_EXPORT SimpleException : public CloneableExceptionBase {
  public:
    SimpleException(SimpleException const&) = default;
    SimpleException& operator=(SimpleException const&) = default;
    ~SimpleException() override;

  protected:
    explicit SimpleException(std::string const& message);
};

}  // namespace Quorvel::Dravik::Adt::Exceptions
