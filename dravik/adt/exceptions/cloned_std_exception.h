// SPDX-License-Identifier: Apache-2.0
#pragma once

// ClonedStdException: a standard exception that was caught and kept. Threads: as std::string.

#include "dravik/adt/exceptions/cloned_exception.h"

#include <exception>

namespace Quorvel::Dravik::Adt::Exceptions {

/// Message: the readable name of the exception's dynamic type, ": " and its what().
class DRAVIK_ADT_EXPORT ClonedStdException : public ClonedException {
  public:
    explicit ClonedStdException(std::exception const& source);

    ConstPtr clone() const override;
    [[noreturn]] void throwClone() const override;
};

}  // namespace Quorvel::Dravik::Adt::Exceptions
