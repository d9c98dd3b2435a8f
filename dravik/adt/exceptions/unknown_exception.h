// SPDX-License-Identifier: Apache-2.0
#pragma once

// UnknownException: something was thrown that nobody knows. Threads: as std::string.

#include "dravik/adt/exceptions/cloned_exception.h"

namespace Quorvel::Dravik::Adt::Exceptions {

/// Message: "Caught exception of unknown type.". Its exceptionType() is that of `void`.
class DRAVIK_ADT_EXPORT UnknownException : public ClonedException {
  public:
    UnknownException();

    ConstPtr clone() const override;
    [[noreturn]] void throwClone() const override;
};

}  // namespace Quorvel::Dravik::Adt::Exceptions
