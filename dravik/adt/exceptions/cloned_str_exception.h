// SPDX-License-Identifier: Apache-2.0
#pragma once

// ClonedStrException: a thrown character string that was caught and kept. Threads: as std::string.

#include "dravik/adt/exceptions/cloned_exception.h"

namespace Quorvel::Dravik::Adt::Exceptions {

/// Message: the string alone. Its exceptionType() is that of `char*`.
class DRAVIK_ADT_EXPORT ClonedStrException : public ClonedException {
  public:
    /// Copies the characters; a null pointer has none.
    explicit ClonedStrException(char const* text);

    ConstPtr clone() const override;
    [[noreturn]] void throwClone() const override;
};

}  // namespace Quorvel::Dravik::Adt::Exceptions
