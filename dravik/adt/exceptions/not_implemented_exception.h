// SPDX-License-Identifier: Apache-2.0
#pragma once

// NotImplementedException: an operation that its class declares and does not have. Threads: as std::string.

#include "dravik/adt/exceptions/simple_exception.h"

namespace Quorvel::Dravik::Adt::Exceptions {

/// Message: "Not implemented: " and the text.
class DRAVIK_ADT_EXPORT NotImplementedException : public SimpleException {
  public:
    explicit NotImplementedException(std::string const& text);

    ConstPtr clone() const override;
    [[noreturn]] void throwClone() const override;
};

}  // namespace Quorvel::Dravik::Adt::Exceptions
